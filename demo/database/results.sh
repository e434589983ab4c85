# shellcheck shell=bash disable=SC2154
# Reads back what the database holds, has it checked, and draws it: functions to be sourced.

# Everything, and the sums at the end of the story by the query that the documentation shows.
read_back() {
  local time_ns
  time_ns=$(tail -q -n 1 "$work"/journal-* | grep -o '"time_ns":[0-9]*' | sort | tail -n 1)
  time_ns=${time_ns#*:}
  ask "$database_url/internal/force_flush"
  ask --get "$database_url/api/v1/export" --data-urlencode 'match[]={__name__=~"korvain_.*"}' \
    --output "$work/export"
  ask --get "$database_url/api/v1/query" --data-urlencode "time=$((time_ns / 1000000000 + 1))" \
    --data-urlencode "query@$repository/demo/database/sum_of_instances.query" --output "$work/sums"
}

# An agent tries again after 2, 4, 8 s what the database did not take, and does not count it as
# pending meanwhile. So the answer is read back until it agrees, as long as it still may.
wait_for_the_last() {
  local tries=12
  while read_back && ! check_database >/dev/null && ((tries-- > 0)); do sleep 1; done
}

check_database() { "$checks/database_check.py" "$work"; }

# query_table NAME QUERY: a column for each proxy.
query_table() {
  ask --get "$database_url/api/v1/query_range" --data-urlencode "query=$2" \
    --data-urlencode "start=$first" --data-urlencode "end=$last" --data-urlencode "step=10s" |
    "$checks/series_table.py" --column proxy-1 --column proxy-2 --column proxy-3 \
      --column proxy-4 >"$work/$1"
}

# latest COUNTER: of each series the last report's value, as long as it is the last.
latest() { echo "last_over_time(korvain_access_$1[70s])"; }

query_tables() {
  local samples
  samples=$(latest delay_samples)
  query_table requests "sum by (server) ($(latest requests_per_min))"
  query_table time_outs "sum by (server) ($(latest timeouts_per_min))"
  query_table system_errors "sum by (server) ($(latest proxy_system_errors_per_min))"
  query_table delay "sum by (server) ($(latest delay_ms) * $samples) / sum by (server) ($samples)"
  query_table in_service "min by (server) ($(latest in_service))"
}

draw_report() {
  local marks type
  # shellcheck source=/dev/null
  source "$work/marks"
  query_tables
  marks=$(paste -sd ';' "$work/marks")
  for type in svg png; do
    gnuplot -e "$marks; data='$work'; type='$type'; image='$output/report.$type'" \
      "$repository/demo/database/report.gp"
  done
  gnuplot -e "$marks; data='$work'" "$repository/demo/database/requests_as_text.gp"
}
