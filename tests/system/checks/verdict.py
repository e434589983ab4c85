"""Gathers what the checks find, and prints a line for each group that holds and a line for each
check that does not."""

MOST_LINES = 5


class Verdict:
    def __init__(self) -> None:
        self._failures: list[str] = []  # of the group at hand
        self._group_checks = self._all_checks = self._all_failures = 0

    # A check of the group at hand; the text says what was compared, with the numbers.
    def check(self, holds: bool, text: str) -> None:
        self._group_checks += 1
        if not holds:
            self._failures.append(text)

    # Ends the group. The summary is printed when all its checks hold, and there was one.
    def end_group(self, name: str, summary: str) -> None:
        failures = self._failures if self._group_checks else ["there is nothing to check"]
        if not failures:
            print(f"[ ok ] {name}: {summary}")
        for text in failures[:MOST_LINES]:
            print(f"[FAIL] {name}: {text}")
        if len(failures) > MOST_LINES:
            print(f"[FAIL] {name}: and {len(failures) - MOST_LINES} more")
        self._all_checks += self._group_checks
        self._all_failures += len(failures)
        self._group_checks, self._failures = 0, []

    # Prints the final line. The exit status: 0 where all checks held, or 1.
    def conclude(self) -> int:
        if self._all_failures == 0:
            print(f"verdict: everything agrees ({self._all_checks} checks)")
            return 0
        print(f"verdict: NOT everything agrees ({self._all_failures} failures)")
        return 1
