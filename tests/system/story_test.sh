#!/usr/bin/env bash
# Plays the story at its short pace and has it checked. Then falsifies what the programs have
# written, in one place at a time: each time the checker must find just that.
# Usage: story_test.sh DIRECTORY-OF-THE-PROGRAMS
set -euo pipefail
programs=$1
work=$(mktemp -d)
log=$work/log
failures=0
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

# shellcheck source=../../demo/story.sh
source "$here/../../demo/story.sh"

finish() {
  local status=$?
  trap - EXIT INT TERM
  kill_everything
  if ((status != 0)); then tail -n 60 "$log"; fi
  rm -rf "$work"
  exit "$status"
}
trap finish EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

check() { check_story; }

# shellcheck source=falsify.sh
source "$here/falsify.sh"

exec 3>"$log"
set_pace short
play_story
check_story
grep -qE '^report> report: app shop, zone region [12], instance ' "$log"
grep -qE '^report>   +proxy-3 .* [1-9][0-9]* +0 ' "$log"
# The last report that is whole, whatever its lines say.
{
  printf 'korvain_table,zone=\e[31m,table=overall f=1i 9\n'
  printf 'korvain_overall,zone=\e[31m table_lines=1i,access_lines=0i 9\n'
  printf 'korvain_overall,zone=b table_lines=1i,access_lines=0i 10\n'
} >"$work/hostile"
show_report hostile | grep -qF 'zone ?[31m, instance'

first=collect-1
grep -q '^{.*"server":"'"${collect_urls[0]}" <(head -n 1 "$work/journal") || first=collect-2
overall='^korvain_overall'

expect 1 "requests_per_min is" "a number changed on the way" $first \
  "0,/$overall/s/requests_per_min=[0-9]+i/requests_per_min=1i/"
expect 1 "counts: all: requests: " "a request counted twice in the record" journal \
  '2s/("korvain_overall":\{[^}]*"requests_per_min":)/\11/'
expect 1 "delay_ms is" "a delay sum falsified" journal '2s/"delay_ms":([0-9])/"delay_ms":9\1/'
expect 1 "period_s is nothing" "a field lost on the way" $first '1s/,period_s=[0-9]+i//'
expect 1 "but the proxy held" "a mean delay beyond all tolerance" journal '2s/"delay_ms":/&9999/'
expect 1 "nobody sent this line" "a report at another time" $first "1s/[0-9]+$/12345/"
expect 1 "dynamic_errors_per_min is 3, not 0" "a count from nowhere" $first \
  "1s/dynamic_errors_per_min=0i/dynamic_errors_per_min=3i/"
expect 1 "1 lines unusable" "a stranger's line" $first '$s/$/\nhello/'
divided=$(tr -d '\n' <"$here/malformed_lines.txt" | tr '|' '\n' | sed 's/^m/korvain_overall/')
{
  printf '%s\n' "$divided"
  printf 'korvain_overall%s f=1i 1\n' "$(printf ',t%d=v' {1..33})"
  printf 'korvain_overall %sf=1i 1\n' "$(printf 'f%d=1i,' {1..128})"
  printf 'korvain_overall,zone=\xff f=1i 1\nother f=1i 1\nkorvain_overall f=1i 1\r\n'
} >"$work/malformed"
expect 1 "$(wc -l <"$work/malformed") lines unusable" "lines that make no sense" $first \
  "\$r $work/malformed"
head -c 50000 "$programs/demo_host" >"$work/bytes"
expect 1 " lines unusable" "bytes that are no lines" $first "\$r $work/bytes"
printf '%s\n' 'korvain_access,zone=a\,b\ \=\c,url=u f=1i,g="a \" , b\\" -5' >"$work/unknown"
expect 1 "$first, a,b =\\c, korvain_access u: nobody sent this line" "a line with escapes" $first \
  "\$r $work/unknown"
expect 1 "1 repeated" "a line that came twice" $first '1s/(.*)/\1\n\1/'
expect 1 "not one server, at most one report lost" "a line lost in the middle" $first '10d'
expect 1 "at several servers" "reports at both servers" collect-2 "\$r $work/collect-1"
expect 1 " lost" "no server to which they moved" "collect-$left" 'd'
expect 1 "has arrived that the kernel did not take" "a report refused and there" journal \
  '1s/"handed_over":true/"handed_over":false/'
expect 1 "two reports of the same time" "an entry twice" journal '1s/(.*)/\1\n\1/'
expect 1 "time-outs: " "a proxy that counts drops twice" proxy-1 \
  's/"dropped":([0-9]+)/"dropped":1\1/'
expect 1 "counts: all: responses: " "a response too many" journal \
  '2s/("korvain_overall":\{[^}]*"responses_per_min":)/\11/'
expect 1 "delays above 0" "a delay too many" host '1s/"delay_samples":/&1/'
expect 1 "reported, 1" "a request that only the host has counted" host '1s/"sent":/&1/'
expect 1 "received by the proxy side" "a request on a wrong way" proxy-3 \
  's/"received":([0-9]+)/"received":1\1/'
expect 1 "counts: ${proxy_urls[3]}: time-outs" "an answer that nobody counted" proxy-4 \
  's/"answered":([0-9]+)/"answered":1\1/'
expect 1 "counts: ${proxy_urls[3]}: time-outs" "an answer to a request that was over" host \
  '4s/"unexpected":/"unexpected":1/'
expect 1 "errors: " "an error that was not returned" proxy-2 's/"errors":[0-9]+/"errors":0/'
expect 1 "the proxy held requests" "delays that nobody waited for" proxy-4 \
  's/"held_us":([0-9]+)/"held_us":9\1/'
expect 1 "has failed for a while" "a judgement that was not made" host \
  '1s/"judged_unavailable":[0-9]+/"judged_unavailable":0/'
expect 1 "has failed for a while" "a proxy that was not taken back" host \
  '1s/"back_in_service":[0-9]+/"back_in_service":0/'
expect 1 "was fine all the time" "a judgement too many" host \
  '3s/"judged_unavailable":0/"judged_unavailable":1/'
expect 1 "not in service in 1 zones" "a proxy left out" host \
  '2s/"zones_out":0/"zones_out":1/'

expect 2 "$work/journal, line 2" "a torn entry" journal '2s/.{20}$//'
expect 2 "period_s is 4294967296" "a period beyond 32 bits" journal \
  '1s/"period_s":[0-9]+/"period_s":4294967296/'
expect 2 "period_s is 0" "no period" journal '1s/"period_s":[0-9]+/"period_s":0/'
expect 2 "delay_samples is -1" "less than nothing" journal '1s/"delay_samples":[0-9]+/"delay_samples":-1/'
expect 2 "delay_samples is 18446744073709551615" "beyond 64 bits" journal \
  '1s/"delay_samples":[0-9]+/"delay_samples":18446744073709551615/'
expect 2 "no int delay_samples in" "no number" journal '1s/"delay_samples":[0-9]+/"delay_samples":true/'
expect 2 "no int delay_samples in" "a number with a point" journal '1s/"delay_samples":[0-9]+/"delay_samples":1.0/'
expect 2 "$work/journal, line 3" "bytes that are no text" journal '3s/"zone":"/&\xff/'
expect 2 "$work/journal, line 1" "brackets without end" journal \
  "1s/\"delay_ms\":/&$(printf '[%.0s' {1..50000})/"
expect 2 "$work/journal, line 1" "no object" journal '1s/.*/[]/'
expect 2 "$work/journal is empty" "no journal" journal 'd'
expect 2 "comes twice" "two summaries of a proxy" host '1s/(.*)/\1\n\1/'
expect 2 "there are summaries of udp://127.0.0.1:1, " "another proxy" proxy-1 \
  's/"url":"[^"]*"/"url":"udp:\/\/127.0.0.1:1"/'
expect 2 "$work/proxy-1, line 1" "no JSON" proxy-1 's/^\{//'

((failures == 0))
