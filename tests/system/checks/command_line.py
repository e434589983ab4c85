"""The command line of the checkers: what they accept, what they say to the rest."""
import argparse
import signal
import sys
from typing import Callable, NoReturn


# Something given to the program that it cannot use: an argument, or a file that it reads.
class UsageError(ValueError):
    pass


# Arguments have defaults, and none is required: what is unknown is named whatever else is wrong.
class CommandLine(argparse.ArgumentParser):
    def __init__(self, description: str) -> None:
        super().__init__(description=description, allow_abbrev=False,
                         formatter_class=argparse.ArgumentDefaultsHelpFormatter,
                         epilog="Exit status: 0, 1 for a failed check, 2 for unusable input.")

    def error(self, message: str) -> NoReturn:
        self.exit(2, f"{self.prog}: {message}\n")

    # Ends the process with the result of `work`, or with 2 and one line for what is unusable.
    def run(self, work: Callable[[argparse.Namespace], int]) -> NoReturn:
        signal.signal(signal.SIGINT, signal.SIG_DFL)
        signal.signal(signal.SIGPIPE, signal.SIG_DFL)
        sys.stdout.reconfigure(errors="backslashreplace")  # whatever is read can be shown
        try:
            self.exit(work(self.parse_args()))
        except UsageError as error:
            self.error(str(error))
