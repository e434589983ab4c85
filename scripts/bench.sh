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

# Instructions of one run.
collected() {
  valgrind --tool=callgrind --callgrind-out-file=/dev/null \
    "$build/bench/korvain_statistic_instruction_probe" "$@" 2>&1 |
    sed -nE 's/.*Collected : ([0-9]+).*/\1/p'
}

# Instructions per request: of 100,000 requests more, without what no tracker costs.
per_request() {
  local tracker=$1 workload=$2 zones=$3 per_zone=$4 few many
  few=$(collected "$tracker" "$workload" "$zones" "$per_zone" 100000)
  many=$(collected "$tracker" "$workload" "$zones" "$per_zone" 200000)
  echo $(((many - few + 50000) / 100000))
}

instruction_row() {
  local text=$1 goal=$2 tracker=$3 base=$4
  shift 4
  local count=$(($(per_request "$tracker" "$@") - $(per_request "$base" "$@")))
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

echo "Resident memory of a latency manager (goals: 16 KB idle, 80 KB with 1,000 and 7,168 KB with"
echo "100,000 requests in flight):"
"$build/bench/korvain_statistic_memory_probe"
"$build/bench/korvain_statistic_bench" --benchmark_enable_random_interleaving=true \
  --benchmark_repetitions=5 --benchmark_min_time=0.03 ${options[@]+"${options[@]}"}
