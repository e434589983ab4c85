"""Reads JSON, as strictly as it is written. What is not as it should be is a UsageError."""
import json
from pathlib import Path
from typing import Any, Callable, Iterator, TypeVar

from command_line import UsageError

T = TypeVar("T")


def read_lines(path: Path) -> Iterator[bytes]:
    try:
        with open(path, "rb") as file:
            yield from (line.rstrip(b"\n") for line in file)
    except OSError as error:
        raise UsageError(f"cannot read {path}: {error.strerror}") from None


# What `read` makes of each line, at least one.
def read_json_lines(path: Path, read: Callable[[Any], T]) -> list[T]:
    entries = []
    for number, line in enumerate(read_lines(path), 1):
        try:
            entries.append(read(json.loads(line.decode())))
        except (ValueError, RecursionError) as error:
            raise UsageError(f"{path}, line {number}: {error}") from None
    if not entries:
        raise UsageError(f"{path} is empty")
    return entries


# A member of an object. Types are compared, since a bool is an instance of int.
def member(parent: Any, name: str, kind: type[T]) -> T:
    if type(parent) is not dict or type(parent.get(name)) is not kind:
        raise UsageError(f"no {kind.__name__} {name} in {json.dumps(parent):.200}")
    return parent[name]


def integer(parent: Any, name: str, low: int, high: int) -> int:
    value = member(parent, name, int)
    if not low <= value <= high:
        raise UsageError(f"{name} is {value}, not an integer from {low} to {high}")
    return value
