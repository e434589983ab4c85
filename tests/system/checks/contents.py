"""The check that each line that arrived follows from the raw counts in the journal."""
from typing import Optional

from recorded_run import CollectedFile, Journal, Numbers, is_rate
from verdict import Verdict


# What a raw number becomes in a report, in the record's arithmetic of 32 bits; nothing where the
# report has no such field.
def expected_value(field: str, raw: Numbers, period_s: int) -> Optional[int]:
    if is_rate(field):
        return raw[field] * 60 % 2**32 // period_s
    if field == "delay_ms":
        return raw[field] // raw["delay_samples"] if raw["delay_samples"] else None
    return period_s if field == "period_s" else raw[field]


# A field that the host does not count in is 0, but for the id of the process.
def check_line(where: str, stored: dict[str, int], raw: Numbers, period_s: int,
               verdict: Verdict) -> None:
    for field in sorted({"period_s", *raw, *stored} - {"pid"}):
        numbers = stored.get(field), expected_value(field, raw, period_s)
        found, expected = ("nothing" if number is None else number for number in numbers)
        verdict.check(found == expected, f"{where}: {field} is {found}, not {expected} from "
                                         f"{raw[field]} in {period_s} s")


def check_contents(journal: Journal, collected: list[CollectedFile], verdict: Verdict) -> None:
    sent = {report.id: report for report in reversed(journal)}
    for report in journal:
        verdict.check(sent[report.id] is report,
                      f"{report.zone}: two reports of the same time in the journal")
    for file in collected:
        for report_id, key, line in file.in_order():
            where = f"{file.name}, {report_id[0]}, {key}"
            is_known = report_id in sent and key in sent[report_id].lines
            verdict.check(is_known, f"{where}: nobody sent this line")
            if is_known:
                report = sent[report_id]
                check_line(where, line.integers, report.lines[key], report.period_s, verdict)
        verdict.check(file.unusable == file.repeated == 0,
                      f"{file.name}: {file.unusable} lines unusable, {file.repeated} repeated")
    arrived = sum(file.lines for file in collected)
    verdict.end_group("contents",
                      f"{arrived} lines arrived; each number follows from what the host counted")
