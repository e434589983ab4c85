"""Reads JSON, as strictly as it is written. What is not as it should be is a UsageError."""
import json
from typing import Any, Callable, Iterator, TypeVar

from command_line import UsageError

T = TypeVar("T")


# What `read` makes of the text; `where` stands in front of what is wrong with it.
def read_json(where: str, text: bytes, read: Callable[[Any], T]) -> T:
    try:
        return read(json.loads(text.decode(), parse_constant=int))  # int refuses NaN and its like
    except (ValueError, RecursionError) as error:
        raise UsageError(f"{where}: {error}") from None


def read_lines(path: str) -> Iterator[bytes]:
    try:
        with open(path, "rb") as file:
            yield from (line.rstrip(b"\n") for line in file)
    except OSError as error:
        raise UsageError(f"cannot read {path}: {error.strerror}") from None


# What `read` makes of each line, at least one.
def read_json_lines(path: str, read: Callable[[Any], T]) -> list[T]:
    entries = [read_json(f"{path}, line {number}", line, read)
               for number, line in enumerate(read_lines(path), 1)]
    if not entries:
        raise UsageError(f"{path} is empty")
    return entries


# A member of an object. Types are compared, since a bool is an instance of int.
def member(parent: Any, name: str, kind: type[T]) -> T:
    if type(parent) is not dict or type(parent.get(name)) is not kind:
        raise UsageError(f"no {kind.__name__} {name} in {json.dumps(parent):.200}")
    return parent[name]


def integer(parent: Any, name: str, low: int, high: int) -> int:
    value = parent.get(name)
    if type(value) is not int or not low <= value <= high:
        raise UsageError(f"{name} is {json.dumps(value)}, not an integer from {low} to {high}")
    return value


# The elements of a list, each of that kind.
def elements(parent: Any, name: str, kind: type[T]) -> list[T]:
    found = member(parent, name, list)
    return [member({name: element}, name, kind) for element in found]


# The labels of each series that a query has found, and the series.
def results_of(answer: Any) -> list[tuple[Any, Any]]:
    results = elements(member(answer, "data", dict), "result", dict)
    return [(member(result, "metric", dict), result) for result in results]


# The time, in seconds, and the value of a point of a series.
def read_point(point: Any) -> tuple[int, str]:
    if [type(part) for part in point] != [int, str]:
        raise UsageError(f"{json.dumps(point)} is not a time and a value")
    return point[0], point[1]
