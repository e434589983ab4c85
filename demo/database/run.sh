# shellcheck shell=bash disable=SC2154
# How the scripts with a database begin and end: the programs, a folder for the files of the run.
# Functions to be sourced; they expect $repository, $output, $log, and $programs, which may be empty.

finish() {
  local status=$?
  trap - EXIT INT TERM PIPE
  kill_everything
  if ((status == 0 || status > 128)); then # over or interrupted
    rm -rf "$work"
  else
    printf 'The files of this run are kept in %s, the log is %s\n' "$work" "$log" >&2
  fi
  exit "$status"
}

prepare_run() {
  mkdir -p "$output"
  work=$(mktemp -d)
  trap finish EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
  trap 'exit 141' PIPE
  if [[ -z $programs ]]; then build_programs; fi
  : >"$log"
}

build_programs() {
  local build=$repository/build/demo
  "$repository/scripts/install_deps.sh" database
  echo "building, which takes about a minute the first time"
  {
    cmake -S "$repository" -B "$build" -DCMAKE_BUILD_TYPE=Release \
      -DKORVAIN_STATISTIC_BUILD_TESTS=OFF -DKORVAIN_STATISTIC_BUILD_BENCHMARKS=OFF \
      -DKORVAIN_STATISTIC_BUILD_EXAMPLES=ON &&
      cmake --build "$build" --parallel 2
  } >"$work/build.log" 2>&1 || {
    cat "$work/build.log" >&2
    fail "the build has failed"
  }
  programs=$build/demo
}
