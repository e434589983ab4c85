#!/usr/bin/env bash
# Builds the fuzz targets and runs each, one after the other, beginning with its corpus:
# fuzz.sh [seconds for each, 60] [target...]. Says how many inputs each has run, how many of them
# reached something new, and whether there was a finding, whose input is kept in
# build/fuzz/findings. Exit status non-zero after a finding.
# With "merge" for the seconds, each corpus becomes the few inputs that reach all that the corpus
# and the inputs of earlier runs reach.
set -euo pipefail
cd "$(dirname "$0")/.."

readonly seconds=${1:-60} build=build/fuzz max_length=600
shift || true
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(access_index operations operations_small packer pool_and_list urls)
fi

scripts/install_deps.sh fuzz
mkdir -p "$build"
if ! {
  cmake -S . -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DKORVAIN_STATISTIC_BUILD_FUZZERS=ON \
    -DKORVAIN_STATISTIC_WERROR=ON -DKORVAIN_STATISTIC_BUILD_TESTS=OFF \
    -DKORVAIN_STATISTIC_BUILD_BENCHMARKS=OFF -DKORVAIN_STATISTIC_BUILD_EXAMPLES=OFF &&
    cmake --build "$build" --parallel "$(nproc)" --target "${targets[@]/#/fuzz_}"
} >"$build/build.log" 2>&1; then
  cat "$build/build.log" >&2
  exit 1
fi

stat_of() { sed -n "s/^stat::$1: *//p" "$2"; }

# What is found beyond the corpus is kept from run to run, beside the build.
fuzz() {
  local name=$1 log=$build/$1.log found=$build/found/$1 options=() verdict="no finding"
  mkdir -p "$found" "$build/findings"
  if [ -f "fuzz/$name.dict" ]; then options+=("-dict=fuzz/$name.dict"); fi
  if ! "$build/fuzz/fuzz_$name" -max_total_time="$seconds" -max_len="$max_length" -timeout=20 \
    -print_final_stats=1 -artifact_prefix="$build/findings/$name-" \
    ${options[@]+"${options[@]}"} "$found" "fuzz/corpus/$name" >"$log" 2>&1; then
    verdict="FINDING, see $log"
    status=1
  fi
  printf '%-18s %10s inputs %8s new  %s\n' "$name" "$(stat_of number_of_executed_units "$log")" \
    "$(stat_of new_units_added "$log")" "$verdict"
}

# Inputs that differ only in how often they take a branch are kept where they are not too many.
merge() {
  local corpus=fuzz/corpus/$1 merged=$build/merged/$1 options=(-merge=1 -use_counters=0)
  case $1 in access_index | packer | pool_and_list) options=(-set_cover_merge=1) ;; esac
  rm -rf "$merged"
  mkdir -p "$merged" "$build/found/$1"
  "$build/fuzz/fuzz_$1" "${options[@]}" -max_len="$max_length" "$merged" "$corpus" \
    "$build/found/$1" >"$build/$1.log" 2>&1
  rm -rf "$corpus"
  cp -r "$merged" "$corpus"
  printf '%-18s %10s inputs\n' "$1" "$(find "$corpus" -type f | wc -l)"
}

status=0
for target in "${targets[@]}"; do
  if [ "$seconds" = merge ]; then merge "$target"; else fuzz "$target"; fi
done
exit "$status"
