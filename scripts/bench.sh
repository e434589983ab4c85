#!/usr/bin/env bash
# Builds the benchmarks and prints their tables. Options:
#   --instructions   instructions per request, counted by callgrind, instead of times
#   --shared         with the library built as a shared one
#   anything else is handed to Google Benchmark
set -euo pipefail
cd "$(dirname "$0")/.."

shared=OFF
instructions=no
options=()
for option in "$@"; do
  case "$option" in
    --instructions) instructions=yes ;;
    --shared) shared=ON ;;
    *) options+=("$option") ;;
  esac
done

scripts/install_deps.sh bench
build=build/bench-shared-$shared
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
  -DBUILD_SHARED_LIBS="$shared" -DKORVAIN_STATISTIC_BUILD_TESTS=OFF \
  -DKORVAIN_STATISTIC_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" --parallel "$(nproc)" >/dev/null

# Leaves the instructions of one run in $collected.
collect() {
  collected=$(valgrind --tool=callgrind --callgrind-out-file=/dev/null \
    "$build/bench/korvain_statistic_instruction_probe" "$@" 2>&1 |
    sed -nE 's/.*Collected : ([0-9]+).*/\1/p')
  if ! [[ $collected =~ ^[0-9]+$ ]]; then
    echo "callgrind did not count: $*" >&2
    exit 1
  fi
}

# Leaves the instructions per request in $per_request: what 100,000 requests more cost.
count_per_request() {
  collect "$@" 100000
  local few=$collected
  collect "$@" 200000
  per_request=$(((collected - few + 50000) / 100000))
}

# One row: what a tracker costs more than another, or than none.
instruction_row() {
  local text=$1 goal=$2 tracker=$3 base=$4 count
  shift 4
  count_per_request "$tracker" "$@"
  count=$per_request
  count_per_request "$base" "$@"
  count=$((count - per_request))
  printf '%-52s %8d  <= %d%s\n' "$text" "$count" "$goal" \
    "$([ "$count" -le "$goal" ] || echo '  NOT MET')"
}

if [ "$instructions" = yes ]; then
  printf '%-52s %8s  %s\n' "instructions per request" count goal
  instruction_row "push + complete, 1 zone of 1 access" 250 own none random 1 1
  instruction_row "push + complete, 100 zones of 64 accesses" 255 own none random 100 64
  instruction_row "push + expire in the sweep, 1 zone of 1 access" 245 own none expire 1 1
  instruction_row "push + expire, 100 zones of 64 accesses" 245 own none expire 100 64
  instruction_row "more with a logger present, DEBUG off" 20 logged own random 1 1
  exit 0
fi

"$build/bench/korvain_statistic_memory_probe"
"$build/bench/korvain_statistic_bench" --benchmark_enable_random_interleaving=true \
  --benchmark_repetitions=5 --benchmark_min_time=0.03 ${options[@]+"${options[@]}"}
