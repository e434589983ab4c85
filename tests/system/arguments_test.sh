#!/usr/bin/env bash
# Bad arguments are refused with one line, which names the culprit, and exit status 2; --help is
# answered with 0 and shows defaults and units.
# Usage: arguments_test.sh DIRECTORY-OF-THE-PROGRAMS
set -u
programs=$1
failures=0

complain() {
  printf '%s\n' "$*"
  failures=$((failures + 1))
}

# expect_refusal CULPRIT PROGRAM ARGUMENTS...
expect_refusal() {
  local culprit=$1 errors status
  shift
  errors=$("$programs/$1" "${@:2}" 2>&1 >/dev/null)
  status=$?
  [[ $status -eq 2 && $(wc -l <<<"$errors") -eq 1 && $errors == *"$culprit"* ]] ||
    complain "$*: status $status, said: $errors"
}

for program in sim_proxy collect_server demo_host report_check database_check series_table \
  report_load; do
  help=$("$programs/$program" --help) || complain "$program --help: status $?"
  # Each option that takes a value has a default, says that it has none or is required.
  options=$(sed -n '/^Options/,/^$/p' <<<"$help" | sed -z 's/\n \{8,\}/ /g' | grep -E '^ +--')
  undocumented=$(grep -E -- '--[a-z-]+ (TEXT|INT|UINT|FLOAT)' <<<"$options" |
    grep -vE '=|none by default|REQUIRED')
  [[ -n $options && -z $undocumented ]] || complain "$program --help, no default: $undocumented"
  expect_refusal --no-such-option "$program" --no-such-option
  expect_refusal stray-word "$program" stray-word
done
for url in "" 127.0.0.1:9000 tcp://127.0.0.1:9000 udp://127.0.0.1 udp://127.0.0.1:65536 \
  udp://127.0.0.256:9000 udp://localhost:9000 udp://127.0.0.1:9000x; do
  expect_refusal "'$url'" sim_proxy --listen "$url"
  expect_refusal "'$url'" collect_server --listen "$url"
  expect_refusal "'$url'" demo_host --proxy "$url" --collect udp://127.0.0.1:9001
done
host=(demo_host --proxy udp://127.0.0.1:9000 --collect udp://127.0.0.1:9001)
expect_refusal "'udp://127.0.0.1:0'" demo_host --proxy udp://127.0.0.1:0
expect_refusal --collect demo_host --proxy udp://127.0.0.1:9000
expect_refusal "given twice" "${host[@]}" --proxy udp://127.0.0.1:9000
expect_refusal --rate "${host[@]}" --rate none
expect_refusal --rate "${host[@]}" --rate nan
expect_refusal --zones "${host[@]}" --zones 0
expect_refusal --tables "${host[@]}" --tables 257
expect_refusal --judge-threshold "${host[@]}" --judge-threshold 59
expect_refusal --datagram-size "${host[@]}" --datagram-size 65508
expect_refusal --delay-mean sim_proxy --delay-mean -1
expect_refusal --fault sim_proxy --fault sulk
expect_refusal --clock-speed report_check --clock-speed 0

[ "$failures" -eq 0 ]
