#!/usr/bin/env python3
"""Compares the reports of a run with what its programs counted."""
from argparse import Namespace
from collections import Counter
from itertools import groupby
from pathlib import Path

from command_line import CommandLine, UsageError
from contents import check_contents
from recorded_run import CollectedFile, Journal, JournalReport, Numbers, Summaries, by_zone
from recorded_run import read_collected, read_journal, read_summaries
from verdict import Verdict

LOST, TWICE = -1, -2


# In which file the report is as a whole.
def place_of(report: JournalReport, collected: list[CollectedFile]) -> int:
    places = [place for place, file in enumerate(collected) if file.has_whole(report)]
    return LOST if not places else places[0] if len(places) == 1 else TWICE


# Whether a zone's reports, given as places and the numbers of consecutive ones there, are at one
# server first, then at most one is lost, then they are at another.
def is_move_with_one_loss(stretches: list[tuple[int, int]]) -> bool:
    first, last = stretches[0][0], stretches[-1][0]
    return min(first, last) >= 0 and first != last and stretches[1:-1] in ([], [(LOST, 1)])


def check_delivery(journal: Journal, collected: list[CollectedFile], verdict: Verdict) -> None:
    names = [*(file.name for file in collected), "at several servers", "lost"]  # by place
    ways = []
    for zone, reports in by_zone(journal):
        places = [place_of(report, collected) for report in reports]
        for report, place in zip(reports, places):
            verdict.check(report.is_handed_over or place == LOST,
                          f"{zone}: a report has arrived that the kernel did not take")
        stretches = [(place, len(list(same))) for place, same in groupby(places)]
        way = ", ".join(f"{count} {names[place]}" for place, count in stretches)
        verdict.check(is_move_with_one_loss(stretches),
                      f"{zone}: not one server, at most one report lost, then the other, but {way}")
        ways.append(f"{zone}: {way}")
    verdict.end_group("delivery", "; ".join(ways))


def reported_of(journal: Journal, key: str) -> Numbers:
    return sum((report.lines[key] for report in journal if key in report.lines), Counter())


# Records carry URLs without their scheme.
def access_key(url: str) -> str:
    return "korvain_access " + url[len("udp://"):]


# One side of the counting: the host as a whole and all proxies, or one proxy. What the proxy has
# answered and the host has not counted as answered came late: after a time-out.
def check_counts_of(name: str, reported: Numbers, errors_field: str, host: Numbers, proxy: Numbers,
                    verdict: Verdict) -> None:
    sent, answered, timed_out = host["sent"], host["answered"], host["timed_out"]
    late = proxy["answered"] - answered
    requests, timeouts = reported["requests_per_min"], reported["timeouts_per_min"]
    verdict.check(requests == sent == proxy["received"] == answered + timed_out > 0,
                  f"{name}: requests: {requests} reported, {sent} sent = {answered} answered in "
                  f"time + {timed_out} timed out, {proxy['received']} received by the proxy side")
    verdict.check(timeouts == timed_out == proxy["dropped"] + late and host["unexpected"] == late,
                  f"{name}: time-outs: {timeouts} reported, {timed_out} counted = "
                  f"{proxy['dropped']} dropped + {late} answered late, {host['unexpected']} "
                  "unexpected answers")
    errors = reported[errors_field]
    verdict.check(errors == host["errors"] <= proxy["errors"] <= host["errors"] + late,
                  f"{name}: errors: {errors} reported, {host['errors']} counted in time, "
                  f"{proxy['errors']} returned, {late} answers late")
    responses, samples = reported["responses_per_min"], reported["delay_samples"]
    verdict.check(responses == answered and samples == host["delay_samples"],
                  f"{name}: responses: {responses} reported, {answered} counted; delays above 0: "
                  f"{samples} reported, {host['delay_samples']} counted")


# The module's counts, the host's own and those of the proxies agree.
def check_counts(journal: Journal, by_host: Summaries, by_proxies: Summaries,
                 verdict: Verdict) -> None:
    host: Numbers = sum(by_host.values(), Counter())
    check_counts_of("all", reported_of(journal, "korvain_overall"), "access_errors_per_min", host,
                    sum(by_proxies.values(), Counter()), verdict)
    for url, own in by_host.items():
        check_counts_of(url, reported_of(journal, access_key(url)), "proxy_system_errors_per_min",
                        own, by_proxies[url], verdict)
    verdict.end_group(
        "counts", f"{host['sent']} requests = {host['answered']} answered in time + "
        f"{host['timed_out']} timed out; module, host and {len(by_proxies)} proxies agree")


# The mean delay of each proxy is about the time that it held the requests: longer by at most the
# tolerance, which the way there and back may take.
def check_delays(journal: Journal, by_proxies: Summaries, tolerance_ms: float,
                 verdict: Verdict) -> None:
    greatest_excess_ms = 0.0
    for url, proxy in by_proxies.items():
        reported = reported_of(journal, access_key(url))
        samples, answered = reported["delay_samples"], proxy["answered"]
        verdict.check(samples > 0 and answered > 0, f"{url}: no delays to compare")
        if samples == 0 or answered == 0:
            continue
        mean_ms = reported["delay_ms"] / journal[0].clock_speed / samples
        held_ms = proxy["held_us"] / 1000 / answered
        verdict.check(held_ms - 1 <= mean_ms <= held_ms + tolerance_ms,
                      f"{url}: a mean delay of {mean_ms:.1f} ms reported, but the proxy held "
                      f"requests {held_ms:.1f} ms")
        greatest_excess_ms = max(greatest_excess_ms, mean_ms - held_ms)
    verdict.end_group(
        "delays", f"reported means of {len(by_proxies)} proxies are at most "
        f"{greatest_excess_ms:.1f} ms above the time that they held requests")


# Exactly the proxies that have failed were judged unavailable, and each is in service again.
def check_judgements(by_host: Summaries, by_proxies: Summaries, verdict: Verdict) -> None:
    failed = {url for url, proxy in by_proxies.items() if proxy["dropped"] + proxy["errors"] > 0}
    for url, own in by_host.items():
        judged, back, out = (own[name] for name in (
            "judged_unavailable", "back_in_service", "zones_out"))
        state = "has failed for a while" if url in failed else "was fine all the time"
        verdict.check((url in failed) == (judged > 0) == (back > 0) and out == 0,
                      f"{url}: {state}; judged unavailable {judged} times, back in service {back} "
                      f"times, not in service in {out} zones at the end")
    verdict.check(0 < len(failed) < len(by_host), f"{len(failed)} of {len(by_host)} have failed")
    verdict.end_group(
        "judgements", f"{len(failed)} proxies have failed, were judged unavailable and taken "
        f"back; {len(by_host) - len(failed)} were fine all the time")


def check_run(options: Namespace) -> int:
    run = options.run
    if not 0 <= options.delay_tolerance <= 10000:
        raise UsageError(f"--delay-tolerance: '{options.delay_tolerance}' is not from 0 to 10000")
    journal = read_journal(run / "journal")
    by_host = read_summaries([run / "host"])
    by_proxies = read_summaries(run.glob("proxy-*"))
    if by_host.keys() != by_proxies.keys():
        raise UsageError(f"the host knows the proxies {', '.join(by_host)}; there are summaries of "
                         f"{', '.join(by_proxies)}")
    collected = [read_collected(path) for path in sorted(run.glob("collect-*"))]
    verdict = Verdict()
    check_contents(journal, collected, verdict)
    check_delivery(journal, collected, verdict)
    check_counts(journal, by_host, by_proxies, verdict)
    check_delays(journal, by_proxies, options.delay_tolerance, verdict)
    check_judgements(by_host, by_proxies, verdict)
    return verdict.conclude()


if __name__ == "__main__":
    command = CommandLine(__doc__)
    command.add_argument("run", nargs="?", type=Path, default=Path(), help="directory "
                         "of what the programs have written: journal, host, collect-*, proxy-*")
    command.add_argument("--delay-tolerance", metavar="MS", type=float, default=15.0, help="by how "
                         "much a mean delay may be longer than the proxy held requests")
    command.run(check_run)
