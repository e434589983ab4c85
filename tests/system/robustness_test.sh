#!/usr/bin/env bash
# What the programs bear: full disks, and a standard output that nobody reads.
# Usage: robustness_test.sh DIRECTORY-OF-THE-PROGRAMS
set -euo pipefail
programs=$1
work=$(mktemp -d)
log=$work/log

# shellcheck source=../../demo/story.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../demo/story.sh"
trap 'kill_everything; rm -rf "$work"' EXIT
exec 3>"$log"

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

# A disk that is full for a while: a line that went in part is ended before the next one. So is one
# that came without an end.
limit=$(ulimit -S -f)
trap '' XFSZ
ulimit -S -f 1 # 1,024 bytes
start_server limited collect_server --file "$work/limited"
ulimit -S -f "$limit"
trap - XFSZ
for _ in 1 2; do printf '%0600d\n' 0 | send "$url"; done
wait_until "the disk is full" 10 has_logged "cannot write to $work/limited: no space for all of it"
truncate -s 0 "$work/limited"
printf 'no end' | send "$url"
send "$url" <<<"last"
stop "$started"
check "a torn line is not ended" test "$(<"$work/limited")" = $'\nno end\nlast'

# A file on a full disk: said once, counted, and the server goes on.
start_server full-disk collect_server --file /dev/full
for _ in 1 2 3 4; do send "$url" <<<"korvain_table,table=t f=1i 1"; done
stop "$started"
check "full disk not said once" says_once "cannot write to /dev/full: No space left on device"
check "losses not counted" says_once "full-disk: 4 datagrams, 4 of them not kept"

# The same for the host's journal and summary, while it serves.
start_server proxy sim_proxy
start host demo_host --proxy "$url" --collect udp://127.0.0.1:9 --clock-speed 200 --rate 50 \
  --journal /dev/full --summary /dev/full
pause 1
kill -TERM "$started"
check "a full disk ends the host" wait "$started"
check "journal entries lost are not counted" grep -qE "journal entries lost: [1-9]" "$log"

# Nobody reads standard output: lines are dropped, and a signal still ends the host.
mkfifo "$work/pipe"
exec 4<>"$work/pipe"
timeout 0.5 cat /dev/zero >&4 || true # until it is full
start unread demo_host --proxy udp://127.0.0.1:9 --collect udp://127.0.0.1:9 --clock-speed 1000 \
  --timeout 1000 --journal "$work/unread-journal" 3>&4
wait_until "a report" 10 test -s "$work/unread-journal"
cat <&4 >"$work/unread" 3>&- &
check "the host hangs" ends_in_time "$started"
check "the host does not end well" wait "$started"
wait_until "the last line" 10 grep -qaE "messages that nobody read: [1-9]" "$work/unread"
exec 4>&-

# Without a standard output its lines do not go into the file that is opened in its place.
"$programs/collect_server" --file "$work/closed" >&- 3>&- &
wait_until "the file is there" 10 test -e "$work/closed"
stop "$!"
check "lines go into a file" test ! -s "$work/closed"

# Files and addresses that cannot be opened are named.
expect_named() {
  local errors status=0
  errors=$("$programs/$2" "${@:3}" 2>&1 >/dev/null) || status=$?
  check "${*:2}: status $status, said: $errors" test "$status" -eq 1
  check "${*:2}: not named: $errors" grep -qF "$1" <<<"$errors"
}
expect_named /no/such/file collect_server --file /no/such/file
expect_named /no/such/summary sim_proxy --summary /no/such/summary
expect_named /no/such/summary demo_host --summary /no/such/summary --proxy udp://127.0.0.1:9 \
  --collect udp://127.0.0.1:9
start_server taken sim_proxy
expect_named "$url" collect_server --port "${url##*:}"
