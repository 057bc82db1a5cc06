#!/usr/bin/env python3
"""Runs that need more than a row of text: signals at chosen moments, and several runs at once.

usage: special.py [-j N] [--build FOLDER] [CASE...]
"""
import argparse
import concurrent.futures
import contextlib
import fcntl
import os
import re
import shlex
import signal
import struct
import sys
import tempfile
import termios
import time
from pathlib import Path

from run import ROOT, Fixture, Result, Run, Running

CASES = {}
SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
SHARED_FOLDERS = {"com.quorvantile.ipas", "com.quorvantile.mac", "com.quorvantile.mac/apps",
                  "com.quorvantile.mac/distributions"}
BANNER = "Quorvantile.framework/sendoff 1.3.6 (19)"
NOBODY = "http://127.0.0.1:1"


def case(function):
    """Each case gets the fixture and raises AssertionError where something is wrong."""
    CASES[function.__name__] = function
    return function


def expect(what: str, wanted: object, seen: object) -> None:
    assert wanted == seen, f"{what}: expected {wanted}\n{' ' * len(what)}  seen {seen}"


def eventually(condition, what: str):
    """Waits for something true and returns it."""
    end = time.monotonic() + 30
    while not (found := condition()):
        assert time.monotonic() < end, f"waited in vain: {what}"
        time.sleep(0.005)
    return found


def place(fixture: Fixture, **behaviours: str) -> Run:
    run = Run(fixture, "signed", behaviours=behaviours)
    run.shell("pack; echo notes >notes.txt", run.files)
    return run


def start(run: Run, more: str = "", before: str = "", url: str | None = None) -> Running:
    """A run that makes every call. The process is the tool's own."""
    return run.start(f"{before} exec $SENDOFF $KEY $SECRET -ipaPath $IPA -notesPath notes.txt -emails a@x.org "
                     f"-QuorvantileAPIEndpoint {url or run.service.url()} {more}")


def output(run: Run) -> str:
    return (run.streams / "out").read_text()


def items_left(run: Run) -> list[str]:
    return [name for name in run.leftovers() if name not in SHARED_FOLDERS]


def expect_interrupted(run: Run, result: Result, by: int) -> None:
    """Ended by this signal, told in one line and nothing else, the run's files gone."""
    expect("status", f"signal {by:d}", result.status)
    expect("last line", f"The run was interrupted by {signal.Signals(by).name}", result.out.splitlines()[-1])
    assert not re.search("Failed|Unable", result.out), f"told as a failure: {result.out}"
    expect("left", [], items_left(run))


def interrupt(run: Run, running: Running, by: int, limit: float = 60) -> None:
    running.process.send_signal(by)
    expect_interrupted(run, running.wait(limit), by)


def set_of_signals(process: int, name: str) -> int:
    found = re.search(rf"^{name}:\s*(\w+)", Path(f"/proc/{process}/status").read_text(), re.MULTILINE)
    return int(found[1], 16)


def has(signals: int, which: int) -> bool:
    return signals >> (which - 1) & 1 == 1


def is_ready_for(process: int, which: int) -> bool:
    """Whether the tool (rather than the shell before it) has a handler for the signal."""
    return Path(f"/proc/{process}/comm").read_text() == "sendoff\n" and has(set_of_signals(process, "SigCgt"), which)


def is_gone(process: int) -> bool:
    """A process that has ended counts, even where nobody has taken its status yet."""
    try:
        return Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0] == "Z"
    except (FileNotFoundError, ProcessLookupError):
        return True


# ---- Tools that hang

# The tools of a run, counted together, do their work; in one of the calls they then do more.
COUNTED_TOOL = r"""
case ${0##*/} in
  xcrun) echo "${0%/*}/$2" ;;
  codesign) HOME=$W/home "$TOOLS/codesign" "$@" ;;
  *) "/usr/bin/${0##*/}" "$@" ;;
esac
status=$?
read -r n <"$W/calls"
echo $((n + 1)) >"$W/calls"
[ "$n" != "$(cat "$W/hangs-after")" ] || . "$W/hang"
exit $status"""
HANG = 'sleep 600 & echo $$ $! >"$W/hanging.new"; mv "$W/hanging.new" "$W/hanging"; wait'
CALLS_OF_A_RUN = 8  # unzip, xcrun twice, codesign four times, zip


def hang_in_call(run: Run, call: int, hang: str = HANG) -> None:
    run.shell(f"""
        for name in unzip zip xcrun codesign; do tool $name {shlex.quote(COUNTED_TOOL)}; done
        echo 0 >$W/calls; echo {call - 1} >$W/hangs-after; echo {shlex.quote(hang)} >$W/hang; rm -f $W/hanging""")


def hanging(run: Run) -> list[int]:
    """The tool that hangs, and its child."""
    return eventually(lambda: [int(word) for word in run.work.joinpath("hanging").read_text().split()]
                      if (run.work / "hanging").exists() else [], f"a tool that hangs: {output(run)}")


def interrupt_hanging_tool(run: Run, call: int, by: int, hang: str = HANG, more: str = "") -> None:
    hang_in_call(run, call, hang)
    running = start(run, more)
    processes = hanging(run)
    running.process.send_signal(by)
    running.wait_for_end()
    # Before the rest of the session is killed.
    eventually(lambda: all(map(is_gone, processes)), f"the end of the tool in call {call}")
    expect_interrupted(run, running.wait(), by)
    expect("calls of the service", [], run.service.calls)


@case
def while_a_tool_runs(fixture: Fixture) -> None:
    with place(fixture) as run:
        for call in range(1, CALLS_OF_A_RUN + 1):
            interrupt_hanging_tool(run, call, SIGNALS[call % 3])


@case
def a_tool_that_does_not_want_to_end(fixture: Fixture) -> None:
    with place(fixture) as run:
        interrupt_hanging_tool(run, 1, signal.SIGTERM, "trap '' TERM; " + HANG)


@case
def an_ignored_signal_stays_ignored(fixture: Fixture) -> None:
    with place(fixture) as run:
        for ignored in SIGNALS:
            hang_in_call(run, 2)
            running = start(run, before=f"trap '' {ignored.name};")
            hanging(run)
            running.process.send_signal(ignored)
            interrupt(run, running, signal.SIGINT if ignored == signal.SIGTERM else signal.SIGTERM)


@case
def a_folder_that_was_there_keeps_what_it_held(fixture: Fixture) -> None:
    with place(fixture) as run:
        run.shell("mkdir -p $T/Example/Payload; echo mine | tee $T/Example/mine.txt >$T/Example/Payload/notes.txt")
        hang_in_call(run, 1)
        running = start(run)
        hanging(run)
        running.process.send_signal(signal.SIGTERM)
        expect("status", f"signal {signal.SIGTERM:d}", running.wait().status)
        expect("left", ["Example", "Example/Payload", "Example/Payload/notes.txt", "Example/mine.txt"], items_left(run))


@case
def while_it_waits_for_another_run(fixture: Fixture) -> None:
    """The second run must leave alone what the first one is at."""
    with place(fixture) as first, place(fixture) as second:
        second.environment["TMPDIR"] = str(first.temporary)
        hang_in_call(first, 1)
        running = start(first)
        hanging(first)
        before = first.leftovers()
        assert "Example/Payload/Example.app/Info.plist" in before, before
        waiting = start(second, "-debug YES")
        line = f"Waiting for another run that uses {first.temporary}/Example\n"
        eventually(lambda: line in output(second), line)
        waiting.process.send_signal(signal.SIGINT)
        result = waiting.wait()
        expect("status", f"signal {signal.SIGINT:d}", result.status)
        expect("last line", "The run was interrupted by SIGINT", result.out.splitlines()[-1])
        expect("left", before, first.leftovers())
        interrupt(first, running, signal.SIGTERM)


# ---- A service that keeps the run waiting

# By itself a run that does not notice a signal is ended five seconds later.
PROMPTLY = 4


@case
def while_the_service_is_waited_for(fixture: Fixture) -> None:
    for count, call in enumerate(("validate", "notes", "testers", "upload"), 1):
        with place(fixture, **{call: "stall"}) as run:
            running = start(run)
            eventually(lambda: len(run.service.calls) == count, call)
            interrupt(run, running, SIGNALS[count % 3], PROMPTLY)


@case
def while_the_notes_are_waited_for(fixture: Fixture) -> None:
    with place(fixture) as run:
        os.mkfifo(run.files / "pipe")
        running = start(run, "-notesPath pipe")

        def writer() -> int | None:
            try:
                return os.open(run.files / "pipe", os.O_WRONLY | os.O_NONBLOCK)
            except OSError:  # nobody reads
                return None
        with open(eventually(writer, "a reader of the notes"), "wb"):
            interrupt(run, running, signal.SIGINT, PROMPTLY)


@case
def while_the_upload_goes_out(fixture: Fixture) -> None:
    """More than the system takes in advance, and the service reads none of it."""
    with place(fixture, upload="early run until [ -e $W/over ]; do sleep 0.1; done") as run:
        run.shell("rm $IPA; noise $((16 << 20)) >$A/noise; sign; zip -0 -q --symlinks -r $IPA Payload", run.files)
        running = start(run)
        port = f":{run.service.port:04X}"

        def unsent() -> bool:
            lines = [line.split() for line in Path("/proc/net/tcp").read_text().splitlines()]
            return any(words[2].endswith(port) and int(words[4].partition(":")[0], 16) > 0 for words in lines[1:])
        try:
            eventually(lambda: "upload" in run.service.calls and unsent(), "an upload that is stuck")
            interrupt(run, running, signal.SIGTERM, PROMPTLY)
        finally:
            (run.work / "over").touch()


# ---- A console that nobody reads

class Console:
    """A pipe in place of standard output with room for so many bytes."""

    def __init__(self, run: Run, room: int = 0):
        self.path = run.work / "console"
        os.mkfifo(self.path)
        self.end = os.open(self.path, os.O_RDWR | os.O_NONBLOCK)
        page = os.sysconf("SC_PAGESIZE")
        try:
            while os.write(self.end, bytes(page)):
                pass
        except BlockingIOError:
            self.size = self.filled()
        if room:
            os.read(self.end, page)  # a pipe is emptied by the page
            os.write(self.end, bytes(page - room))

    def filled(self) -> int:
        return struct.unpack("i", fcntl.ioctl(self.end, termios.FIONREAD, bytes(4)))[0]

    def __enter__(self) -> "Console":
        return self

    def __exit__(self, *_) -> None:
        os.close(self.end)
        self.path.unlink()


@case
def a_second_signal_ends_the_run_at_once(fixture: Fixture) -> None:
    """Otherwise the first one would end it, in seconds."""
    with place(fixture) as run, Console(run):
        running = start(run, ">$W/console")
        eventually(lambda: is_ready_for(running.process.pid, signal.SIGINT), "a handler")
        running.process.send_signal(signal.SIGINT)
        eventually(lambda: not has(set_of_signals(running.process.pid, "ShdPnd"), signal.SIGINT), "delivery")
        running.process.send_signal(signal.SIGTERM)
        expect("status", f"signal {signal.SIGTERM:d}", running.wait().status)


def hold_up(run: Run, room: int, written: int, folder: str) -> None:
    with Console(run, room) as console:
        running = start(run, ">$W/console")
        eventually(lambda: is_ready_for(running.process.pid, signal.SIGINT), "a handler")
        eventually(lambda: (run.temporary / folder).exists(), f"the folder {folder}")
        eventually(lambda: console.filled() == console.size - room + written, "a run that waits for the console")
        running.process.send_signal(signal.SIGINT)
        expect("status", f"signal {signal.SIGINT:d}", running.wait().status)
        expect("left", [], items_left(run))


@case
def a_console_that_nobody_reads_in_the_first_line(fixture: Fixture) -> None:
    with place(fixture) as run:
        hold_up(run, 0, 0, "")


@case
def a_console_that_nobody_reads_in_the_last_line(fixture: Fixture) -> None:
    """When the inflated app would stay otherwise."""
    with place(fixture) as run:
        run.shell("rm $P $IPA; pack", run.files)
        expect("status", "1", start(run).wait().status)
        assert "Example" in items_left(run)
        run.shell("rm -r $T/Example")
        lines = output(run).splitlines(keepends=True)
        hold_up(run, len("".join(lines)) - 1, len("".join(lines[:-1])), "Example")


# ---- Several runs at once

@case
def runs_at_once(fixture: Fixture) -> None:
    """Each ends as it would alone. All .ipa files have one name; two of them hold apps of one name, too."""
    rounds = int(os.environ.get("SENDOFF_TEST_ROUNDS", "3"))
    with contextlib.ExitStack() as places:
        runs = [places.enter_context(place(fixture)) for _ in range(4)]
        for number, (run, name) in enumerate(zip(runs, ("Example", "Example", "Other", "Third"))):
            run.environment["TMPDIR"] = str(runs[0].temporary)
            run.shell(f"""
                plist $A/Info.plist CFBundleIdentifier=com.example.app{number}
                profile Entitlements/application-identifier=ABCDE12345.com.example.app{number}
                sign; rm $IPA; [ {name} = Example ] || mv $A $F/Payload/{name}.app; pack""")
        for _ in range(rounds):
            command = "exec $SENDOFF $KEY $SECRET -ipaPath $IPA -QuorvantileAPIEndpoint $URL"
            for running in [run.start(command) for run in runs]:
                expect("end", Result("0", f"{BANNER}\nUploaded Successfully 202\n", ""), running.wait())
        for number, run in enumerate(runs):
            expect("complaints", [], run.service.complaints)
            expect("calls", ["validate", "upload"] * rounds, run.service.calls)
            assert all(f"/com.example.app{number}/" in request.target for request in run.service.requests)
        expect("left", ["Example", "Example/Payload", "com.quorvantile.ipas", "com.quorvantile.mac",
                        "com.quorvantile.mac/distributions"], runs[0].leftovers())


# ---- Few descriptors

@case
def few_descriptors(fixture: Fixture) -> None:
    """A run with too few of them says so; with enough it succeeds."""
    if fixture.variables()["SANITIZE"]:
        return print("skipped: few_descriptors, since a sanitizer has descriptors of its own")
    statuses = []
    with place(fixture) as run:
        before = run.snapshot()
        for limit in (4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 18, 20, 24, 32):
            result = start(run, before=f"ulimit -n {limit};").wait()
            statuses.append(result.status)
            what = f"with {limit} descriptors: {result.out}{result.err}"
            assert result.status in "01", f"status {result.status} {what}"
            assert result.status == "0" or result.out.count("\n") > 1, f"nothing said {what}"
            expect(f"uploads {what}", statuses.count("0"), run.service.calls.count("upload"))
            expect(f"complaints {what}", [], run.service.complaints)
            assert before == run.snapshot(), f"changed files {what}"
            wrong = [name for name in run.leftovers() if re.search(r"\.ipa$|\.app$|claims", name)]
            expect(f"left {what}", [], [name for name in wrong if not name.startswith("com.quorvantile.ipas/")])
            run.shell("rm -rf $T/*")
    expect("successes after failures", ["0", "1"], sorted(set(statuses)))
    return None


# ---- sendoff-inspect

@case
def watching_archives(fixture: Fixture) -> None:
    """The location is waited for, its archives are told, and it is waited for again when it has gone."""
    with Run(fixture) as run:
        location = run.home / "Library/Developer/Xcode/Archives"
        running = run.start("exec $INSPECT archives --watch")

        def told(line: str, times: int) -> None:
            eventually(lambda: output(run).splitlines().count(line) >= times, f"{line}, {times} times: {output(run)}")
        told(f"not there yet, waiting for it: {location}", 1)
        for times in (1, 2):
            location.mkdir(parents=True)
            told(f"watching {location}", times)
            (location / "03-01").mkdir()
            told(f"new archive in {location}", times)
            run.shell(f"archive; mv $ARCHIVE '{location}/03-01'")
            told(f"new archive in {location}/03-01", times)
            run.shell(f"rm -r '{location}'")
            told(f"gone, waiting for it to come back: {location}", times)
        running.process.send_signal(signal.SIGINT)
        expect("status", f"signal {signal.SIGINT:d}", running.wait().status)


@case
def an_interrupted_inspection(fixture: Fixture) -> None:
    """Nothing of the .ipa that it inflates is left, not even the slow unzip."""
    with place(fixture) as run:
        run.shell("tool unzip 'echo $$ >$W/hanging.new; mv $W/hanging.new $W/hanging; exec sleep 600'")
        running = run.start("exec $INSPECT app $IPA")
        unzip, = hanging(run)
        assert run.leftovers(), "nothing was begun"
        running.process.send_signal(signal.SIGINT)
        running.wait_for_end()
        assert is_gone(unzip), "unzip still runs"
        expect("status", f"signal {signal.SIGINT:d}", running.wait().status)
        expect("left", [], run.leftovers())


def problem_of(name: str, fixture: Fixture) -> str:
    try:
        CASES[name](fixture)
        return ""
    except Exception as error:
        return str(error) or repr(error)


def main() -> int:
    parser = argparse.ArgumentParser(usage=__doc__[__doc__.index("usage: ") + 7:])
    parser.add_argument("-j", type=int, default=2 * os.cpu_count())
    parser.add_argument("--build", type=Path, default=ROOT / "build")
    parser.add_argument("names", nargs="*", metavar="CASE")
    options = parser.parse_args()
    failures = 0
    names = options.names or list(CASES)
    pool = concurrent.futures.ThreadPoolExecutor(options.j)
    with tempfile.TemporaryDirectory(prefix="special-") as folder:
        fixture = Fixture(Path(folder).resolve(), options.build.resolve())
        for name, problem in zip(names, pool.map(lambda name: problem_of(name, fixture), names)):
            if problem:
                failures += 1
                print(f"{name}\n    " + problem.replace("\n", "\n    "), flush=True)
    print(f"{len(names)} cases, {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
