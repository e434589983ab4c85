#!/usr/bin/env python3
"""Turns the answer to a range query into a table."""
import sys
from argparse import Namespace
from collections import defaultdict
from typing import Any

from command_line import CommandLine, UsageError
from json_input import elements, member, read_json, read_point, results_of


# For gnuplot: a row for each time, a column for each of the wanted series, NaN where a series has
# no value.
def print_table(options: Namespace) -> int:
    rows: dict[int, dict[str, str]] = defaultdict(dict)  # by seconds, then label

    def take(answer: Any) -> None:
        for labels, series in results_of(answer):
            label = member(labels, options.label, str)
            for time_s, value in map(read_point, elements(series, "values", list)):
                rows[time_s][label] = value

    read_json("not the answer to a range query", sys.stdin.buffer.read(), take)
    if not rows:
        raise UsageError("the answer holds no values")
    for time_s, values in sorted(rows.items()):
        print(time_s, *(values.get(column, "NaN") for column in options.column))
    return 0


if __name__ == "__main__":
    command = CommandLine(__doc__, "Reads the answer, JSON, from standard input.")
    command.add("--label", "TEXT REQUIRED", "label that tells the series apart")
    command.add("--column", "TEXT ... REQUIRED", "the label's value in a column")
    command.run(print_table)
