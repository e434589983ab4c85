"""What the programs of one run have written down, independently of each other."""
from collections import Counter, defaultdict
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Iterable, NamedTuple

from command_line import UsageError
from json_input import integer, member, read_json_lines, read_lines
from report_line import ReportId, ReportLine, read_line

Numbers = Counter[str]  # by name; 0 where there is none
GREATEST_NUMBER = 2**40  # small enough for the sums of any run


# One report as the host wrote it down: raw counts and sums.
class JournalReport(NamedTuple):
    instance: str
    zone: str
    time_ns: int
    period_s: int
    clock_speed: int  # of the host's clock: its seconds per real second
    server: str  # to which the end of it went; empty: to none
    is_handed_over: bool
    lines: dict[str, Numbers]  # by key

    @property
    def id(self) -> ReportId:
        return self.zone, self.time_ns


# What has arrived. Lines that make no sense are counted: they come from the network.
@dataclass
class CollectedFile:
    name: str
    reports: dict[ReportId, dict[str, ReportLine]] = field(
        default_factory=lambda: defaultdict(dict))  # by key
    lines: int = 0
    unusable: int = 0
    repeated: int = 0

    def has_whole(self, report: JournalReport) -> bool:
        return len(self.reports.get(report.id, ())) == len(report.lines)

    def in_order(self) -> list[tuple[ReportId, str, ReportLine]]:
        return sorted((report_id, key, line) for report_id, lines in self.reports.items()
                      for key, line in lines.items())


Journal = list[JournalReport]  # in the order of writing
Summaries = dict[str, Numbers]  # by URL


# Counts that the record keeps in 32 bits, and of which a report gives the rate.
def is_rate(name: str) -> bool:
    return name.endswith("_per_min")


def read_numbers(entry: dict[str, Any]) -> Numbers:
    return Counter({name: integer(entry, name, 0, 2**32 - 1 if is_rate(name) else GREATEST_NUMBER)
                    for name in entry if name != "url"})


def read_journal(path: Path) -> Journal:
    def read(entry: Any) -> JournalReport:
        lines = member(entry, "lines", dict)
        return JournalReport(
            member(entry, "instance", str), member(entry, "zone", str),
            integer(entry, "time_ns", 0, 2**63 - 1), integer(entry, "period_s", 1, 2**31 - 1),
            integer(entry, "clock_speed", 1, 1000), member(entry, "server", str),
            member(entry, "handed_over", bool),
            {key: read_numbers(member(lines, key, dict)) for key in lines})

    return read_json_lines(path, read)


def by_zone(journal: Journal) -> list[tuple[str, Journal]]:
    zones: dict[str, Journal] = defaultdict(list)
    for report in journal:
        zones[report.zone].append(report)
    return sorted(zones.items())


def read_summaries(paths: Iterable[Path]) -> Summaries:
    summaries: Summaries = {}

    def take(entry: Any) -> None:
        url = member(entry, "url", str)
        if url in summaries:
            raise UsageError(f"{url} comes twice")
        summaries[url] = read_numbers(entry)

    for path in paths:
        read_json_lines(path, take)
    return dict(sorted(summaries.items()))


def read_collected(path: Path) -> CollectedFile:
    file = CollectedFile(path.name)
    for text in read_lines(path):
        file.lines += 1
        line = read_line(text)
        if not line or not line.key:
            file.unusable += 1
        elif line.key in file.reports[line.id]:
            file.repeated += 1
        else:
            file.reports[line.id][line.key] = line
    return file
