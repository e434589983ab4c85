#!/usr/bin/env bash
# Plays a story with a real database on the loopback interface: two hosts report through two agents,
# proxies fail and heal, the agent in use is killed, the database is stopped for a while. Then reads
# everything back, compares it with what the hosts have journalled, and draws it. Exit status 0 if
# all agrees, 1 if something does not, 2 for bad arguments.
set -euo pipefail

repository=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
readonly repository
readonly output=$repository/build/database_demo

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
# shellcheck source=../demo/database/run.sh
source "$repository/demo/database/run.sh"
# shellcheck source=../demo/database/results.sh
source "$repository/demo/database/results.sh"

log=$output/demo.log
prepare_run

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
