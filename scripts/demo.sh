#!/usr/bin/env bash
# Builds the example programs and plays a short story with them on the loopback interface: two
# collect servers, four proxies, and a service API that hosts the statistics module. One proxy
# stops answering for a while, another returns errors, and a collect server is killed. At the end
# every report is checked against what the programs have counted. Exit status 0 if all agrees.
set -euo pipefail

repository=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
readonly repository
readonly build=$repository/build/demo
readonly programs=$build/examples
readonly clock_speed=20
readonly traffic_seconds=31

work=$(mktemp -d)
readonly work

narrate() { printf '\n=== %s\n' "$*"; }

finish() {
  local status=$?
  trap - EXIT INT TERM
  local pid
  for pid in $(jobs -pr); do
    kill -KILL "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  if ((status == 0 || status > 128)); then # over or interrupted
    rm -rf "$work"
  else
    printf '\nThe files of this run are kept in %s\n' "$work" >&2
  fi
  exit "$status"
}
trap finish EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

fail() {
  printf 'demo: %s\n' "$*" >&2
  exit 1
}

build_programs() {
  local log=$work/build.log
  if ! {
    cmake -S "$repository" -B "$build" -DCMAKE_BUILD_TYPE=Release \
      -DKORVAIN_STATISTIC_BUILD_TESTS=OFF -DKORVAIN_STATISTIC_BUILD_BENCHMARKS=OFF \
      -DKORVAIN_STATISTIC_BUILD_EXAMPLES=ON &&
      cmake --build "$build" --parallel 2
  } >"$log" 2>&1; then
    cat "$log" >&2
    fail "the build has failed"
  fi
}

# start PROGRAM ARGUMENTS...: leaves the process id in $started.
start() {
  local program=$1
  shift
  "$programs/$program" "$@" &
  started=$!
}

is_running() { kill -0 "$1" 2>/dev/null; }

# Both the first proxy, which drops, and the second, which returns errors, recover by themselves.
start_servers() {
  local base=$1 i pid
  collect_urls=("udp://127.0.0.1:$base" "udp://127.0.0.1:$((base + 1))")
  collect_pids=()
  proxy_urls=()
  proxy_pids=()
  for i in 0 1; do
    : >"$work/collect-$((i + 1))"
    start collect_server --name "collect-$((i + 1))" --listen "${collect_urls[i]}" \
      --file "$work/collect-$((i + 1))"
    collect_pids+=("$started")
  done
  local faults=("--drop-rate 1 --fault-from 4 --fault-for 8.5"
    "--error-rate 1 --fault-from 6 --fault-for 8.5" "" "")
  local delays=("uniform 15" "exponential 10" "fixed 20" "uniform 8")
  for i in 0 1 2 3; do
    proxy_urls+=("udp://127.0.0.1:$((base + 2 + i))")
    # The settings are lists of words.
    # shellcheck disable=SC2086
    start sim_proxy --name "proxy-$((i + 1))" --listen "${proxy_urls[i]}" --seed "$((i + 1))" \
      --summary "$work/proxy-$((i + 1))" --delay-max 60 --delay ${delays[i]% *} \
      --delay-mean ${delays[i]#* } ${faults[i]}
    proxy_pids+=("$started")
  done
  sleep 0.3
  for pid in "${collect_pids[@]}" "${proxy_pids[@]}"; do
    is_running "$pid" || return 1
  done
}

stop() {
  local pid
  for pid in "$@"; do kill -INT "$pid" 2>/dev/null || true; done
  for pid in "$@"; do wait "$pid" || true; done
}

start_servers_on_free_ports() {
  local base
  for base in 19310 23310 27310 31310; do
    if start_servers "$base"; then return; fi
    narrate "A port from $base on is in use, trying others."
    stop "${collect_pids[@]}" "${proxy_pids[@]}"
  done
  fail "no free ports"
}

# Reports come every 3 seconds from the start on, and checks of the proxies at every second full
# second of the wall clock. Started between two full seconds, they do not meet: a check right after
# a report, which empties the counters, would find next to nothing to judge.
wait_for_half_second() {
  local nanoseconds
  nanoseconds=$((10#$(date +%N)))
  sleep "$(printf '0.%09d' $(((1450000000 - nanoseconds) % 1000000000)))"
}

start_service() {
  local arguments=() url
  : >"$work/journal"
  for url in "${proxy_urls[@]}"; do arguments+=(--proxy "$url"); done
  for url in "${collect_urls[@]}"; do arguments+=(--collect "$url"); done
  start service_api "${arguments[@]}" --zones 2 --tables 3 --rate 320 \
    --duration "$traffic_seconds" --clock-speed "$clock_speed" --judge-period 1 --judge-times 3 \
    --judge-threshold 70 --recheck 4 --journal "$work/journal" --summary "$work/service"
  service_pid=$started
}

reports_sent() { grep -c '^journal_report' "$work/journal" || true; }
bytes_at() { wc -c <"$work/collect-$1"; }

# Waits until that many reports have been made, and for their datagrams to be written down. Sleeps
# are short, since a trap has to wait for the end of a sleep.
wait_until_reports() {
  while (($(reports_sent) < $1)); do
    is_running "$service_pid" || fail "the service API has ended early"
    sleep 0.1
  done
  sleep 0.2
}

# Waits until each of the two zones has made one more report.
wait_for_reports() { wait_until_reports $(($(reports_sent) + 2)); }

# Leaves the number of the collect server in use in $in_use, and that of the other in $other.
find_server_in_use() {
  local before=("" "$(bytes_at 1)" "$(bytes_at 2)")
  wait_for_reports
  in_use=0
  if (($(bytes_at 1) > before[1])); then in_use=1; fi
  if (($(bytes_at 2) > before[2])); then in_use=2; fi
  ((in_use > 0)) || fail "no collect server receives reports"
  other=$((3 - in_use))
}

kill_server_in_use() {
  local pid=${collect_pids[in_use - 1]} before after
  narrate "Collect server $in_use, which receives the reports, is killed (SIGKILL)."
  kill -KILL "$pid"
  wait "$pid" 2>/dev/null || true
  before=$(bytes_at 1)/$(bytes_at 2)
  wait_for_reports
  after=$(bytes_at 1)/$(bytes_at 2)
  [[ $before == "$after" ]] || fail "a report has arrived although its server is dead"
  narrate "Two more reports were \"handed over\", and neither server has received them. UDP does" \
    "not tell the sender: the kernel takes each datagram and nobody is there to get it."
}

# The channel turns to the servers in the order of the list, so it may find the dead one first.
move_to_other_server() {
  local try before
  for try in 1 2; do
    before=$(bytes_at "$other")
    narrate "SIGUSR1 tells the service API to leave its collect server."
    kill -USR1 "$service_pid"
    wait_for_reports
    if (($(bytes_at "$other") > before)); then
      narrate "Reports arrive at collect server $other."
      return
    fi
    narrate "The channel has turned to the dead server again, whose turn it was; reports are" \
      "still lost (attempt $try)."
  done
  fail "the channel did not turn to collect server $other"
}

check_run() {
  local arguments=() i
  for i in 1 2; do arguments+=(--collected "$work/collect-$i"); done
  for i in 1 2 3 4; do arguments+=(--proxy-summary "$work/proxy-$i"); done
  "$programs/report_check" --journal "$work/journal" --service-summary "$work/service" \
    "${arguments[@]}" --clock-speed "$clock_speed" --expect-unavailable "${proxy_urls[0]}" \
    --expect-unavailable "${proxy_urls[1]}"
}

main() {
  narrate "Step 1: what the demo needs"
  "$repository/scripts/install_deps.sh" demo

  narrate "Step 2: build"
  build_programs

  narrate "Step 3: two collect servers, four proxies and the service API, for $traffic_seconds s"
  SECONDS=0
  start_servers_on_free_ports
  wait_for_half_second
  start_service
  narrate "Soon proxy-1 will drop all requests and proxy-2 return nothing but errors, for 8.5 s" \
    "each. Both should be judged unavailable, tried again 4 s later, and taken back. The clock of" \
    "the service API runs $clock_speed times as fast as real time: it reports every 60 s of that" \
    "clock, and a delay of 20 ms is $((20 * clock_speed)) ms on it."
  wait_until_reports 10 # five of each zone, after 15 s; by then the proxies' faults are over
  find_server_in_use
  kill_server_in_use
  move_to_other_server
  wait "$service_pid"

  narrate "The service API has ended; now the servers"
  sleep 0.3
  stop "${collect_pids[@]}" "${proxy_pids[@]}"

  narrate "Do the reports agree with what each program has counted by itself?"
  check_run
  narrate "The demo took $SECONDS s."
}

main
