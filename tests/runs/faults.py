#!/usr/bin/env python3
"""Runs the tool again and again, each time with one system call that fails, and sees how the run ends.

usage: faults.py [-j N] [--build FOLDER] [--callers N] [CALL]
         one call for each chain of N callers, by default 4, or the one that a failure names so; then runs
         that are interrupted at calls all over the run

Such a run may succeed or fail, but not crash or hang, succeed without the right upload, fail without a word,
change the user's files, or leave behind what it need not. It must have come to the call.
"""
import argparse
import concurrent.futures
import contextlib
import io
import os
import queue
import re
import shutil
import signal
import sys
import tempfile
import zipfile
from dataclasses import dataclass
from pathlib import Path

from run import KEY, ROOT, SECRET, Fixture, Result, Run, Running
from service import Checker, Service

ROUTES = ("ipa", "archive")
CALLS = ["validate", "notes", "testers", "upload"]
SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
# Which calls a run makes depends a little on the time that things take.
ATTEMPTS = 5
SHARED_FOLDERS = r"com\.quorvantile\.ipas|com\.quorvantile\.mac(/apps|/distributions)?"


@dataclass(frozen=True)
class Fault:
    """A call as the shim names it, on a route. It fails, or a signal comes just before it."""
    route: str
    call: str
    signal: int = 0


@dataclass
class Outcome:
    result: Result
    report: list[str]
    service: Service
    leftovers: list[str]
    changes_files: bool

    def upload(self) -> list[str]:
        """The fields but the time, and what the .ipa holds: of what is signed anew, the size only."""
        lines = []
        for part in self.service.forms.get("upload", []):
            if part.file_name:
                for entry in zipfile.ZipFile(io.BytesIO(part.value)).infolist():
                    check = "" if entry.filename.endswith("/Example") else entry.CRC
                    lines.append(f"{entry.filename} {entry.file_size} {check}")
            elif part.name != "distribution[built_at]":
                lines.append(str(part))
        return lines


def attempt(run: Run, fault: Fault, callers: int) -> Outcome:
    """One more run in this place."""
    report = run.work / "report"
    report.unlink(missing_ok=True)
    shutil.rmtree(run.temporary)
    run.temporary.mkdir()
    run.service.stop()
    run.service = Service(Checker(KEY, SECRET, opens_ipa=False))
    command = [run.fixture.build / "bin/sendoff", KEY, SECRET, "-debug", "YES", "-notesPath", "notes.txt",
               "-emails", "a@x.org", "-QuorvantileAPIEndpoint", run.service.url()]
    environment = run.environment | {
        "LD_PRELOAD": str(run.fixture.build / "tests/bin/libfault_shim.so"), "FAULT_PROGRAM": "sendoff",
        "FAULT_REPORT": str(report), "FAULT_CALLERS": str(callers), "FAULT_SITE": fault.call,
        "FAULT_SIGNAL": str(fault.signal)}
    if fault.route == "ipa":
        command += ["-ipaPath", run.ipa]
    else:
        environment["ARCHIVE_PRODUCTS_PATH"] = f"{run.files}/Example.xcarchive/Products"
    before = run.snapshot()
    try:
        result = Running(command, environment, run.files, run.streams).wait()
    except TimeoutError:
        result = Result("none, it hangs", (run.streams / "out").read_text(), "")
    return Outcome(result, report.read_text().splitlines(), run.service, run.leftovers(), run.snapshot() != before)


def wrong_leftovers(outcome: Outcome) -> list[str]:
    out, err = outcome.result.out, outcome.result.err
    allowed = [SHARED_FOLDERS, r"com\.quorvantile\.mac/apps/[^/]*", r"Example((?!\.app).)*",
               r"com\.quorvantile\.claims-.*"]  # a later run removes those
    if re.search("Unable to package source|Unexpected error", out) or re.search("cannot (remove|list|examine)", err):
        allowed.append(r"com\.quorvantile\.ipas/.*")
    # What was inflated stays where no app can be read from it.
    if "Failed to prepare" in out and ("Path To App" not in out or out.count("\n") == 4):
        allowed.append("Example/.*")
    if "Unable to remove item at path" in out:
        allowed.append(r".*\.app.*|.*\.ipa")
    return [f"left behind: {name}" for name in outcome.leftovers if not re.fullmatch("|".join(allowed), name)]


def problems_of_failure(fault: Fault, outcome: Outcome, upload: list[str]) -> list[str]:
    problems = wrong_leftovers(outcome)
    if outcome.result.status == "0":
        problems += outcome.service.complaints
        if outcome.service.calls != CALLS:
            problems.append("success without all calls")
        elif outcome.upload() != upload:
            problems.append(f"success with another upload: {sorted(set(outcome.upload()) ^ set(upload))}")
    elif outcome.result.status != "1":
        problems.append(f"status {outcome.result.status}")
    elif outcome.result.out.count("\n") < 2 and not fault.call.startswith("write:"):
        problems.append("failed without a word")
    return problems


def problems_of_signal(fault: Fault, outcome: Outcome, upload: list[str]) -> list[str]:
    """Either the signal counts, or it came too late and the run ends as ever."""
    if outcome.result.status != f"signal {fault.signal}":
        return ["status 1"] * (outcome.result.status == "1") + problems_of_failure(fault, outcome, upload)
    problems = [f"left behind: {name}" for name in outcome.leftovers if not re.fullmatch(SHARED_FOLDERS, name)]
    line = f"The run was interrupted by {signal.Signals(fault.signal).name}"
    if outcome.result.out.splitlines()[-1:] != [line] or "Failed" in outcome.result.out:
        problems.append("not only the interruption was told")
    return problems


class Walk:
    """Runs in several places at once."""

    def __init__(self, runs: list[Run], callers: int):
        self.runs, self.callers, self.failures = queue.SimpleQueue(), callers, 0
        for run in runs:
            run.shell("pack; echo notes >notes.txt", run.files)
            self.runs.put(run)
        self.pool = concurrent.futures.ThreadPoolExecutor(len(runs))
        self.right = {route: self.attempt(Fault(route, "")) for route in ROUTES}
        for outcome in self.right.values():
            if (outcome.result.status, outcome.service.calls, outcome.service.complaints) != ("0", CALLS, []):
                raise SystemExit(f"a run without a fault failed: {outcome}")

    def attempt(self, fault: Fault) -> Outcome:
        run = self.runs.get()
        try:
            return attempt(run, fault, self.callers)
        finally:
            self.runs.put(run)

    def calls(self, route: str) -> list[str]:
        return list(dict.fromkeys(line.removeprefix("site ") for line in self.right[route].report))

    def one_of_each(self) -> list[Fault]:
        """Of what both routes call, the first route's."""
        routes = {call: route for route in reversed(ROUTES) for call in self.calls(route)}
        return [Fault(route, call) for call, route in routes.items()]

    def signals(self, count: int) -> list[Fault]:
        """All over the runs, but not before the first line: until then a signal is the system's own matter."""
        faults = []
        for route in ROUTES:
            calls = self.calls(route)
            calls = calls[[call.startswith("write:") for call in calls].index(True) + 1:]
            faults += [Fault(route, calls[len(calls) * i // count], signal=SIGNALS[i % 3]) for i in range(count)]
        return faults

    def go(self, faults: list[Fault], judge) -> int:
        """Prints what is wrong. Returns how many runs the signal ended."""
        met = interrupted = 0
        for fault, (outcome, problems) in zip(faults, self.pool.map(lambda fault: self.check(fault, judge), faults)):
            met += "met" in outcome.report
            interrupted += outcome.result.status == f"signal {fault.signal}"
            if "met" not in outcome.report:
                problems.append(f"no run of {ATTEMPTS} came to it")
            for problem in problems:
                print(f"{fault}: {problem}", flush=True)
            if problems:
                self.failures += 1
                print("    " + (outcome.result.out + outcome.result.err).replace("\n", "\n    "), flush=True)
        print(f"{met} of {len(faults)} calls met")
        self.failures += not faults
        return interrupted

    def check(self, fault: Fault, judge) -> tuple[Outcome, list[str]]:
        for _ in range(ATTEMPTS):
            outcome = self.attempt(fault)
            problems = judge(fault, outcome, self.right[fault.route].upload())
            problems += ["the user's files changed"] * outcome.changes_files
            if problems or "met" in outcome.report:
                break
        return outcome, problems


def main() -> int:
    parser = argparse.ArgumentParser(usage=__doc__[__doc__.index("usage: ") + 7:__doc__.index("\n\nSuch")])
    parser.add_argument("-j", type=int, default=os.cpu_count())
    parser.add_argument("--build", type=Path, default=ROOT / "build")
    parser.add_argument("--callers", type=int, default=4)
    parser.add_argument("call", nargs="?")
    options = parser.parse_args()
    with contextlib.ExitStack() as places:
        folder = places.enter_context(tempfile.TemporaryDirectory(prefix="faults-"))
        fixture = Fixture(Path(folder).resolve(), options.build.resolve())
        walk = Walk([places.enter_context(Run(fixture)) for _ in range(options.j)], options.callers)
        walk.go([fault for fault in walk.one_of_each() if options.call in (None, fault.call)], problems_of_failure)
        signals = [] if options.call else walk.signals(12)
        if signals and walk.go(signals, problems_of_signal) < len(signals) // 3:
            walk.failures += 1
            print("too few runs were interrupted")
    return 1 if walk.failures else 0


if __name__ == "__main__":
    sys.exit(main())
