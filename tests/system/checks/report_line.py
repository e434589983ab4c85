"""Reads the lines of reports: measurement,tag=value integer=1i,text="..." timestamp"""
import re
from typing import NamedTuple, Optional

ReportId = tuple[str, int]  # zone, time

# More tags or fields than these are in no report.
MOST_TAGS = 32
MOST_FIELDS = 128
INT64 = range(-(2**63), 2**63)

# A backslash stands for itself unless it is before one of the characters that end a name or text.
NAME = r"(?:[^,= \\]|\\[,= ]|\\(?![,= ]))+"
TEXT = r'"(?:[^"\\]|\\["\\]|\\(?!["\\]))*"'
INTEGER = "-?[0-9]{1,19}"
TAG = f"({NAME})=({NAME})"
FIELD = f"({NAME})=(?:({INTEGER})i|{TEXT})"
LINE = re.compile(f"({NAME})(?P<tags>(?:,{TAG})*) (?P<fields>{FIELD}(?:,{FIELD})*) "
                  f"(?P<time>{INTEGER})")


class ReportLine(NamedTuple):
    measurement: str
    tags: dict[str, str]
    integers: dict[str, int]
    timestamp_ns: int

    @property
    def id(self) -> ReportId:
        return self.tags.get("zone", ""), self.timestamp_ns

    # By what a report's lines are told apart; nothing for lines of no report.
    @property
    def key(self) -> Optional[str]:
        if self.measurement == "korvain_overall":
            return self.measurement
        own_tag = {"korvain_table": "table", "korvain_access": "url"}.get(self.measurement)
        return f"{self.measurement} {self.tags.get(own_tag, '')}" if own_tag else None


def plain(name: str) -> str:
    return re.sub(r"\\([,= ])", r"\1", name)


# Of line protocol it knows what reports consist of: integer and text fields, at least one, and a
# timestamp. Nothing for any other bytes, and for a line that gives a tag or field twice.
def read_line(line: bytes) -> Optional[ReportLine]:
    try:
        match = LINE.fullmatch(line.decode())
    except UnicodeDecodeError:
        return None
    if not match:
        return None
    tags = [(plain(key), plain(value)) for key, value in re.findall(TAG, match["tags"])]
    fields = [(plain(key), value) for key, value in re.findall(FIELD, match["fields"])]
    integers = {key: int(value) for key, value in fields if value}
    timestamp_ns = int(match["time"])
    is_good = (len(dict(tags)) == len(tags) <= MOST_TAGS
               and len(dict(fields)) == len(fields) <= MOST_FIELDS
               and all(number in INT64 for number in (timestamp_ns, *integers.values())))
    return ReportLine(plain(match[1]), dict(tags), integers, timestamp_ns) if is_good else None
