# shellcheck shell=bash disable=SC2154
# How the scripts that play something begin and end: their programs, a folder for the files of a
# run, and that they leave nothing behind. To be sourced after story.sh. Expects $repository, the
# file $log, and $programs, which may be empty.

refuse() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 2
}

finish() {
  local status=$?
  trap - EXIT INT TERM PIPE
  if [[ -n $build_group ]]; then # compilers remove their temporary files when they may
    kill -TERM -- "-$build_group" 2>/dev/null || true
    wait "$build_group" 2>/dev/null || true
  fi
  kill_everything
  if ((status == 0 || status > 128)); then # over or interrupted
    rm -rf "$work"
  else
    printf 'The files of this run are kept in %s, the log is %s\n' "$work" "$log" >&2
  fi
  exit "$status"
}

# prepare_run WHAT: builds the programs, with what scripts/install_deps.sh installs for that, unless
# they are given. Leaves $work, and an empty log.
prepare_run() {
  [[ -z $programs || -x $programs/demo_host ]] || refuse "$programs holds no programs of the demo"
  mkdir -p "$repository/build/demo"
  : 2>/dev/null >"$log" || refuse "cannot write the log $log"
  work=$(mktemp -d)
  build_group=""
  trap finish EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
  trap 'exit 141' PIPE
  if [[ -z $programs ]]; then build_programs "$1"; fi
}

# In a process group of its own, so that all of it can be ended.
build_programs() {
  local next_line=30
  "$repository/scripts/install_deps.sh" "$1"
  SECONDS=0
  : >"$work/build.log"
  set -m
  run_build >"$work/build.log" 2>&1 &
  build_group=$!
  set +m
  while kill -0 "$build_group" 2>/dev/null; do
    show_build
    sleep 0.2
  done
  if [ -t 1 ]; then printf '\r\033[K'; fi
  wait "$build_group" || {
    cat "$work/build.log" >&2
    fail "the build has failed"
  }
  build_group=""
  printf 'built in %d s\n' "$SECONDS"
  programs=$repository/build/demo/demo
}

run_build() {
  cmake -S "$repository" -B "$repository/build/demo" -DCMAKE_BUILD_TYPE=Release \
    -DKORVAIN_STATISTIC_BUILD_TESTS=OFF -DKORVAIN_STATISTIC_BUILD_BENCHMARKS=OFF \
    -DKORVAIN_STATISTIC_BUILD_EXAMPLES=ON &&
    cmake --build "$repository/build/demo" --parallel 2
}

# A line that moves on a terminal, otherwise one every 30 seconds.
show_build() {
  local percent
  percent=$(grep -o '^\[ *[0-9]*%\]' "$work/build.log" | tail -n 1 | tr -dc 0-9) || true
  if [ -t 1 ]; then
    printf '\r\033[Kbuilding: %s %% after %d s' "${percent:-0}" "$SECONDS"
  elif ((SECONDS >= next_line)); then
    printf 'building: %s %% after %d s\n' "${percent:-0}" "$SECONDS"
    next_line=$((SECONDS + 30))
  fi
}
