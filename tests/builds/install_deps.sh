#!/usr/bin/env bash
# What scripts/install_deps.sh makes of machines that lack something, with a package manager that
# only pretends.
# shellcheck source=tests/builds/checks.sh
. "$(dirname "$0")/checks.sh"

# pretend COMMAND TEXT: the command's body, in place of the real one.
pretend() {
  mkdir -p "$work/bin"
  printf '#!/bin/bash\n%s\n' "$2" >"$work/bin/$1"
  chmod +x "$work/bin/$1"
}

# machine USER_ID MISSING REFUSED: packages that match MISSING are not installed, and those that
# match REFUSED cannot be.
machine() {
  : >"$work/calls"
  pretend id "echo $1"
  pretend sudo 'exit 1'
  pretend dpkg-query "[[ \${*: -1} =~ ^($2)\$ ]] || echo -n installed"
  pretend apt-cache 'exit 0'
  pretend apt-get "echo \"\$*\" >>'$work/calls'
    for word in \"\$@\"; do if [[ \$word =~ ^($3)\$ ]]; then exit 100; fi; done"
}

run() { PATH=$work/bin:$PATH "$source_dir/scripts/install_deps.sh" test </dev/null; }

succeed_with_all() {
  machine 0 nothing nothing
  run
  [ ! -s "$work/calls" ]
}

install_what_is_missing() {
  machine 0 'cmake|libgtest-dev|clang-tidy-14' nothing
  run
  grep -q 'install .*cmake libgtest-dev' "$work/calls"
  grep -q 'install .*clang-tidy-14' "$work/calls"
}

do_without_optional() {
  machine "$1" 'clang-format-14|clang-tidy-14' "$2"
  run >"$work/run.txt" 2>&1
  grep -q 'clang-format-14' "$work/run.txt"
}

install_the_other_optional() {
  machine 0 'clang-format-14|clang-tidy-14' clang-format-14
  run
  grep -q 'install .*clang-tidy-14' "$work/calls"
}

fail_without_needed() {
  machine "$1" 'libgtest-dev|clang-tidy-14' "$2"
  fails run >"$work/run.txt" 2>&1
  cat "$work/run.txt"
  grep -q libgtest-dev "$work/run.txt"
}

check "nothing is installed where nothing is missing" succeed_with_all
check "what is missing is installed" install_what_is_missing
check "root does without an optional package that cannot be had" \
  do_without_optional 0 'clang-format-14|clang-tidy-14'
check "root does without optional packages where no list can be fetched" \
  do_without_optional 0 'update|install'
check "one optional package that cannot be had does not keep out the other" \
  install_the_other_optional
check "others do without optional packages" do_without_optional 1000 nothing
check "a needed package that cannot be had is an error for root" fail_without_needed 0 libgtest-dev
check "a needed package is asked for from others" fail_without_needed 1000 nothing
finish
