"""What a database answers to a query, as its JSON says it."""
from typing import Any

from command_line import UsageError
from json_input import member


# The elements of a list, each of that kind.
def elements(parent: Any, name: str, kind: type) -> list[Any]:
    return [member({name: element}, name, kind) for element in member(parent, name, list)]


# The labels of each series that a query has found, and the series.
def results_of(answer: Any) -> list[tuple[Any, Any]]:
    results = elements(member(answer, "data", dict), "result", dict)
    return [(member(result, "metric", dict), result) for result in results]


# The time, in seconds, and the value of a point of a series.
def read_point(point: Any) -> tuple[int, str]:
    if [type(part) for part in point] != [int, str]:
        raise UsageError(f"{point} is not a time and a value")
    return point[0], point[1]
