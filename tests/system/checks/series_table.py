#!/usr/bin/env python3
"""Turns the answer to a range query into a table."""
from argparse import Namespace
from collections import defaultdict
from pathlib import Path
from typing import Any

from command_line import CommandLine, UsageError
from json_input import member, read_json_lines
from query_answer import elements, read_point, results_of


# For gnuplot: a row for each time, a column for each of the wanted series, NaN where a series has
# no value.
def print_table(options: Namespace) -> int:
    rows: dict[int, dict[str, str]] = defaultdict(dict)  # by seconds, then label

    def take(answer: Any) -> None:
        for labels, series in results_of(answer):
            label = member(labels, options.label, str)
            for time_s, value in map(read_point, elements(series, "values", list)):
                rows[time_s][label] = value

    read_json_lines(options.file, take)
    if not rows:
        raise UsageError(f"{options.file} holds no values")
    for time_s, values in sorted(rows.items()):
        print(time_s, *(values.get(column, "NaN") for column in options.column))
    return 0


if __name__ == "__main__":
    command = CommandLine(__doc__)
    command.add_argument("file", nargs="?", type=Path, default=Path("/dev/stdin"),
                         help="the answer, JSON")
    command.add_argument("--label", default="server", help="what tells the series apart")
    command.add_argument("--column", metavar="LABEL", action="append", default=[],
                         help="of the series in the first, second, ... column")
    command.run(print_table)
