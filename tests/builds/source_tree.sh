#!/usr/bin/env bash
# A source tree as it comes out of a tarball: no repository, another owner, few packages.
# shellcheck source=tests/builds/checks.sh
. "$(dirname "$0")/checks.sh"

tree=$work/tree
absent=()
for package in GTest benchmark absl Boost prometheus-cpp CLI11 fmt; do
  absent+=("-DCMAKE_DISABLE_FIND_PACKAGE_$package=ON")
done

unpack() {
  mkdir "$tree" "$work/bin"
  tar -C "$source_dir" --exclude=./.git --exclude='./build*' -cf - . | tar -C "$tree" -xf -
  if [ "$(id -u)" -eq 0 ]; then chown -R 65534:65534 "$tree"; fi
  printf '#!/bin/sh\necho "$*" >>"%s/git_calls"\nexit 128\n' "$work" >"$work/bin/git"
  chmod +x "$work/bin/git"
}

test_format() { PATH=$work/bin:$PATH "$tree/scripts/test.sh" format; }

find_bad_format() {
  echo 'int  x ;' >"$tree/src/net/bad.cpp"
  fails test_format
}

call_no_git() { [ ! -e "$work/git_calls" ]; }

build_without_packages() {
  PATH=$work/bin:$PATH cmake -S "$tree" -B "$work/bare" "${absent[@]}" >"$work/configure.txt" 2>&1
  PATH=$work/bin:$PATH cmake --build "$work/bare" --parallel "$jobs"
  [ -e "$work/bare/libkorvain_statistic.a" ]
}

# In one line each.
say_what_is_left_out() {
  cat "$work/configure.txt"
  [ "$(grep -c 'left out' "$work/configure.txt")" -eq 3 ]
  none_of Warning "$work/configure.txt"
  grep -qx -- '-- tests left out: GoogleTest not found (libgtest-dev)' "$work/configure.txt"
  grep -qx -- '-- examples left out: CLI11, fmt not found (libcli11-dev, libfmt-dev)' \
    "$work/configure.txt"
  grep -q -- '-- benchmarks left out: Google Benchmark, .*(libbenchmark-dev, ' "$work/configure.txt"
}

# refuse PART PACKAGE
refuse() {
  fails cmake -S "$tree" -B "$work/refused-$1" "${absent[@]}" "-DKORVAIN_STATISTIC_BUILD_$1=ON" \
    >"$work/refused.txt" 2>&1
  tr -s ' \n' ' ' <"$work/refused.txt" | grep -e "_BUILD_$1 is ON, but .* not found (.*$2"
}

check "a tree without repository, of another owner, is unpacked" unpack
check "the library builds without the packages of the other parts" build_without_packages
check "what is left out is said, and what would bring it" say_what_is_left_out
check "tests asked for by name are an error then" refuse TESTS libgtest-dev
check "benchmarks asked for by name are an error then" refuse BENCHMARKS prometheus-cpp-dev
check "examples asked for by name are an error then" refuse EXAMPLES libfmt-dev
check "the format of its sources is checked" test_format
if command -v clang-format-14 >/dev/null; then
  check "a badly formatted source in it is found" find_bad_format
fi
check "git is not called" call_no_git
finish
