# shellcheck shell=bash disable=SC2154
# The story of the demo with a database, as functions to be sourced after demo/story.sh and
# servers.sh: each fault and each change has its own time, so that a picture shows them apart.

# A report every 3 s, which is no multiple of the 2 s between checks: at equal times the judge would
# meet equal counts, and see no requests between them.
readonly clock_speed=20
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

start_reporting_host() {
  local name=$1 arguments=() each
  for each in "${proxy_urls[@]}"; do arguments+=(--proxy "$each"); done
  for each in "${collect_urls[@]}"; do arguments+=(--collect "$each"); done
  start "$name" demo_host "${arguments[@]}" --instance "$name" --zones 2 --rate 320 \
    --clock-speed "$clock_speed" --clock-start-ago "$clock_ago" --timeout $((150 * clock_speed)) \
    --judge-period 1 --judge-times 2 --judge-threshold 70 --recheck 3 \
    --journal "$work/journal-$name"
  host_pids+=("$started")
}

start_hosts() {
  host_pids=()
  clock_ago=$(((clock_speed - 1) * story_seconds))
  start_ms=$(date +%s%3N)
  mark first
  start_reporting_host shop-1 3>>"$log"
  start_reporting_host shop-2 3>>"$log"
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

# Half a period after a report, so that no agent is just about to pass one on.
kill_agent_in_use() {
  local in_use=0
  wait_until "reports" 10 have_journalled $(($(journalled) + 1))
  pause 1
  [[ $(tail -n 1 "$work/journal-shop-1") == *"\"server\":\"${collect_urls[0]}\""* ]] || in_use=1
  killed_url=${collect_urls[in_use]} left=$((1 - in_use))
  say "collect-$((in_use + 1)), which receives the reports, is killed"
  mark kill
  kill -KILL "${collect_pids[in_use]}"
  wait "${collect_pids[in_use]}" 2>/dev/null || true
  wait_until "reports move on" 10 both_have_logged "collect-$((in_use + 1)) does not answer"
  say "both hosts report to collect-$((left + 1)) by themselves"
}

stop_database_for_a_while() {
  say "the database is stopped; collect-$((left + 1)) keeps what it takes"
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
