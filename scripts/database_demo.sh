#!/usr/bin/env bash
# Plays a story with a real database on the loopback interface: two hosts report through two agents,
# proxies fail and heal, the agent in use is killed, the database is stopped for a while. Then reads
# everything back, compares it with what the hosts have journalled, and draws it.
set -euo pipefail

repository=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
readonly repository
readonly output=$repository/build/database_demo

# shellcheck source=../demo/story.sh
source "$repository/demo/story.sh"
# shellcheck source=../demo/run.sh
source "$repository/demo/run.sh"
# shellcheck source=../demo/database/servers.sh
source "$repository/demo/database/servers.sh"
# shellcheck source=../demo/database/story.sh
source "$repository/demo/database/story.sh"
# shellcheck source=../demo/database/results.sh
source "$repository/demo/database/results.sh"

usage() {
  cat <<END
usage: scripts/database_demo.sh [--verbose] [--programs DIRECTORY]
  --verbose             show all that goes into the log as well
  --programs DIRECTORY  play with the programs there instead of building them
Leaves build/database_demo/report.svg, report.png and demo.log.
Exit status: 0 all agrees, 1 something does not or a step has failed, 2 unusable arguments or files.
END
}

verbose=""
programs=""
while (($# > 0)); do
  case $1 in
    --help) usage && exit 0 ;;
    --verbose) verbose=--verbose && shift ;;
    --programs)
      (($# > 1)) || refuse "$1 needs a value"
      programs=$2
      shift 2
      ;;
    *) refuse "unknown argument $1 (see --help)" ;;
  esac
done

mkdir -p "$output"
log=$output/demo.log
prepare_run database

main() {
  open_log
  SECONDS=0
  say "A database, two agents as collect servers, four proxies, and two hosts whose clocks run" \
    "$clock_speed times as fast as real time, from the past to now."
  play_database_story
  say "Does the database hold what the hosts have journalled?"
  wait_for_the_last
  local status=0
  check_database | sed 's/^/check> /' >&3 || status=$?
  close_log
  draw_report
  printf 'The demo took %d s. The picture is %s/report.svg and .png, the log %s\n' \
    "$SECONDS" "$output" "$log"
  return "$status"
}

main
