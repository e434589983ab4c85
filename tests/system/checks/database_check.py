#!/usr/bin/env python3
"""Compares a database with the journals of the reporting hosts."""
import re
from argparse import Namespace
from collections import Counter, defaultdict
from pathlib import Path
from typing import Any, NamedTuple

from command_line import CommandLine, UsageError
from contents import check_contents, expected_value
from json_input import member, read_json_lines
from query_answer import elements, read_point, results_of
from recorded_run import CollectedFile, Journal, Numbers, by_zone, read_journal
from report_line import ReportLine
from verdict import Verdict

SUM_WINDOW_S = 120  # as in the query


class Host(NamedTuple):
    journal: Journal
    stored: CollectedFile


# The lines of each instance, from what /api/v1/export answers: a series a line, in JSON. There each
# field is a series of its own, named measurement_field, with stamps in milliseconds; a text field
# is kept as 0. What belongs to no report is counted as unusable.
def read_stored_lines(path: Path) -> dict[str, CollectedFile]:
    files: dict[str, CollectedFile] = {}

    def take(series: Any) -> None:
        labels = member(series, "metric", dict)
        name = re.fullmatch("(korvain_[a-z]+)_(.+)", member(labels, "__name__", str))
        tags = {label: member(labels, label, str) for label in labels if label != "__name__"}
        values, stamps = member(series, "values", list), elements(series, "timestamps", int)
        if len(values) != len(stamps):
            raise UsageError("not a stamp for each value")
        instance = tags.get("instance", "")
        file = files.setdefault(instance, CollectedFile(f"database, instance {instance}"))
        for value, stamp in zip(values, stamps):
            line = ReportLine(name[1] if name else "", tags, {}, stamp * 10**6)
            if not name or not line.key or type(value) is not int:
                file.unusable += 1
                continue
            stored = file.reports[line.id].setdefault(line.key, line)
            file.lines += stored is line
            file.repeated += stored.tags != tags or name[2] in stored.integers
            stored.integers.setdefault(name[2], value)

    read_json_lines(path, take)
    return files


# When the query was asked, and its answer: what all hosts together say of a proxy, by its URL.
def read_sums(path: Path) -> tuple[int, Numbers]:
    sums: Numbers = Counter()
    times = []

    def take(answer: Any) -> None:
        for labels, result in results_of(answer):
            time_s, value = read_point(member(result, "value", list))
            times.append(time_s)
            sums[member(labels, "url", str)] += int(value)

    read_json_lines(path, take)
    if not times:
        raise UsageError(f"{path} holds no sums")
    return times[-1], sums


# From which the reports of a zone have moved on.
def servers_left(hosts: list[Host]) -> set[str]:
    zones = [reports for host in hosts for _, reports in by_zone(host.journal)]
    return {reports[0].server for reports in zones if reports[-1].server != reports[0].server}


# Of each zone at most one report is missing: the last to the one killed server, or the first after.
def check_arrival(host: Host, killed: set[str], verdict: Verdict) -> None:
    name, missing = host.stored.name, 0
    verdict.check(len(killed) == 1, f"{name}: reports have left {len(killed)} servers, not one")
    for zone, reports in by_zone(host.journal):
        to_killed = [report.server in killed for report in reports]
        lost = [i for i, report in enumerate(reports) if not host.stored.has_whole(report)]
        for i, report in enumerate(reports):
            is_at_kill = (True, False) in (tuple(to_killed[i:i + 2]), tuple(to_killed[i - 1:i + 1]))
            verdict.check(i not in lost or is_at_kill,
                          f"{name}, {zone}: the report of {report.time_ns} ns, number {i + 1} of "
                          f"{len(reports)}, has not arrived as a whole")
        verdict.check(len(lost) <= 1, f"{name}, {zone}: {len(lost)} reports are missing")
        missing += len(lost)
    verdict.end_group("arrival", f"{name}: {len(host.journal) - missing} of {len(host.journal)} "
                                 f"reports, {host.stored.lines} lines; {missing} lost at the kill")


# Fields that no host counts in are in every line of their kind or in none; but for the mean of no
# delays, which is left out.
def check_fields(hosts: list[Host], verdict: Verdict) -> None:
    known: dict[str, set[str]] = defaultdict(set)  # by measurement
    values = 0
    lines = [(host.stored.name, line) for host in hosts for _, _, line in host.stored.in_order()]
    for _, line in lines:
        known[line.measurement] |= line.integers.keys() - {"delay_ms"}
    for name, line in lines:
        fields, all_fields = line.integers.keys() - {"delay_ms"}, known[line.measurement]
        values += len(fields)
        verdict.check(fields == all_fields, f"{name}, {line.key}, {line.timestamp_ns} ns: "
                                            f"{len(fields)} fields, not {len(all_fields)}")
    verdict.end_group("fields", f"{values} values, none of a line is missing")


# The sums at that time of each zone's latest report that is not too old.
def check_sums(hosts: list[Host], time_s: int, sums: Numbers, verdict: Verdict) -> None:
    expected: Numbers = Counter()
    for _, reports in (zone for host in hosts for zone in by_zone(host.journal)):
        recent = [report for report in reports
                  if 0 <= time_s * 10**9 - report.time_ns < SUM_WINDOW_S * 10**9]
        for key, numbers in recent[-1].lines.items() if recent else ():
            if key.startswith("korvain_access "):
                url = key.split(" ", 1)[1]
                expected[url] += expected_value("requests_per_min", numbers, recent[-1].period_s)
    for url, requests in sorted(expected.items()):
        verdict.check(sums.get(url, -1) == requests,
                      f"{url}: all instances sum up to {sums.get(url, -1)}, not {requests}")
    verdict.check(len(sums) == len(expected), f"{len(sums)} sums, not {len(expected)}")
    verdict.end_group("sums", f"the query's sums over {len(hosts)} instances are those of their "
                              f"journals, for {len(expected)} proxies")


def check_database(options: Namespace) -> int:
    run = options.run
    stored = read_stored_lines(run / "export")
    hosts = []
    for journal in map(read_journal, sorted(run.glob("journal-*"))):
        instance = journal[0].instance
        nothing = CollectedFile(f"database, instance {instance}")
        hosts.append(Host(journal, stored.pop(instance, nothing)))
    if not hosts:
        raise UsageError(f"{run} holds no journal")
    verdict = Verdict()
    for host in hosts:
        # What nobody owns is nobody's report.
        others = [file for _, file in sorted(stored.items())] if host is hosts[0] else []
        check_contents(host.journal, [host.stored, *others], verdict)
        check_arrival(host, servers_left(hosts), verdict)
    check_fields(hosts, verdict)
    check_sums(hosts, *read_sums(run / "sums"), verdict)
    return verdict.conclude()


if __name__ == "__main__":
    command = CommandLine(__doc__)
    command.add_argument("run", nargs="?", type=Path, default=Path(), help="directory "
                         "of the hosts' files journal-*, and of what the database has answered: "
                         "export, and sums, those of the requests by url over 2 minutes")
    command.run(check_database)
