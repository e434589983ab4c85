#!/usr/bin/env bash
# What the programs bear: full disks, a standard output that nobody reads, lines from strangers, and
# answers to requests that were over long ago.
# Usage: robustness_test.sh DIRECTORY-OF-THE-PROGRAMS
set -euo pipefail
programs=$1
verbose=""
work=$(mktemp -d)
log=$work/log

# shellcheck source=../../demo/story.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../demo/story.sh"
trap 'kill_everything; rm -rf "$work"' EXIT

check() {
  local what=$1
  shift
  "$@" && return
  echo "$what"
  tail -n 20 "$log"
  exit 1
}
says_once() { [[ $(grep -cF "$1" "$log") -eq 1 ]]; }
ends_in_time() {
  local i
  kill -TERM "$1"
  for ((i = 0; i < 50; ++i)); do
    kill -0 "$1" 2>/dev/null || return 0
    sleep 0.1
  done
  return 1
}
# send URL: a datagram from standard input.
send() { cat >"/dev/udp/127.0.0.1/${1##*:}"; }
resident_kb() { awk '/^VmRSS/ {print $2}' "/proc/$1/status"; }
has_written() { [[ -s $1 ]]; }

# A file on a full disk: said once, counted, and the server goes on.
start_server full-disk collect_server --file /dev/full
for _ in 1 2 3; do send "$url" <<<"korvain_table,table=t f=1i 1"; done
send "$url" <<<$'no line \e[31mof a report'
wait_until "a malformed line" 10 has_logged "a malformed line from"
stop "$started"
check "full disk not said once" says_once "cannot write to /dev/full: No space left on device"
check "losses not counted" says_once "4 datagrams not kept"
check "a terminal would obey this" says_once "no line ?[31mof a report"

# The same for the host's journal and summary, while it serves.
start_server proxy sim_proxy
start host demo_host --proxy "$url" --collect udp://127.0.0.1:9 --clock-speed 200 --rate 50 \
  --journal /dev/full --summary /dev/full --duration 1
check "a full disk ends the host" wait "$started"
check "journal entries lost are not counted" grep -qE "journal entries lost: [1-9]" "$log"

# Thousands of tags or fields, and reports without end that are never complete. A sanitizer that
# keeps freed memory for a while would look like growth.
export ASAN_OPTIONS=quarantine_size_mb=1
start_server crowd collect_server
before=$(resident_kb "$started")
tags=$(printf ',t%d=v' {1..5000})
fields=$(printf ',f%d=1i' {1..5000})
for i in {1..200}; do
  send "$url" <<<"korvain_access$tags f=1i $i"
  send "$url" <<<"korvain_access f=1i$fields $i"
  send "$url" <<<"korvain_access,url=$(printf '%060000d' 0) f=1i $i"
done
wait_until "crowd" 10 has_logged "from now on the oldest gives way"
grown=$(($(resident_kb "$started") - before))
check "memory has grown by $grown kB" test "$grown" -lt 15000
check "the crowd not said once" says_once "too many incomplete reports"
check "malformed lines not said once" says_once "further ones are only counted: korvain_access,t1"
stop "$started"

# Nobody reads standard output: lines are dropped, and a signal still ends the server.
mkfifo "$work/pipe"
exec 3<>"$work/pipe"
"$programs/collect_server" --name unread --log "$log" --verbose --ready-file "$work/unread" \
  >"$work/pipe" &
unread=$!
wait_until "unread is ready" 10 has_written "$work/unread"
url=$(<"$work/unread")
for i in {1..600}; do send "$url" <<<"korvain_overall table_lines=0i,access_lines=0i $i"; done
check "the server hangs" ends_in_time "$unread"
check "drops not counted" grep -qE "\[unread\] summary: .* [1-9][0-9]* messages that nobody read" "$log"
exec 3>&-

# Files and addresses that cannot be opened are named.
expect_named() {
  local errors status=0
  errors=$("$programs/$2" "${@:3}" 2>&1 >/dev/null) || status=$?
  check "${*:2}: status $status, said: $errors" test "$status" -eq 1
  check "${*:2}: not named: $errors" grep -qF "$1" <<<"$errors"
}
expect_named /no/such/file collect_server --file /no/such/file
expect_named /no/such/log sim_proxy --log /no/such/log
expect_named /no/such/summary demo_host --summary /no/such/summary --proxy udp://127.0.0.1:9 \
  --collect udp://127.0.0.1:9
start_server taken sim_proxy
expect_named "$url" collect_server --listen "$url"
