#!/usr/bin/env bash
# The demo's command: its arguments, and that Ctrl-C leaves no process and no temporary folder.
# Usage: demo_script_test.sh DIRECTORY-OF-THE-PROGRAMS
set -uo pipefail
programs=$1
demo=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)/scripts/demo.sh
work=$(mktemp -d)
failures=0
trap 'rm -rf "$work"' EXIT

complain() {
  printf '%s\n' "$*"
  failures=$((failures + 1))
}

expect() {
  local expected=$1 text=$2 output status
  output=$("$demo" "${@:3}" 2>&1)
  status=$?
  [[ $status -eq $expected && $output == *"$text"* ]] ||
    complain "demo.sh ${*:3}: status $status, said: $output"
}
expect 0 "usage: scripts/demo.sh" --help
expect 2 "unknown argument --nonsense" --nonsense
expect 2 "--programs needs a value" --programs
expect 2 "/no/such holds no programs" --programs /no/such
expect 2 "cannot write the log /no/such/log" --programs "$programs" --log /no/such/log

# Processes whose command line has the folder of this test in it.
left_over() { grep -lF -f <(echo "$work") /proc/[0-9]*/cmdline 2>/dev/null; }

# interrupt WHEN SIGNAL TARGET: with a process group of its own, like on a terminal. The target is
# the group, as for Ctrl-C, or the script alone.
interrupt() {
  local when=$1 signal=$2 target=$3 pid status i
  mkdir -p "$work/tmp"
  set -m
  TMPDIR=$work/tmp "$demo" --programs "$programs" --log "$work/log" >"$work/output" 2>&1 &
  pid=$!
  set +m
  for ((i = 0; i < 150; ++i)); do
    grep -q "$when" "$work/output" && break
    sleep 0.1
  done
  ((i < 150)) || complain "has not said in time: $when"
  if [[ $target == group ]]; then kill "-$signal" -- "-$pid"; else kill "-$signal" "$pid"; fi
  wait "$pid"
  status=$?
  ((status > 128)) || complain "$signal to the $target: status $status, $(cat "$work/output")"
  sleep 0.3
  [[ -z $(ls -A "$work/tmp") ]] || complain "$signal to the $target leaves $(ls "$work/tmp")"
  [[ -z $(left_over) ]] || complain "$signal to the $target leaves processes: $(left_over)"
}
interrupt "Two collect servers" INT group
interrupt " 2 s: " INT group
interrupt " 1 s: " TERM script

((failures == 0))
