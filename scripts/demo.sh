#!/usr/bin/env bash
# Builds the demo's programs, plays its story (demo/story.sh) on the loopback interface, and checks
# every report against what the programs have counted. Exit status 0 if all agrees, 1 if something
# does not, 2 for bad arguments.
set -euo pipefail

repository=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
readonly repository
readonly build=$repository/build/demo

usage() {
  cat <<END
usage: scripts/demo.sh [--verbose] [--programs DIRECTORY] [--log FILE]
  --verbose             show all that goes into the log as well
  --programs DIRECTORY  play with the programs there instead of building them
  --log FILE            default: build/demo/demo.log
END
}

verbose=""
programs=""
log=$build/demo.log
while (($# > 0)); do
  case $1 in
    --help) usage && exit 0 ;;
    --verbose) verbose=--verbose && shift ;;
    --programs | --log)
      (($# > 1)) || { echo "demo.sh: $1 needs a value" >&2 && exit 2; }
      if [[ $1 == --log ]]; then log=$2; else programs=$2; fi
      shift 2
      ;;
    *) echo "demo.sh: unknown argument $1 (see --help)" >&2 && exit 2 ;;
  esac
done

# shellcheck source=../demo/story.sh
source "$repository/demo/story.sh"

work=$(mktemp -d)
readonly work
build_group=""

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
trap finish EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 141' PIPE

run_build() {
  cmake -S "$repository" -B "$build" -DCMAKE_BUILD_TYPE=Release \
    -DKORVAIN_STATISTIC_BUILD_TESTS=OFF -DKORVAIN_STATISTIC_BUILD_BENCHMARKS=OFF \
    -DKORVAIN_STATISTIC_BUILD_EXAMPLES=ON &&
    cmake --build "$build" --parallel 2
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

# In a process group of its own, so that all of it can be ended.
build_programs() {
  local next_line=30
  "$repository/scripts/install_deps.sh" demo
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
  programs=$build/demo
}

main() {
  if [[ -z $programs ]]; then build_programs; fi
  : >"$log" || fail "cannot write the log $log"
  open_log
  SECONDS=0
  set_pace full
  say "Two collect servers, four proxies and a host whose clock runs $clock_speed times as fast as" \
    "real time: it reports every $((60 / clock_speed)) s, and takes a proxy out after $judge_times bad checks."
  play_story
  say "Do the reports agree with what each program has counted by itself?"
  local status=0
  check_story | sed 's/^/check> /' >&3 || status=$?
  close_log
  printf 'The demo took %d s. Everything that was said is in %s\n' "$SECONDS" "$log"
  return "$status"
}

main
