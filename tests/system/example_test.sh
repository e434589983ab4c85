#!/usr/bin/env bash
# Runs the example for a moment with two proxies, one of which drops all requests, and looks at what
# a collect server has received when it is interrupted.
# Usage: example_test.sh DIRECTORY-OF-THE-PROGRAMS EXAMPLE
set -euo pipefail
programs=$1
example=$2
work=$(mktemp -d)
log=$work/log

# shellcheck source=../../demo/story.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../demo/story.sh"

finish() {
  local status=$?
  trap - EXIT
  kill_everything
  if ((status != 0)); then cat "$log" "$work/said" "$work/collected" 2>/dev/null || true; fi
  rm -rf "$work"
  exit "$status"
}
trap finish EXIT

# field NAME LINE-PATTERN: its value in the one line of the report that the pattern finds.
field() {
  local line
  line=$(grep -E "$2" "$work/collected")
  [[ $(wc -l <<<"$line") -eq 1 && $line =~ [\ ,]$1=([0-9]+)i ]] || fail "no $1 in one line $2"
  echo "${BASH_REMATCH[1]}"
}

at_least() { (($2 >= $1)) || fail "$3 is $2, not at least $1"; }

exec 3>"$log"
: >"$work/said"
start_server collect collect_server --file "$work/collected"
collect_pid=$started collect_url=$url
start_server good sim_proxy --delay-mean 3
good=$url
start_server dropping sim_proxy --fault drop
dropping=$url dropping_pid=$started
kill -USR1 "$dropping_pid"
wait_until "it drops" 10 has_logged "dropping drops all requests from now on"

# What it says is wanted line by line; the sanitizer's runtime bears what that preloads.
ASAN_OPTIONS=verify_asan_link_order=0 stdbuf -oL "$example" "$collect_url" "$good" "$dropping" >"$work/said" &
example_pid=$!
wait_until "the judge finds the proxy that drops" 30 \
  grep -q "^$dropping is unavailable, and tried again in 60 s$" "$work/said"
kill -INT "$example_pid"
wait "$example_pid" || fail "the example ended with status $?"
wait_until "the report is stored" 10 grep -q '^korvain_access.*'"${dropping#udp://}" "$work/collected"
stop "$collect_pid"

at_least 1000 "$(field requests_per_min '^korvain_overall')" "all requests a minute"
at_least 1000 "$(field requests_per_min '^korvain_table.*table=orders')" "the table's"
at_least 100 "$(field delay_samples "^korvain_access.*url=${good#udp://} ")" "answers of one proxy"
at_least 100 "$(field timeouts_per_min "^korvain_access.*url=${dropping#udp://} ")" "time-outs of the other"
[ "$(field timeouts_per_min "^korvain_access.*url=${good#udp://} ")" -eq 0 ]
[ "$(field delay_samples "^korvain_access.*url=${dropping#udp://} ")" -eq 0 ]
