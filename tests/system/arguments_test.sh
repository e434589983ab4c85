#!/usr/bin/env bash
# Bad arguments are refused with one line, which names the culprit, and exit status 2; --help is
# answered with 0 and shows defaults and units.
# Usage: arguments_test.sh DIRECTORY-OF-THE-PROGRAMS
set -u
programs=$1
checks=$(cd "$(dirname "${BASH_SOURCE[0]}")/checks" && pwd)
failures=0

complain() {
  printf '%s\n' "$*"
  failures=$((failures + 1))
}

# run PROGRAM ARGUMENTS...
run() {
  local directory=$programs
  if [[ $1 == *.py ]]; then directory=$checks; fi
  "$directory/$1" "${@:2}"
}

# expect_refusal CULPRIT PROGRAM ARGUMENTS...
expect_refusal() {
  local culprit=$1 errors status
  shift
  errors=$(run "$@" 2>&1 >/dev/null)
  status=$?
  [[ $status -eq 2 && $(wc -l <<<"$errors") -eq 1 && $errors == *"$culprit"* ]] ||
    complain "$*: status $status, said: $errors"
}

for program in sim_proxy collect_server demo_host report_check.py report_table.py \
  database_check.py series_table.py report_load; do
  help=$(run "$program" --help) || complain "$program --help: status $?"
  # Each option that takes a value has a default, says that it has none or is required.
  options=$(sed -n '/^[Oo]ption/,/^$/p' <<<"$help" | sed -z 's/\n \{8,\}/ /g' | grep -E '^ +-')
  undocumented=$(grep -E -- '--[a-z-]+ [A-Z]' <<<"$options" |
    grep -vE '=|none by default|REQUIRED|\(default: .+\)')
  [[ -n $options && -z $undocumented ]] || complain "$program --help, no default: $undocumented"
  expect_refusal --no-such-option "$program" --no-such-option
  expect_refusal stray-word "$program" stray-word
done
for url in "" 127.0.0.1:9000 tcp://127.0.0.1:9000 udp://127.0.0.1 udp://127.0.0.1:65536 \
  udp://127.0.0.256:9000 udp://localhost:9000 udp://127.0.0.1:9000x udp://127.0.0:9000 \
  udp://127.0.0.1:009000 udp://127.0.0.1:+9000 "udp://[::1]:9000" udp://:9000; do
  expect_refusal "'$url'" demo_host --proxy "$url" --collect udp://127.0.0.1:9001
done
host=(demo_host --proxy udp://127.0.0.1:9000 --collect udp://127.0.0.1:9001)
expect_refusal "'udp://127.0.0.1:0'" demo_host --proxy udp://127.0.0.1:0
expect_refusal --collect demo_host --proxy udp://127.0.0.1:9000
expect_refusal "given twice" "${host[@]}" --proxy udp://127.0.0.1:9000
for port in -1 65536 x ""; do
  expect_refusal --port sim_proxy --port "$port"
  expect_refusal --port collect_server --port "$port"
done
expect_refusal --rate "${host[@]}" --rate none
expect_refusal --rate "${host[@]}" --rate nan
expect_refusal --zones "${host[@]}" --zones 0
expect_refusal --judge-threshold "${host[@]}" --judge-threshold 59
expect_refusal --delay-mean sim_proxy --delay-mean 0
expect_refusal --fault sim_proxy --fault sulk
expect_refusal "--delay-tolerance: invalid float value: 'x'" report_check.py --delay-tolerance x
for tolerance in -1 10001 nan inf; do
  expect_refusal "--delay-tolerance: " report_check.py --delay-tolerance "$tolerance"
done
expect_refusal "cannot read /no/such/journal" report_check.py /no/such

[ "$failures" -eq 0 ]
