#!/usr/bin/env bash
# Runs the tests on a build that counts what runs, and prints the lines and branches of the library
# that they reach, by file: coverage.sh [percent of lines] [percent of branches]. Exit status
# non-zero below these bounds, 98 and 92 when not given.
#
# Left out, so that the figures are about the library's own decisions:
#   tests, examples, benchmarks   not the library
#   throw branches                the compiler adds one to each call that might throw; which calls
#                                 leave the library usable is the fault sweep's business
#   korvain_fuzzed_small          the library compiled once more, with other limits
set -euo pipefail
cd "$(dirname "$0")/.."

readonly least_lines=${1:-98} least_branches=${2:-92}
readonly build=build/coverage

scripts/install_deps.sh coverage
if ! command -v gcovr >/dev/null; then
  echo "gcovr is not to be had here: coverage not measured"
  exit 0
fi

log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! {
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=g++ \
    -DCMAKE_CXX_FLAGS=--coverage -DKORVAIN_STATISTIC_BUILD_EXAMPLES=OFF \
    -DKORVAIN_STATISTIC_BUILD_BENCHMARKS=OFF &&
    cmake --build "$build" --parallel "$(nproc)" &&
    find "$build" -name '*.gcda' -delete && # counts of an earlier run
    ctest --test-dir "$build" --output-on-failure --parallel "$(nproc)"
} >"$log" 2>&1; then
  cat "$log" >&2
  exit 1
fi

status=0
gcovr --root . --filter comm/ --filter src/ --exclude-throw-branches \
  --exclude-directories '.*korvain_fuzzed_small.*' \
  --fail-under-line "$least_lines" --fail-under-branch "$least_branches" --csv "$build/coverage.csv" \
  "$build" 2>"$log" || status=$?

# A line of the table: name, lines reached and there, branches reached and there.
awk -F, '
  function percent(part, whole) { return whole == 0 ? "" : sprintf("%.1f %%", 100 * part / whole) }
  function row(name, lines, reached, branches, taken) {
    printf "%-50s %5d/%-5d %8s %5d/%-5d %8s\n", name, reached, lines, percent(reached, lines),
      taken, branches, percent(taken, branches)
  }
  BEGIN { printf "%-50s %11s %8s %11s %8s\n", "file", "lines", "", "branches", "" }
  NR > 1 {
    row($1, $2, $3, $5, $6)
    lines += $2; reached += $3; branches += $5; taken += $6
  }
  END { row("all", lines, reached, branches, taken) }' "$build/coverage.csv"
grep -i error "$log" >&2 || true
exit "$status"
