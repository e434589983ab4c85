#!/usr/bin/env bash
# Builds and tests everything: formatting, static analysis, release build, sanitizers, clang,
# installed packages. The last line counts the tests.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_deps.sh test
jobs=$(nproc)
passed=0
failed=0

step() { printf '\n== %s\n' "$*"; }

check_format() {
  if ! command -v clang-format-14 >/dev/null; then
    echo "clang-format-14 is not to be had here: formatting not checked"
    return
  fi
  git ls-files '*.h' '*.cpp' | xargs clang-format-14 --dry-run --Werror
}

check_tidy() {
  if ! command -v clang-tidy-14 >/dev/null; then
    echo "clang-tidy-14 is not to be had here: not analysed"
    return
  fi
  git ls-files 'comm/*.cpp' 'src/*.cpp' |
    xargs -P "$jobs" -n 3 clang-tidy-14 --quiet -p build/release --extra-arg=-std=c++17 2>/dev/null
}

# Runs the tests of a build and adds to the counts.
run_tests() {
  local log=$1/ctest.log status=0
  ctest --test-dir "$1" --output-on-failure --parallel "$jobs" >"$log" 2>&1 || status=$?
  local summary total bad
  summary=$(grep -E '^[0-9]+% tests passed' "$log") || { cat "$log"; exit 1; }
  bad=$(sed -E 's/.*, ([0-9]+) tests? failed out of.*/\1/' <<<"$summary")
  total=$(sed -E 's/.* out of ([0-9]+).*/\1/' <<<"$summary")
  echo "$summary"
  if [ "$status" -ne 0 ]; then cat "$log"; fi
  passed=$((passed + total - bad))
  failed=$((failed + bad))
}

configure_build_test() {
  local preset=$1
  shift
  cmake --preset "$preset" "$@" >/dev/null
  cmake --build "build/$preset" --parallel "$jobs" >"build/$preset/build.log" 2>&1 || {
    cat "build/$preset/build.log"
    exit 1
  }
  run_tests "build/$preset"
}

# Installs the library and lets a project of its own find it, by CMake and by pkg-config.
check_package() {
  local shared=$1 dir=build/package-$1
  rm -rf "$dir"
  cmake -S . -B "$dir/build" -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS="$shared" \
    -DKORVAIN_STATISTIC_BUILD_TESTS=OFF -DKORVAIN_STATISTIC_BUILD_BENCHMARKS=OFF \
    -DKORVAIN_STATISTIC_BUILD_EXAMPLES=OFF -DCMAKE_INSTALL_PREFIX="$PWD/$dir/prefix" >/dev/null
  cmake --build "$dir/build" --parallel "$jobs" >/dev/null
  cmake --install "$dir/build" >/dev/null
  cmake -S tests/consumer -B "$dir/consumer" -DCMAKE_PREFIX_PATH="$PWD/$dir/prefix" >/dev/null
  cmake --build "$dir/consumer" >/dev/null
  "$dir/consumer/consumer"
  local pc_dir libdir
  pc_dir=$(dirname "$(find "$dir/prefix" -name korvain_statistic.pc)")
  libdir=$(PKG_CONFIG_PATH=$pc_dir pkg-config --variable=libdir korvain_statistic)
  # shellcheck disable=SC2046  # the flags are words
  g++ -std=c++17 tests/consumer/consumer.cpp -o "$dir/consumer_pc" \
    $(PKG_CONFIG_PATH=$pc_dir pkg-config --cflags --libs korvain_statistic korvain_line_protocol)
  LD_LIBRARY_PATH=$libdir "$dir/consumer_pc"
  passed=$((passed + 2))
}

step "Formatting"
check_format
step "Release build, g++, warnings are errors"
configure_build_test release
step "Static analysis"
check_tidy
step "AddressSanitizer and UndefinedBehaviorSanitizer"
configure_build_test asan
step "Debug build, clang"
configure_build_test clang
step "Shared library"
configure_build_test shared
step "Installed package, static and shared"
check_package OFF
check_package ON

printf '\n%d passed, %d failed\n' "$passed" "$failed"
[ "$failed" -eq 0 ]
