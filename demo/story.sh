# shellcheck shell=bash disable=SC2154
# The story that the demo plays and the tests check, as functions to be sourced: two collect
# servers, four proxies and a host that reports. One proxy drops its requests for a while, another
# answers with errors, and then the collect server in use is killed.
#
# Expects in $programs the directory of the programs, in $work one for the files of the run, in $log
# a file, and $verbose, which may be empty. What is said goes to descriptor 3, see open_log.
checks=$(cd "$(dirname "${BASH_SOURCE[0]}")/../tests/system/checks" && pwd)
readonly checks

# Lines begin with the name of who says them and '!', '>' or ':', as demo/common/console.h has it.

# Opens descriptor 3. All lines that are written there go into the log; those for a person are
# shown, all of them if $verbose is set, the turns of the story bold on a terminal. A viewer who goes
# away ends the view, not the log.
open_log() {
  local bold="" plain="" show='/^[^ ]*[!>] /!d'
  if [ -t 1 ]; then bold=$'\033[1m' plain=$'\033[0m'; fi
  if [[ -n $verbose ]]; then show=""; fi
  exec 3> >(tee -pa "$log" | sed -u -e "$show" -e "s/^[^ ]*! \(.*\)/$bold\1$plain/" -e 's/^[^ ]*> //')
  viewer=$!
}

# Waits until all lines are shown.
close_log() {
  exec 3>&-
  wait "$viewer" || true
}

say() { printf 'story! %s\n' "$*" >&3; }

fail() {
  printf 'demo: %s\n' "$*" >&2
  exit 1
}

# set_pace full|short: how fast the story goes. The host's clock runs clock_speed times as fast as
# real time; it reports every 60 s of it, and judges every second real second.
set_pace() {
  case $1 in
    full) clock_speed=20 judge_times=3 recheck=4 calm=3 delay_tolerance=15 ;;
    short) clock_speed=40 judge_times=1 recheck=1 calm=1 delay_tolerance=50 ;;
  esac
  readonly clock_speed judge_times recheck calm delay_tolerance
}

declare -A name_of # by process id

# start NAME PROGRAM ARGUMENTS...: leaves the process id in $started.
start() {
  "$programs/$2" --name "$1" "${@:3}" >&3 3>&- &
  started=$!
  name_of[$started]=$1
}

# Those that nobody has waited for yet.
ended_programs() {
  local pid all running
  all=$(jobs -p) running=" $(jobs -pr | tr '\n' ' ')"
  for pid in $all; do
    [[ $running == *" $pid "* ]] || echo "${name_of[$pid]:-process $pid}"
  done
}

# Ends the processes in the order given, and waits for them to end well.
stop() {
  local pid
  for pid in "$@"; do kill -TERM "$pid" 2>/dev/null || true; done
  for pid in "$@"; do wait "$pid" || fail "${name_of[$pid]:-process $pid} ended with status $?"; done
}

# Ends a process as a power cut would.
kill_at_once() {
  kill -KILL "$1" 2>/dev/null || true
  wait "$1" 2>/dev/null || true
}

# Ends at once what still runs; for a trap.
kill_everything() {
  local pid
  for pid in $(jobs -pr); do kill_at_once "$pid"; done
}

# wait_until WHAT SECONDS COMMAND...: asks again and again, as long as all programs run. Sleeps are
# short, since a trap has to wait for the end of a sleep.
wait_until() {
  local what=$1 tries=$(($2 * 10)) ended
  shift 2
  while ! "$@"; do
    ended=$(ended_programs)
    [[ -z $ended ]] || fail "waited in vain: $what, for there is no longer $ended"
    ((tries-- > 0)) || fail "waited in vain: $what"
    sleep 0.1
  done
}

pause() {
  local i
  for ((i = 0; i < $1 * 10; ++i)); do sleep 0.1; done
}

has_logged() { grep -qF "$1" "$log"; }

# start_server NAME PROGRAM ARGUMENTS...: leaves the process id in $started and the URL in $url. The
# server finds a free port by itself.
start_server() {
  start "$@"
  wait_until "$1 is ready" 10 has_logged "$1: receiving on "
  url=$(sed -n "s/^$1: receiving on //p" "$log")
}

start_collect_servers() {
  local i
  collect_urls=() collect_pids=()
  for i in 1 2; do
    start_server "collect-$i" collect_server --file "$work/collect-$i"
    collect_urls+=("$url") collect_pids+=("$started")
  done
}

start_proxies() {
  local i faults=(drop errors drop drop) delays=(15 9 18 7)
  proxy_urls=() proxy_pids=()
  for i in 0 1 2 3; do
    start_server "proxy-$((i + 1))" sim_proxy --summary "$work/proxy-$((i + 1))" \
      --delay-mean "${delays[i]}" --fault "${faults[i]}"
    proxy_urls+=("$url") proxy_pids+=("$started")
  done
}

# Reports come at fixed times from the start on, and checks of the proxies at every second full
# second of the wall clock. Started a quarter past a full second, they do not meet: a check right
# after a report, which empties the counters, would find next to nothing to judge.
wait_for_quarter_past() {
  local nanoseconds
  nanoseconds=$((10#$(date +%N)))
  sleep "$(printf '0.%09d' $(((1230000000 - nanoseconds) % 1000000000)))"
}

# start_host NAME ARGUMENTS...: with all proxies and collect servers.
start_host() {
  local arguments=() each
  for each in "${proxy_urls[@]}"; do arguments+=(--proxy "$each"); done
  for each in "${collect_urls[@]}"; do arguments+=(--collect "$each"); done
  start "$1" demo_host "${arguments[@]}" --zones 2 --rate 320 --clock-speed "$clock_speed" \
    --timeout $((150 * clock_speed)) --judge-period 1 --judge-times "$judge_times" \
    --judge-threshold 70 --recheck "$recheck" "${@:2}"
}

reports_made() { grep -c . "$work/journal" || true; }
have_reports() { (($(reports_made) >= $1)); }

# Waits until each of the two zones has made that many more reports.
wait_for_reports() { wait_until "reports" 30 have_reports $(($(reports_made) + 2 * $1)); }

# Both faults last until the host has noticed, and the host has to notice their end as well.
fail_two_proxies() {
  kill -USR1 "${proxy_pids[0]}"
  pause "$calm"
  kill -USR1 "${proxy_pids[1]}"
  wait_until "proxy-1 judged" 30 has_logged "proxy-1 is judged unavailable"
  wait_until "proxy-2 judged" 30 has_logged "proxy-2 is judged unavailable"
  kill -USR1 "${proxy_pids[0]}" "${proxy_pids[1]}"
  wait_until "proxy-1 back" 30 has_logged "proxy-1 is back"
  wait_until "proxy-2 back" 30 has_logged "proxy-2 is back"
}

# reports_to JOURNAL URL: whether the last report went there.
reports_to() { [[ $(tail -n 1 "$1") == *"\"server\":\"$2\""* ]]; }

# kill_server_in_use JOURNAL: nothing else is done, the module has to notice. Leaves the server's URL
# in $killed_url, and the number of the other one in $left.
kill_server_in_use() {
  local in_use=2
  if reports_to "$1" "${collect_urls[0]}"; then in_use=1; fi
  left=$((3 - in_use))
  say "collect-$in_use, which receives the reports, is killed"
  kill_at_once "${collect_pids[in_use - 1]}"
  killed_url=${collect_urls[in_use - 1]}
  unset "collect_pids[in_use - 1]"
}

# The last report that is there as a whole.
show_report() { "$checks/report_table.py" "$work/$1" | sed 's/^/report> /'; }

play_story() {
  start_collect_servers
  start_proxies
  wait_for_quarter_past
  start_host host --journal "$work/journal" --summary "$work/host"
  host_pid=$started
  pause "$calm"
  fail_two_proxies
  wait_for_reports 1
  kill_server_in_use "$work/journal"
  wait_until "reports move on" 30 has_logged "reports go to collect-$left"
  wait_for_reports 1
  say "the last report that collect-$left holds as a whole; its minutes and milliseconds are those" \
    "of the host's clock, $clock_speed to a real one:"
  show_report "collect-$left" >&3
  stop "$host_pid"
  stop "${collect_pids[@]}" "${proxy_pids[@]}"
}

check_story() { "$checks/report_check.py" --delay-tolerance "$delay_tolerance" "$work"; }
