#!/usr/bin/env bash
# Builds the demo's programs, plays its story (demo/story.sh) on the loopback interface, and checks
# every report against what the programs have counted.
set -euo pipefail

repository=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
readonly repository

# shellcheck source=../demo/story.sh
source "$repository/demo/story.sh"
# shellcheck source=../demo/run.sh
source "$repository/demo/run.sh"

usage() {
  cat <<END
usage: scripts/demo.sh [--verbose] [--programs DIRECTORY] [--log FILE]
  --verbose             show all that goes into the log as well
  --programs DIRECTORY  play with the programs there instead of building them
  --log FILE            default: build/demo/demo.log
Exit status: 0 all agrees, 1 something does not or a step has failed, 2 unusable arguments or files.
END
}

verbose=""
programs=""
log=$repository/build/demo/demo.log
while (($# > 0)); do
  case $1 in
    --help) usage && exit 0 ;;
    --verbose) verbose=--verbose && shift ;;
    --programs | --log)
      (($# > 1)) || refuse "$1 needs a value"
      if [[ $1 == --log ]]; then log=$2; else programs=$2; fi
      shift 2
      ;;
    *) refuse "unknown argument $1 (see --help)" ;;
  esac
done

prepare_run demo

main() {
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
