#!/usr/bin/env bash
# Gives the checker of the database an answer that agrees with two journals, and then one that is
# falsified in one place at a time: each time it must find just that.
# Usage: database_check_test.sh
set -euo pipefail
repository=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

readonly first=udp://127.0.0.1:9001 second=udp://127.0.0.1:9002

# report INSTANCE SECOND SERVER REQUESTS: an entry of a journal.
report() {
  local numbers="\"requests_per_min\":$4,\"delay_ms\":0,\"delay_samples\":0"
  printf '{"instance":"%s","zone":"z","time_ns":%d000000000,"period_s":30,"clock_speed":1,"server":"%s",' "$1" "$2" "$3"
  printf '"handed_over":true,"lines":{"korvain_overall":{%s},"korvain_access 10.0.0.1:1":{%s,' \
    "$numbers" "$numbers"
  printf '"in_service":1}}}\n'
}

# series NAME INSTANCE VALUES STAMPS [LABEL...]: a line of the database's export.
series() {
  printf '{"metric":{"__name__":"%s","zone":"z","instance":"%s"%s},"values":[%s],"timestamps":[%s]}\n' \
    "$1" "$2" "${5:-}" "$3" "$4"
}

# all_series INSTANCE RATES STAMPS ZEROS ONES
all_series() {
  local access=',"url":"10.0.0.1:1","server":"proxy-1"'
  series korvain_overall_requests_per_min "$1" "$2" "$3"
  series korvain_overall_delay_samples "$1" "$4" "$3"
  series korvain_overall_period_s "$1" "${5//1/30}" "$3"
  series korvain_overall_user_text "$1" "$4" "$3"
  series korvain_access_requests_per_min "$1" "$2" "$3" "$access"
  series korvain_access_delay_samples "$1" "$4" "$3" "$access"
  series korvain_access_period_s "$1" "${5//1/30}" "$3" "$access"
  series korvain_access_in_service "$1" "$5" "$3" "$access"
}

# The report at second 200 went to the server that was killed, and is lost.
write_run() {
  { report a 100 $first 7 && report a 200 $first 8 && report a 300 $second 9; } >"$work/journal-a"
  { report b 100 $first 5 && report b 300 $second 6; } >"$work/journal-b"
  all_series a 14,18 100000,300000 0,0 1,1 >"$work/export"
  all_series b 10,12 100000,300000 0,0 1,1 >>"$work/export"
  printf '{"data":{"result":[{"metric":{"url":"10.0.0.1:1"},"value":[310,"30"]}]}}\n' >"$work/sums"
}

check() { "$repository/tests/system/checks/database_check.py" "$work"; }

# shellcheck source=falsify.sh
source "$(dirname "${BASH_SOURCE[0]}")/falsify.sh"

write_run
check

expect 1 "requests_per_min is 14, not 18 from 9" "a value in the journal" journal-a '1s/min":7/min":9/'
expect 1 "requests_per_min is 15, not 14" "a value in the database" export '1s/\[14/[15/'
expect 1 "in_service is 1, not 0" "a field of the host's own" journal-a '1s/service":1/service":0/'
expect 1 "nobody sent this line" "a stamp a millisecond later" export '1s/100000/100001/'
expect 1 "nobody sent this line" "a report that is not journalled" journal-b 2d
expect 1 "2 reports are missing" "a report too many lost" export 's/100000,300000/100000,300001/'
expect 1 "has not arrived as a whole" "a loss far from the kill" journal-a 's/9002/9001/'
expect 0 "everything agrees" "a loss at the other server" journal-a '2s/9001/9002/'
expect 1 "have left 2 servers, not one" "a move away from another server" journal-b 's/9001/9003/'
expect 1 "3 fields, not 4" "a series missing" export '/overall_user_text.*"b"/d'
expect 1 "unusable" "a value between integers" export '1s/\[14/[14.5/'
expect 1 "repeated" "a series twice" export '1s/(.*)/\1\n\1/'
expect 1 "nobody sent this line" "an instance that nobody is" export \
  '16s/(.*)/\1\n{"metric":{"__name__":"korvain_overall_pid","zone":"z","instance":"c"},"values":[1],"timestamps":[1]}/'
expect 1 "repeated" "a field under another tag" export '6s/proxy-1/proxy-9/'
expect 1 "sum up to 31, not 30" "a sum" sums 's/"30"/"31"/'
expect 1 "sum up to 30, not 28" "a report too old for the sum" journal-a '3s/300000000000/189000000000/'
expect 1 "sum up to 30, not 16" "a report after the time of the sums" sums 's/310/299/'
expect 1 "2 sums, not 1" "a sum of nobody" sums 's/\]\}\}$/,{"metric":{"url":"x"},"value":[310,"1"]}]}}/'
expect 2 "not a stamp for each value" "an answer that is none" export '1s/,300000//'
expect 2 "holds no sums" "an answer without sums" sums 's/\[\{.*\]\}\}/[]}}/'

mkdir "$work/journal" && mv "$work"/journal-* "$work/journal"
[[ $(check 2>&1 || true) == *"holds no journal" ]] || { echo "no journal" && failures=$((failures + 1)); }

# table ANSWER TABLE
table() {
  local result
  result=$("$repository/tests/system/checks/series_table.py" --column b --column a \
    2>&1 <<<"$1") || true
  [[ $result == "$2" ]] || { echo "the table of $1: $result" && failures=$((failures + 1)); }
}
table '{"data":{"result":[{"metric":{"server":"a"},"values":[[20,"1.5"],[10,"2"]]}, {"metric":{"server":"b"},"values":[[20,"7"]]}]}}' $'10 NaN 2\n20 7 1.5'
table '{"data":{"result":[]}}' "series_table.py: /dev/stdin holds no values"
table '{"data":{"result":[{"metric":{"server":"a"},"values":[[true,"1"]]}]}}' \
  "series_table.py: /dev/stdin, line 1: [True, '1'] is not a time and a value"

# What is documented is what the demo asks.
grep -qF "$(<"$repository/demo/database/sum_of_instances.query")" "$repository/docs/scaling.md" ||
  { echo "docs/scaling.md shows another query" && failures=$((failures + 1)); }

((failures == 0))
