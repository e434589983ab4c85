# shellcheck shell=bash disable=SC2154
# The story of the demo with a database, as functions to be sourced after demo/story.sh and
# servers.sh: each fault and each change has its own time, so that a picture shows them apart.

# A report every 3 s, which is no multiple of the 2 s between checks: at equal times the judge would
# meet equal counts, and see no requests between them.
readonly clock_speed=20 judge_times=2 recheck=3
readonly story_seconds=48

# Milliseconds since the hosts' start.
elapsed_ms() { echo $(($(date +%s%3N) - start_ms)); }
wait_for_second() { while (($(elapsed_ms) < $1 * 1000)); do sleep 0.1; done; }

# What the hosts' clocks show, which began so far in the past that they end at now.
host_seconds() { echo $((start_ms / 1000 - clock_ago + $(elapsed_ms) * clock_speed / 1000)); }

# mark WHAT: notes the time for the picture.
mark() { printf '%s=%s\n' "$1" "$(host_seconds)" >>"$work/marks"; }

start_agents() {
  local i
  collect_urls=() collect_pids=()
  for i in 1 2; do
    start_agent "collect-$i"
    collect_urls+=("$url") collect_pids+=("$started")
  done
}

start_hosts() {
  local name
  host_pids=()
  clock_ago=$(((clock_speed - 1) * story_seconds))
  start_ms=$(date +%s%3N)
  mark first
  for name in shop-1 shop-2; do
    start_host "$name" --instance "$name" --clock-start-ago "$clock_ago" \
      --journal "$work/journal-$name" 3>>"$log"
    host_pids+=("$started")
  done
}

both_have_logged() { has_logged "shop-1! $1" && has_logged "shop-2! $1"; }

# fail_proxy NUMBER WHAT: until both hosts have taken it out, and after that until it is back.
fail_proxy() {
  local pid=${proxy_pids[$1 - 1]}
  mark "$2"
  kill -USR1 "$pid"
  wait_until "proxy-$1 judged" 12 both_have_logged "proxy-$1 is judged unavailable"
  say "both hosts have taken proxy-$1 out"
  pause 4
  mark "$2_end"
  kill -USR1 "$pid"
  wait_until "proxy-$1 back" 12 both_have_logged "proxy-$1 is back in service"
  say "both hosts have taken proxy-$1 back"
}

journalled() { cat "$work"/journal-* | grep -c . || true; }
have_journalled() { (($(journalled) >= $1)); }

nobody_reports_to() {
  local name
  for name in shop-1 shop-2; do
    if reports_to "$work/journal-$name" "$1"; then return 1; fi
  done
}

# Half a period after a report, so that no agent is just about to pass one on. Hosts that start in
# the same second use the same server.
kill_agent_in_use() {
  wait_until "reports" 10 have_journalled $(($(journalled) + 1))
  pause 1
  mark kill
  kill_server_in_use "$work/journal-shop-1"
  wait_until "reports move on" 10 nobody_reports_to "$killed_url"
  say "both hosts report to collect-$left by themselves"
}

stop_database_for_a_while() {
  say "the database is stopped; collect-$left keeps what it takes"
  mark pause
  stop "$database_pid"
  pause 4
  run_database
  mark pause_end
  say "the database is there again"
}

play_database_story() {
  : >"$work/marks"
  start_database
  start_agents
  start_proxies
  wait_for_quarter_past
  start_hosts
  wait_for_second 3
  fail_proxy 1 drop
  wait_for_second 17
  fail_proxy 2 errors
  wait_for_second 31
  kill_agent_in_use
  pause 4
  stop_database_for_a_while
  wait_for_second $((story_seconds - 1))
  stop "${host_pids[@]}"
  mark last
  stop "${proxy_pids[@]}"
}
