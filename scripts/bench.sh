#!/usr/bin/env bash
# Builds the benchmarks and prints their tables. Options:
#   --instructions   instructions, counted by callgrind, instead of times
#   --shared         with the library built as a shared one
#   anything else is handed to Google Benchmark
# Exit status 1: something was not measured, or a goal was missed that does not depend on how fast
# the machine is at the moment: of instructions or of memory.
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
  -DBUILD_SHARED_LIBS="$shared" -DKORVAIN_STATISTIC_BUILD_BENCHMARKS=ON \
  -DKORVAIN_STATISTIC_BUILD_TESTS=OFF \
  -DKORVAIN_STATISTIC_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" --parallel "$(nproc)" >/dev/null

status=0

# Leaves the instructions of one run of a probe in $collected.
collect() {
  local probe=$1
  shift
  collected=$(valgrind --tool=callgrind --callgrind-out-file=/dev/null \
    "$build/bench/korvain_statistic_$probe" "$@" 2>&1 |
    sed -nE 's/.*Collected : ([0-9]+).*/\1/p')
  if ! [[ $collected =~ ^[0-9]+$ ]]; then
    echo "callgrind did not count: $probe $*" >&2
    exit 1
  fi
}

# Leaves the instructions of `steps` steps in $counted: what that many more cost a run.
count_steps() {
  local steps=$1 few
  shift
  collect "$@" "$steps"
  few=$collected
  collect "$@" $((2 * steps))
  counted=$((collected - few))
}

# Ends a row that has shown a figure and its goal, given in hundredths.
end_row() {
  if [ "$1" -le "$2" ]; then
    echo
  else
    echo '  NOT MET'
    status=1
  fi
}

# What a tracker costs more for a request than another, or than none.
instruction_row() {
  local text=$1 goal=$2 tracker=$3 base=$4 steps=100000 count
  shift 4
  count_steps $steps instruction_probe "$tracker" "$@"
  count=$(((counted + steps / 2) / steps))
  count_steps $steps instruction_probe "$base" "$@"
  count=$((count - (counted + steps / 2) / steps))
  printf '%-58s %9d  <= %d' "$text" "$count" "$goal"
  end_row "$count" "$goal"
}

# What the same operation costs in two runs, each named by its arguments and the number of
# operations in a step; the goal of their ratio is in hundredths.
scaling_row() {
  local text=$1 goal=$2 steps=$3 small=$4 small_count=$5 large=$6 large_count=$7 few many ratio
  # shellcheck disable=SC2086  # the arguments are words
  count_steps "$steps" scaling_probe $small
  few=$counted
  # shellcheck disable=SC2086
  count_steps "$steps" scaling_probe $large
  many=$counted
  ratio=$((many * 100 * small_count / large_count / few))
  printf '%-58s %9d %9d %5d.%02dx  <= %d.%02dx' "$text" $((few / steps / small_count)) \
    $((many / steps / large_count)) $((ratio / 100)) $((ratio % 100)) $((goal / 100)) $((goal % 100))
  end_row "$ratio" "$goal"
}

instructions_per_request() {
  printf '%-58s %9s  %s\n' "instructions per request" count goal
  instruction_row "push + complete, 1 zone of 1 access" 250 own none random 1 1
  instruction_row "push + complete, 100 zones of 64 accesses" 255 own none random 100 64
  instruction_row "push + expire in the sweep, 1 zone of 1 access" 245 own none expire 1 1
  instruction_row "push + expire, 100 zones of 64 accesses" 245 own none expire 100 64
  instruction_row "more with a logger present, DEBUG off" 20 logged own random 1 1
}

instructions_as_things_grow() {
  local id varied
  printf '\n%-58s %9s %9s %9s  %s\n' "instructions per zone of 256 accesses" few many many/few goal
  scaling_row "Reset, ClearAccess, 256 x AddAccess: 10, 1,000 zones" 150 20 \
    "restart 10" 1 "restart 1000" 1
  scaling_row "judge: two cycles, clean-up of all due: 10, 100 pairs" 150 2 \
    "clean-up 10" 10 "clean-up 100" 100
  printf '\n%-58s %9s %9s %9s  %s\n' "instructions, by ids 2^1 to 2^24 apart, on average" \
    "1 apart" spaced ratio goal
  for id in "0 zone ids" "1 application ids" "2 both"; do
    varied=${id%% *}
    scaling_row "look-up of a record of 256: ${id#* }" 150 5000 \
      "look-up $varied 0 0" 1 "look-up $varied 1 24" 24
  done
  for id in "0 zone ids" "1 application ids" "2 both"; do
    varied=${id%% *}
    scaling_row "request to one of 64 pairs: ${id#* }" 120 5000 \
      "request $varied 0 0" 1 "request $varied 1 24" 24
  done
}

if [ "$instructions" = yes ]; then
  instructions_per_request
  instructions_as_things_grow
else
  "$build/bench/korvain_statistic_memory_probe" || status=1
  echo
  "$build/bench/korvain_statistic_probe_lengths" || status=1
  "$build/bench/korvain_statistic_bench" --benchmark_enable_random_interleaving=true \
    --benchmark_repetitions=5 --benchmark_min_time=0.03 ${options[@]+"${options[@]}"} || status=1
fi
exit "$status"
