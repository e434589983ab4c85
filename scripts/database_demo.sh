#!/usr/bin/env bash
# Plays a story with a real database on the loopback interface: two hosts report through two agents,
# proxies fail and heal, the agent in use is killed, the database is stopped for a while. Then reads
# everything back, compares it with what the hosts have journalled, and draws it. Exit status 0 if
# all agrees, 1 if something does not, 2 for bad arguments.
set -euo pipefail

repository=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
readonly repository
readonly output=$repository/build/database_demo
readonly build=$repository/build/demo

usage() {
  cat <<END
usage: scripts/database_demo.sh [--verbose] [--programs DIRECTORY]
  --verbose             show all that goes into the log as well
  --programs DIRECTORY  play with the programs there instead of building them
Leaves build/database_demo/report.svg, report.png and demo.log.
END
}

verbose=""
programs=""
while (($# > 0)); do
  case $1 in
    --help) usage && exit 0 ;;
    --verbose) verbose=--verbose && shift ;;
    --programs)
      (($# > 1)) || { echo "database_demo.sh: $1 needs a value" >&2 && exit 2; }
      programs=$2
      shift 2
      ;;
    *) echo "database_demo.sh: unknown argument $1 (see --help)" >&2 && exit 2 ;;
  esac
done

# shellcheck source=../demo/story.sh
source "$repository/demo/story.sh"
# shellcheck source=../demo/database/servers.sh
source "$repository/demo/database/servers.sh"
# shellcheck source=../demo/database/story.sh
source "$repository/demo/database/story.sh"
# shellcheck source=../demo/database/results.sh
source "$repository/demo/database/results.sh"

mkdir -p "$output"
work=$(mktemp -d)
readonly work
log=$output/demo.log

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
trap finish EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 141' PIPE

build_programs() {
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

main() {
  if [[ -z $programs ]]; then build_programs; fi
  : >"$log"
  SECONDS=0
  say "A database, two agents as collect servers, four proxies, and two hosts whose clocks run" \
    "$clock_speed times as fast as real time, from the past to now."
  play_database_story
  say "Does the database hold what the hosts have journalled?"
  read_back
  local status=0
  check_database | tee -a "$log" || status=$?
  draw_report
  printf 'The demo took %d s. The picture is %s/report.svg and .png, the log %s\n' \
    "$SECONDS" "$output" "$log"
  return "$status"
}

main
