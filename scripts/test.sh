#!/usr/bin/env bash
# Builds and tests everything: formatting, static analysis, release build, sanitizers, clang, other
# people's builds. The last line counts the tests. With arguments only the stages that they name:
#   scripts/test.sh [packages|format|release|tidy|asan|clang|shared|builds|coverage ...]
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=$(nproc)
passed=0
failed=0
ticker=

trap '[ -z "$ticker" ] || kill "$ticker" 2>/dev/null || true' EXIT

# with_progress LOG COMMAND...: the command's output goes to the log, and every 15 seconds the last
# line of it is shown.
with_progress() {
  local log=$1 status=0
  shift
  : >"$log"
  show_progress "$log" &
  ticker=$!
  "$@" >"$log" 2>&1 || status=$?
  kill "$ticker"
  wait "$ticker" 2>/dev/null || true
  ticker=
  return "$status"
}

show_progress() {
  local seconds=0
  while sleep 15 >/dev/null 2>&1; do # holds no output open when its parent has gone
    seconds=$((seconds + 15))
    printf '   ... %d s: %s\n' "$seconds" "$(tail -n 1 "$1")"
  done
}

# or_show LOG COMMAND...: with_progress, and the end if the command fails.
or_show() {
  with_progress "$@" || {
    cat "$1"
    exit 1
  }
}

sources() {
  find . \( -path './build*' -o -path './.?*' \) -prune -o \( -name '*.h' -o -name '*.cpp' \) \
    -print0
}

library_sources() { find comm src -name '*.cpp' -print0; }

install_packages() {
  mkdir -p build
  or_show build/packages.log scripts/install_deps.sh test
  cat build/packages.log
}

check_format() {
  if ! command -v clang-format-14 >/dev/null; then
    echo "clang-format-14 is not to be had here: formatting not checked"
    return
  fi
  sources | xargs -0 clang-format-14 --dry-run --Werror
}

check_tidy() {
  if ! command -v clang-tidy-14 >/dev/null; then
    echo "clang-tidy-14 is not to be had here: not analysed"
    return
  fi
  [ -e build/release/compile_commands.json ] || or_show build/configure.log cmake --preset release
  library_sources >build/tidy.list
  or_show build/tidy.log xargs -0 -a build/tidy.list -P "$jobs" -n 3 \
    clang-tidy-14 --quiet -p build/release --extra-arg=-std=c++17
}

# Takes the counts of tests over.
count() {
  passed=$((passed + $1))
  failed=$((failed + $2))
}

# Runs the tests of a build and adds to the counts.
run_tests() {
  local log=$1/ctest.log status=0 summary total bad
  with_progress "$log" ctest --test-dir "$1" --output-on-failure --parallel "$jobs" || status=$?
  summary=$(grep -E '^[0-9]+% tests passed' "$log") || {
    cat "$log"
    exit 1
  }
  bad=$(sed -E 's/.*, ([0-9]+) tests? failed out of.*/\1/' <<<"$summary")
  total=$(sed -E 's/.* out of ([0-9]+).*/\1/' <<<"$summary")
  echo "$summary"
  if [ "$status" -ne 0 ]; then cat "$log"; fi
  count $((total - bad)) "$bad"
}

configure_build_test() {
  mkdir -p "build/$1"
  or_show "build/$1/configure.log" cmake --preset "$1"
  or_show "build/$1/build.log" cmake --build "build/$1" --parallel "$jobs"
  run_tests "build/$1"
}

# Runs scripts that check how the project builds in other hands, and adds to the counts.
check_builds() {
  local name log summary
  mkdir -p build/checks
  for name in install_deps source_tree subproject package; do
    log=build/checks/$name.log
    with_progress "$log" "tests/builds/$name.sh" "build/checks/$name" || true
    cat "$log"
    summary=$(tail -n 1 "$log")
    if ! [[ $summary =~ ^([0-9]+)\ passed,\ ([0-9]+)\ failed$ ]]; then
      echo "tests/builds/$name.sh has not come to its end"
      exit 1
    fi
    count "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}"
  done
}

check_coverage() {
  if ! command -v gcovr >/dev/null; then
    echo "gcovr is not to be had here: coverage not measured"
    return
  fi
  local status=0
  with_progress build/coverage.log scripts/coverage.sh || status=$?
  cat build/coverage.log
  if [ "$status" -eq 0 ]; then count 1 0; else count 0 1; fi
}

# stage TITLE COMMAND...
stage() {
  local start=$SECONDS
  printf '\n== %s\n' "$1"
  shift
  "$@"
  printf '   (%d s)\n' $((SECONDS - start))
}

run_stage() {
  case "$1" in
    packages) stage "Packages that the tests need" install_packages ;;
    format) stage "Formatting, clang-format 14" check_format ;;
    release) stage "Release build, g++, warnings are errors; its tests" configure_build_test release ;;
    tidy) stage "Static analysis of the library, clang-tidy 14" check_tidy ;;
    asan)
      stage "AddressSanitizer and UndefinedBehaviorSanitizer: build and tests" \
        configure_build_test asan
      ;;
    clang)
      stage "Debug build by clang, warnings are errors; its tests, and the fuzzers' corpora" \
        configure_build_test clang
      ;;
    shared) stage "Release build with a shared library; its tests" configure_build_test shared ;;
    builds)
      stage "Other people's builds: few packages, subdirectory, unity, installed" check_builds
      ;;
    coverage) stage "Lines and branches that the tests reach" check_coverage ;;
    *)
      echo "There is no stage $1" >&2
      exit 2
      ;;
  esac
}

[ $# -gt 0 ] || set -- packages format release tidy asan clang shared builds coverage
for name in "$@"; do run_stage "$name"; done

printf '\nAll of it took %d s.\n%d passed, %d failed\n' "$SECONDS" "$passed" "$failed"
[ "$failed" -eq 0 ]
