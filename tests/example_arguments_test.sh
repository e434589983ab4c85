#!/usr/bin/env bash
# Bad arguments are refused with one line and exit status 2; --help is answered with 0.
# Usage: example_arguments_test.sh DIRECTORY-OF-THE-PROGRAMS
set -u
programs=$1
failures=0

expect_refusal() {
  local errors status
  errors=$("$programs/$1" "${@:2}" 2>&1 >/dev/null)
  status=$?
  if [ "$status" -ne 2 ] || [ "$(wc -l <<<"$errors")" -ne 1 ] || [ -z "$errors" ]; then
    printf '%s: status %d, said: %s\n' "$*" "$status" "$errors"
    failures=$((failures + 1))
  fi
}

for program in sim_proxy collect_server service_api report_check; do
  "$programs/$program" --help >/dev/null || failures=$((failures + 1))
  expect_refusal "$program" --no-such-option
done
for url in "" 127.0.0.1:9000 tcp://127.0.0.1:9000 udp://127.0.0.1 udp://127.0.0.1:0 \
  udp://127.0.0.1:65536 udp://127.0.0.256:9000 udp://localhost:9000 udp://127.0.0.1:9000x; do
  expect_refusal sim_proxy --listen "$url"
  expect_refusal collect_server --listen "$url"
  expect_refusal service_api --proxy "$url" --collect udp://127.0.0.1:9001
done
expect_refusal sim_proxy --listen udp://127.0.0.1:9000 --drop-rate 1.5
expect_refusal sim_proxy --listen udp://127.0.0.1:9000 --error-rate -0.1
expect_refusal sim_proxy --listen udp://127.0.0.1:9000 --delay gaussian
expect_refusal service_api --proxy udp://127.0.0.1:9000
expect_refusal service_api --proxy udp://127.0.0.1:9000 --collect udp://127.0.0.1:9001 --rate none

[ "$failures" -eq 0 ]
