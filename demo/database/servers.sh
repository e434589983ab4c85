# shellcheck shell=bash disable=SC2154
# A database and agents in front of it, as functions to be sourced. They need those of
# demo/story.sh, and leave all that they write in $work.

# Leaves in $port one that nobody on this machine receives on. Below the range from which the kernel
# takes ports for those who do not ask for one.
find_free_port() {
  local hex
  while :; do
    port=$((20000 + RANDOM % 10000))
    hex=$(printf ':%04X ' "$port")
    if ! grep -qF "$hex" /proc/net/tcp /proc/net/udp; then return; fi
  done
}

# ask URL [CURL-ARGUMENTS...]: what an HTTP server answers.
ask() { curl --silent --show-error --fail --noproxy '*' --max-time 20 "$@"; }
is_answering() { ask "$1/health" >/dev/null 2>&1; }

# Leaves the process id in $database_pid. Without the offset the database would hold back what is
# younger than 30 s from queries.
run_database() {
  victoria-metrics -storageDataPath="$work/database" -httpListenAddr="${database_url#http://}" \
    -search.latencyOffset=1ms >>"$work/database.log" 2>&1 3>&- &
  database_pid=$!
  wait_until "the database answers" 15 is_answering "$database_url"
}

start_database() {
  find_free_port
  database_url=http://127.0.0.1:$port
  run_database
}

# An agent takes reports by UDP, where $url says, passes them on to the database, and keeps on disk
# what the database does not take. It gathers values before it passes them on: a kill loses what it
# took in that time, which is short here, as the hosts' clocks are fast.
start_agent() {
  local name=$1 http
  find_free_port
  http=127.0.0.1:$port
  find_free_port
  url=udp://127.0.0.1:$port
  vmagent -httpListenAddr="$http" -influxListenAddr="127.0.0.1:$port" \
    -remoteWrite.url="$database_url/api/v1/write" -remoteWrite.tmpDataPath="$work/$name" \
    -remoteWrite.flushInterval=200ms >>"$work/$name.log" 2>&1 3>&- &
  started=$!
  agent_url=http://$http
  wait_until "$name answers" 15 is_answering "$agent_url"
}

# The sum of a metric of an agent.
metric_of() {
  ask "$1/metrics" | awk -v name="$2" 'index($1, name) == 1 { sum += $NF } END { printf "%d\n", sum }'
}
