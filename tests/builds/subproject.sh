#!/usr/bin/env bash
# The library as a subdirectory of a project that hides its symbols; static in a unity build.
# shellcheck source=tests/builds/checks.sh
. "$(dirname "$0")/checks.sh"

build_host() {
  cmake -S "$source_dir/tests/builds/host" -B "$build" -DKORVAIN_STATISTIC_DIR="$source_dir" \
    -DKORVAIN_STATISTIC_WERROR=ON -DKORVAIN_STATISTIC_INSTALL=OFF -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 \
    "$@"
  cmake --build "$build" --parallel "$jobs"
}

# time_out PROGRAM COUNT
time_out() {
  "$build/$1" | tee "$work/count.txt"
  [ "$(cat "$work/count.txt")" = "$2" ]
}

add_the_library_alone() {
  cmake --build "$build" --target help >"$work/targets.txt"
  grep -qx '\.\.\. korvain_statistic' "$work/targets.txt"
  none_of '^\.\.\. (korvain_.*_(tests|bench)|korvain_headers_alone|service_api)$' "$work/targets.txt"
}

install_nothing() {
  DESTDIR=$work/destdir cmake --install "$build"
  [ ! -e "$work/destdir" ]
}

show_public_symbols_of_a_plugin() {
  list_exported "$build/libplugin.so"
  grep -q '^KorvainService::LatencyDataMgr::PushBack(' "$work/exported.txt"
  none_of '^KorvainService::detail' "$work/exported.txt"
}

check_kind() {
  local kind=$1
  shift
  build=$work/$kind
  check "$kind: builds in a project with hidden visibility" build_host "$@"
  check "$kind: a program gets the wall clock" time_out with_wall_clock 1
  check "$kind: a clock in an object file replaces it" time_out with_clock_object 0
  check "$kind: so does one in an archive, with -u" time_out with_clock_archive 0
  check "$kind: a shared object can contain or use it" time_out with_plugin 1
  check "$kind: the clock of a shared object replaces it there" time_out with_plugin_with_clock 0
}

check_kind static -DCMAKE_UNITY_BUILD=ON
check "static: its public symbols are visible, its private ones are not" \
  show_public_symbols_of_a_plugin
check "a parent project gets no tests, benchmarks and examples" add_the_library_alone
check "a parent project can switch installing off" install_nothing
check_kind shared -DBUILD_SHARED_LIBS=ON
finish
