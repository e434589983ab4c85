#!/usr/bin/env bash
# Measures what one agent in front of a database takes on this machine without a loss: the burst of
# full reports, unpaced and paced, and the reports of more and more service APIs. Loopback only.
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

usage() {
  cat <<END
usage: scripts/collect_load.sh [--programs DIRECTORY] [SERVICES...]
  --programs DIRECTORY  use the programs there instead of building them
  SERVICES              numbers of service APIs to play; default: 2000 4000 8000 16000
END
}

programs=""
services=()
while (($# > 0)); do
  case $1 in
    --help) usage && exit 0 ;;
    --programs)
      (($# > 1)) || refuse "$1 needs a value"
      programs=$2
      shift 2
      ;;
    *)
      [[ $1 =~ ^[1-9][0-9]*$ ]] || refuse "unknown argument $1 (see --help)"
      services+=("$1") && shift
      ;;
  esac
done
if ((${#services[@]} == 0)); then services=(2000 4000 8000 16000); fi

mkdir -p "$output"
log=$output/load.log
prepare_run database

lines_taken() { metric_of "$agent_url" 'vm_protoparser_rows_read_total{type="influx"}'; }

# Hundredths of a second of a processor that a process has used; 0 for one that has ended.
cpu_used() { if [ -e "/proc/$1" ]; then awk '{ print $14 + $15 }' "/proc/$1/stat"; else echo 0; fi; }

# loss SENT TAKEN: in percent.
loss() { awk -v sent="$1" -v taken="$2" 'BEGIN { printf "%.1f", sent ? 100 * (sent - taken) / sent : 0 }'; }

number_in() { grep -o "\"$1\":[0-9]*" "$work/sent" | cut -d : -f 2; }

# burst DATAGRAMS-A-MS DATAGRAM-SIZE: a service API reports 8 full zones at once, some times over.
burst() {
  local i before sent=0 taken reports=0
  before=$(lines_taken)
  for i in 1 2 3; do
    "$programs/report_load" --collect "$agent_udp" --services 1 --period 1 --duration 1 --zones 8 \
      --tables 256 --accesses 256 --datagrams-per-ms "$1" --datagram-size "$2" >"$work/sent"
    sent=$((sent + $(number_in lines)))
    reports=$((reports + $(number_in reports)))
  done
  sleep 1
  taken=$(($(lines_taken) - before))
  printf '%17d %16d %9d %9d %8d %7s\n' "$1" "$2" "$reports" "$sent" "$taken" "$(loss "$sent" "$taken")"
}

# play COUNT: so many service APIs for a part of their period.
play() {
  local before agent_before database_before seconds=8 lines taken
  before=$(lines_taken)
  agent_before=$(cpu_used "$agent_pid") database_before=$(cpu_used "$database_pid")
  "$programs/report_load" --collect "$agent_udp" --services "$1" --duration "$seconds" >"$work/sent"
  sleep 1
  lines=$(number_in lines)
  taken=$(($(lines_taken) - before))
  printf '%8d %9d %11d %9d %9d %8d %7s %8d %11d\n' "$1" $(($(number_in reports) / seconds)) \
    $(($(number_in datagrams) / seconds)) $(($(number_in bytes) / seconds)) "$lines" "$taken" \
    "$(loss "$lines" "$taken")" $((($(cpu_used "$agent_pid") - agent_before) / seconds)) \
    $((($(cpu_used "$database_pid") - database_before) / seconds))
}

main() {
  local count
  start_database
  start_agent collect-1
  agent_pid=$started agent_udp=$url
  printf 'A service API reports 8 zones of 256 tables and 256 accesses at once:\n'
  printf 'datagrams a ms at most   bytes at most   reports lines sent    taken  loss %%\n'
  burst 100000 1400
  burst 8 1400
  burst 4 1400
  burst 100000 60000
  burst 1 60000
  printf '\nService APIs with 2 zones of 8 tables and 16 accesses that report every 60 s, %s\n' \
    "spread over that time:"
  printf 'services reports/s datagrams/s   bytes/s     lines    taken  loss %%  agent %% database %%\n'
  for count in "${services[@]}"; do play "$count"; done
  printf 'The same while the database is stopped and the agent keeps all on disk:\n'
  stop "$database_pid"
  for count in "${services[@]}"; do play "$count"; done
}

main
