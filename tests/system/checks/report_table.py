#!/usr/bin/env python3
"""Shows the last report that a collect server's file has as a whole as a table."""
from argparse import Namespace
from pathlib import Path

from command_line import CommandLine, UsageError
from recorded_run import read_collected
from report_line import ReportLine

COLUMNS = {"requests": "requests_per_min", "responses": "responses_per_min",
           "successes": "success_responses_per_min", "errors": "", "time-outs": "timeouts_per_min",
           "delays": "delay_samples", "mean delay ms": "delay_ms"}


# A terminal must not obey what comes from the network.
def printable(text: str) -> str:
    return "".join(char if char.isprintable() else "?" for char in text[:60])


def is_whole(lines: dict[str, ReportLine]) -> bool:
    overall = lines.get("korvain_overall")
    if not overall:
        return False
    numbers = overall.integers
    return len(lines) == 1 + numbers.get("table_lines", 0) + numbers.get("access_lines", 0)


def row_of(line: ReportLine) -> list[str]:
    names = (line.tags.get(tag, "") for tag in ("table", "server", "url"))
    errors = sum(number for name, number in line.integers.items()
                 if name.endswith("_errors_per_min"))
    numbers = [line.integers.get(field, "-") if field else errors for field in COLUMNS.values()]
    return [printable(" ".join(filter(None, names))) or "all", *map(str, numbers)]


def show_report(options: Namespace) -> int:
    whole = [lines for lines in read_collected(options.file).reports.values() if is_whole(lines)]
    if not whole:
        raise UsageError(f"{options.file} holds no whole report")
    overall = whole[-1].pop("korvain_overall")
    others = sorted(whole[-1].values(), key=lambda line: line.measurement, reverse=True)
    who = ", ".join(f"{tag} {printable(overall.tags.get(tag, ''))}"
                    for tag in ("app", "zone", "instance"))
    print(f"report: {who}, {overall.integers.get('period_s')} s")
    rows = [["per minute", *COLUMNS], *map(row_of, [overall, *others])]
    widths = [max(map(len, column)) for column in zip(*rows)]
    for first, *rest in rows:
        numbers = (text.rjust(width) for text, width in zip(rest, widths[1:]))
        print(" ", first.ljust(widths[0]), *numbers, sep="  ")
    return 0


if __name__ == "__main__":
    command = CommandLine(__doc__)
    command.add_argument("file", nargs="?", type=Path, default=Path("/dev/stdin"),
                         help="what a collect server has written")
    command.run(show_report)
