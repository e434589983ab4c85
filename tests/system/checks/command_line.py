"""The command line of the checkers: what they accept, what they say to the rest."""
import argparse
import re
import signal
import sys
from typing import Any, Callable, NoReturn


# Something given to the program that it cannot use: an argument, or a file that it reads.
class UsageError(ValueError):
    pass


class _Once(argparse.Action):
    def __call__(self, parser: Any, namespace: Any, value: Any, flag: Any = None) -> None:
        if getattr(namespace, self.dest) is not self.default:
            parser.error(f"{flag} is given twice")
        setattr(namespace, self.dest, value)


class CommandLine(argparse.ArgumentParser):
    def __init__(self, description: str, footer: str) -> None:
        super().__init__(usage="%(prog)s [OPTIONS]", description=description, epilog=footer,
                         add_help=False, allow_abbrev=False)
        self._options = self.add_argument_group("Options")
        self._options.add_argument("-h", "--help", action="help", help="print this and exit")
        # Finds what is unknown; the parser itself looks for what is missing first.
        self._flags = argparse.ArgumentParser(add_help=False, allow_abbrev=False)

    # Adds an option. Its form stands in the help: its type, "..." where it may be repeated, and its
    # default, or REQUIRED.
    def add(self, flag: str, form: str, text: str, default: Any = None,
            read: Callable[[str], Any] = str) -> None:
        self._flags.add_argument(flag, nargs="?")
        self._options.add_argument(
            flag, metavar=form, help=text, default=default, type=read,
            required="REQUIRED" in form, action="append" if "..." in form else _Once)

    def error(self, message: str) -> NoReturn:
        self.exit(2, f"{self.prog}: {message}".replace("\n", " ") + "\n")

    # Ends the process with the result of `work`, or with 2 and one line for what is unusable.
    def run(self, work: Callable[[argparse.Namespace], int]) -> NoReturn:
        signal.signal(signal.SIGINT, signal.SIG_DFL)
        signal.signal(signal.SIGPIPE, signal.SIG_DFL)
        sys.stdout.reconfigure(errors="backslashreplace")  # whatever is read can be shown
        unknown = self._flags.parse_known_args()[1]
        if unknown and not {"-h", "--help"} & set(unknown):
            self.error(f"unknown argument {unknown[0]} (see --help)")
        try:
            self.exit(work(self.parse_args()))
        except UsageError as error:
            self.error(str(error))


# Takes plain decimal numbers within the limits.
def in_range(low: int, high: int) -> Callable[[str], float]:
    def read(text: str) -> float:
        if re.fullmatch(r"[0-9]+(\.[0-9]+)?", text) and low <= float(text) <= high:
            return float(text)
        raise argparse.ArgumentTypeError(f"'{text}' is not a number from {low} to {high}")
    return read


def udp_url(text: str) -> str:
    byte = "(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9]?[0-9])"
    match = re.fullmatch(rf"udp://({byte}\.){{3}}{byte}:(?P<port>[0-9]{{1,5}})", text)
    if match and 0 < int(match["port"]) < 65536:
        return text
    raise argparse.ArgumentTypeError(f"'{text}' is not of the form udp://a.b.c.d:port")
