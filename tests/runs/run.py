#!/usr/bin/env python3
"""Runs rows: whole runs of the programs as lines of text.

usage: run.py [-j N] [--build FOLDER] FILE.rows [NAME...]

A row names a run, says what happens to the app before it and what must come out of it. A file looks so:

    include: common.settings             settings of another file come first
    columns: app | status | out          the keys of the cells after a row's name
    @profile: Unable to read …           @profile stands for this text from here on
    err: …                               what a row does not say itself

    no profile | rm $P | 1 | @profile
        left: Example/Payload            further keys of the row above it

Cells are separated by " | ", the items of a list by "; " ("\\; " is no separator). "…" in an expected line is
anything, and as a line of its own any number of lines. $F and the like (see Run.variables) are filled in
everywhere. A file may use keys of its own, as {name} in commands. These are known:

    app      shell commands in the folder of the app, a copy of the demo's; functions.sh has helpers for them
    source   "signed" or "unsigned": which app it is
    pack     shell commands after those; by default they make $IPA and $ARCHIVE
    run      the command, in the folder of the files
    routes   the ways to run it; "key.ROUTE" is the key for one of them only
    status   the exit status; "signal N" where a signal ended it
    first    the lines that `out` goes on from
    out err  the lines of the two streams, without their time stamps
    json     "PATH=VALUE" of the document that was printed, as `value_at` has them
    calls    the service's calls in order
    form     "[CALL] FIELD=VALUE,VALUE" of what it got, "-" where there is no field
    complaints  what it is to complain about
    left     patterns for what is left in the temporary folder besides plain folders
    tree     exactly all that is left there, as a list
    changes  what may change of the rest of the work folder: patterns
    check    a command that must succeed afterwards; the service got the .ipa $UPLOADED and the $REQUESTS
    hidden   "no" where the key and the secret may show up in the output
    needs    a command without whose success the row is skipped
    limit    seconds that the run may take
    connects what the proxy was asked to connect to
    tls      the service's certificate, as `Fixture.certificate` has it; `tunnels` makes it a proxy
    validate notes testers upload any connect connection   how the service behaves, see service.py

Nothing of what belongs to others (the folder $OUTSIDE) may change, be printed or be sent.
"""
import argparse
import concurrent.futures
import fnmatch
import functools
import hashlib
import json
import os
import re
import select
import shlex
import shutil
import subprocess
import sys
import tempfile
import threading
from dataclasses import dataclass
from pathlib import Path

from service import Checker, Service, llvm, output_of, repeated, unescaped, values_of

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
KEY, SECRET = "0123456789abcdefABCDEF0123456789abcdef01", "5ec3e75ec3e75ec3e7"
MARK = b"CANARY-CONTENT"
STAMP = re.compile(r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} [\w-]+(?:\[\d+\]| Quorvantile:) ", re.MULTILINE)
BEHAVIOURS = {"validate", "notes", "testers", "upload", "any", "connect", "connection"}
KEYS = BEHAVIOURS | set("app source pack run routes status first out err json calls form complaints left tree "
                        "changes check hidden needs limit connects tls tunnels columns".split())
PLACEHOLDER = re.compile(r"(?<!\$)\{([a-z]+)\}")


class Fixture:
    """What all runs share, made once: the demo's app, signed and unsigned, its identity, and certificates."""

    def __init__(self, folder: Path, build: Path):
        self.folder, self.build, self.lock = folder, build, threading.Lock()
        self.made, self.tools = folder / "made", build / "libexec/sendoff"
        output_of(ROOT / "scripts/make-demo-app.sh", self.made, self.tools / "codesign")
        self.signed = self.made / "Payload/Example.app"
        self.unsigned = folder / "unsigned/Example.app"
        shutil.copytree(self.signed, self.unsigned, symlinks=True)
        shutil.rmtree(self.unsigned / "_CodeSignature")
        shutil.copy(self.made / "universal", self.unsigned / "Example")
        self.canary = folder / "outside"
        self.shell("""
            link "$LIBRARY" arm64 9.0 -dylib
            mkdir -p "$OUTSIDE/empty"
            cp -a "$SIGNED" "$OUTSIDE/Canary.app"
            cd "$OUTSIDE/Canary.app"
            echo CANARY-CONTENT |tee ../secret.txt _CodeSignature/other >_CodeSignature/CodeResources
            plist Info.plist CFBundleIdentifier=CANARY-CONTENT QuorvantileSignedForDistribution=true
            profile Name=CANARY-CONTENT""", W=folder, OUTSIDE=self.canary, P="embedded.mobileprovision")

    def shell(self, script: str, **variables: object) -> None:
        command = script_of(script, self.variables() | variables)
        output_of("bash", "-e", "-c", command)

    @functools.cache
    def variables(self) -> dict[str, object]:
        cache = (self.build / "CMakeCache.txt").read_text()
        options = dict(re.findall(r"^SENDOFF_(\w+):\w+=(.*)$", cache, re.MULTILINE))
        return {
            "LIBRARY": self.folder / "library", "RUNS": HERE, "MADE": self.made, "TOOLS": self.tools,
            "SIGNED": self.signed, "SCRIPTS": ROOT / "scripts", "LLVM": llvm("clang").parent,
            "SENDOFF": self.build / "bin/sendoff", "INSPECT": self.build / "bin/sendoff-inspect",
            "GOOD": self.made / "Example.ipa", "AUTHORITY": self.folder / "tls/authority.pem",
            "KEY": KEY, "SECRET": SECRET, "SANITIZE": options["SANITIZE"],
            "API_HOST": options["API_BASE_URL"].partition("//")[2], "SETTINGS_PAGE": options["SETTINGS_PAGE_URL"],
            "UPLOAD_HOST": options["UPLOAD_BASE_URL"].partition("//")[2]}

    def certificate(self, hosts: str) -> Path:
        """Certificate and key of these hosts, as "A,B", issued by $AUTHORITY; "expired" is localhost's of old."""
        path = self.folder / "tls" / f"{hosts}.pem"
        with self.lock:
            if not path.exists():
                self.shell("server_certificate", FOLDER=path.parent, HOSTS=hosts)
        return path


def script_of(script: str, variables: dict[str, object]) -> str:
    """The script with the variables set, unexported, and with the helpers of functions.sh."""
    lines = [f"{name}={shlex.quote(str(value))}" for name, value in variables.items()]
    return "\n".join([*lines, f". {HERE}/functions.sh", script])


@dataclass
class Result:
    """How a run ended: its status ("signal N" for a signal), and its streams without time stamps."""
    status: str
    out: str
    err: str


class Running:
    """A program on its way, in a session of its own; `kill` ends all of it."""

    def __init__(self, command: list[object], environment: dict[str, str], folder: Path, streams: Path):
        self.streams = streams
        with open(streams / "out", "wb") as out, open(streams / "err", "wb") as err:
            self.process = subprocess.Popen(
                ["env", "--default-signal=INT,QUIT,TERM,HUP", *map(str, command)], stdin=subprocess.DEVNULL,
                stdout=out, stderr=err, env=environment, cwd=folder, start_new_session=True)

    def kill(self) -> None:
        try:
            os.killpg(self.process.pid, 9)
        except ProcessLookupError:
            pass

    def wait(self, limit: float = 60) -> Result:
        """Raises TimeoutError when the end does not come within the limit."""
        # `Popen.wait` would look now and then, and take up to 50 ms more.
        with open(os.pidfd_open(self.process.pid), "rb") as end:
            has_ended = select.select([end], [], [], limit)[0]
        self.kill()
        status = self.process.wait()
        out, err = ((self.streams / name).read_text(errors="replace") for name in ("out", "err"))
        if not has_ended:
            raise TimeoutError(f"no end within {limit:g} seconds; so far:\n{out}{err}")
        return Result(str(status) if status >= 0 else f"signal {-status}", STAMP.sub("", out), STAMP.sub("", err))


class Run:
    """A place of its own for runs of the tool: files, home, temporary folder, what belongs to others, a service."""

    def __init__(self, fixture: Fixture, source: str = "unsigned", tls: str = "", tunnels: bool = False,
                 behaviours: dict[str, str] | None = None):
        self.fixture, self.work = fixture, Path(tempfile.mkdtemp(prefix="run-", dir=fixture.folder))
        self.files, self.home, self.temporary = (self.work / name for name in ("files", "home", "temporary"))
        self.streams, self.outside = self.work / "streams", self.work / "outside"
        for folder in (self.files / "Payload", self.home / "Library/Keychains", self.temporary, self.streams):
            folder.mkdir(parents=True)
        self.started: list[Running] = []
        self.app, self.ipa = self.files / "Payload/Example.app", self.files / "Example.ipa"
        shutil.copytree(getattr(fixture, source), self.app, symlinks=True)
        shutil.copytree(fixture.canary, self.outside, symlinks=True)
        shutil.copy(fixture.made / "keychain.pem", self.home / "Library/Keychains/identity.pem")
        self.environment = {name: value for name, value in os.environ.items()
                            if name == "PATH" or name.endswith("SAN_OPTIONS")}
        self.environment |= {"HOME": str(self.home), "TMPDIR": str(self.temporary),
                             "PATH": f"{self.work}/tools:{os.environ['PATH']}"}
        self.service = Service(Checker(KEY, SECRET, str(fixture.made / "root.crt")), behaviours, tunnels=tunnels,
                               tls=fixture.certificate(tls) if tls else None, run=self.shell)

    def __enter__(self) -> "Run":
        return self

    def __exit__(self, *_) -> None:
        for running in self.started:
            if running.process.returncode is None:
                running.kill()
                running.process.wait()
        self.service.stop()
        output_of("chmod", "-R", "u+rwX", self.work)
        shutil.rmtree(self.work)

    def variables(self) -> dict[str, object]:
        return self.fixture.variables() | {
            "W": self.work, "F": self.files, "H": self.home, "T": self.temporary, "OUTSIDE": self.outside,
            "A": self.app, "P": self.app / "embedded.mobileprovision", "IPA": self.ipa,
            "ARCHIVE": self.files / "Example.xcarchive", "UPLOADED": self.work / "uploaded.ipa",
            "REQUESTS": self.work / "requests",
            "OUT": self.streams / "out", "ERR": self.streams / "err",
            "URL": self.service.url(), "PORT": self.service.port}

    def shell(self, script: str, folder: Path | None = None) -> None:
        """Runs commands that must succeed; raises ValueError otherwise."""
        if script in ("", ":"):
            return
        command = ["bash", "-e", "-c", script_of(script, self.variables())]
        done = subprocess.run(command, cwd=folder or self.work, env=self.environment, capture_output=True,
                              stdin=subprocess.DEVNULL, check=False)
        if done.returncode != 0:
            said = (done.stdout + done.stderr).decode(errors="replace")
            raise ValueError(f"{script.strip()}: status {done.returncode} {said}")

    def start(self, script: str) -> Running:
        """Starts a shell command in the folder of the files. What still runs at the end of this object is killed."""
        command = ["bash", "-c", script_of(script, self.variables())]
        self.started.append(Running(command, self.environment, self.files, self.streams))
        return self.started[-1]

    def run(self, script: str, limit: float = 60) -> Result:
        return self.start(script).wait(limit)

    def leftovers(self) -> list[str]:
        return sorted(str(path.relative_to(self.temporary)) for path in self.temporary.rglob("*"))

    def snapshot(self) -> dict[str, str]:
        """Kind, mode and content of everything that a run has no business to change, by path."""
        found = {}
        for root in (self.files, self.home, self.outside):
            for path in root.rglob("*"):
                mode = path.lstat().st_mode
                content = os.readlink(path) if path.is_symlink() else digest_of(path) if path.is_file() else ""
                found[str(path.relative_to(self.work))] = f"{mode:o} {content}"
        return found

    def save_requests(self) -> None:
        lines = [f"{request.method} {request.target}\n" for request in self.service.requests]
        (self.work / "requests").write_text("".join(lines))
        form = self.service.forms.get("upload")
        if form:
            (self.work / "uploaded.ipa").write_bytes(form[-1].value)

    def strangers_content(self) -> list[str]:
        """What of $OUTSIDE was printed or sent."""
        texts = {name: (self.streams / name).read_bytes() for name in ("out", "err")}
        for request in self.service.requests:
            texts[request.target] = request.head + request.body
        if (self.work / "uploaded.ipa").exists():
            unzip = ["unzip", "-p", self.work / "uploaded.ipa"]
            texts["the .ipa"] = subprocess.run(unzip, capture_output=True, check=False).stdout
        return [f"what belongs to others is in {name}" for name, text in texts.items() if MARK in text]


def digest_of(path: Path) -> str:
    with open(path, "rb") as file:
        return hashlib.file_digest(file, "sha256").hexdigest()


class Rows:
    """A file of rows: settings, macros, and for each row its keys."""

    def __init__(self, path: Path):
        self.settings: dict[str, str] = {"pack": "pack"}
        self.macros: dict[str, str] = {}
        self.rows: list[tuple[str, dict[str, str]]] = []
        self.used: set[str] = set()  # in commands, by the name in braces
        self.read(path)
        for name, keys in self.rows:
            if unknown := {key.partition(".")[0] for key in keys} - KEYS - self.used:
                raise SystemExit(f"{path}: {name}: nobody knows the key {', '.join(sorted(unknown))}")

    def read(self, path: Path) -> None:
        for number, line in enumerate(path.read_text().splitlines(), 1):
            if not line.strip() or line.startswith("#"):
                continue
            self.used.update(PLACEHOLDER.findall(line))
            setting = re.match(r"\s*(@?[a-z][\w.-]*):(?: +(.*))?$", line)
            if line.startswith(" ") and setting and self.rows:
                assign(self.rows[-1][1], setting[1], self.expand(setting[2] or ""))
            elif setting and not line.startswith(" "):
                self.set(path, setting[1], self.expand(setting[2] or ""))
            elif re.search(r" \|( |$)", line):
                self.add_row(line)
            else:
                raise SystemExit(f"{path}:{number}: not a row and not a setting: {line}")

    def set(self, path: Path, key: str, value: str) -> None:
        if key == "include":
            self.read(path.with_name(value))
        elif key.startswith("@"):
            self.macros[key[1:]] = value
        else:
            assign(self.settings, key, value)

    def add_row(self, line: str) -> None:
        cells = [self.expand(cell.strip()) for cell in re.split(r"(?<= )\|(?= |$)", line.strip())]
        columns = self.settings["columns"].split(" | ")
        if len(cells) > len(columns) + 1:
            raise SystemExit(f"too many cells: {line}")
        keys = dict(self.settings)
        for column, cell in zip(columns, cells[1:]):
            assign(keys, column, cell)
        self.rows.append((cells[0], keys))

    def expand(self, text: str) -> str:
        for name in sorted(self.macros, key=len, reverse=True):
            text = text.replace("@" + name, self.macros[name])
        return text


def filled(text: str, variables: dict[str, object]) -> str:
    """The text with the variables in place of "$NAME"."""
    names = "|".join(sorted(variables, key=len, reverse=True))
    return re.sub(rf"\$({names})", lambda match: str(variables[match[1]]), text)


def assign(keys: dict[str, str], key: str, value: str) -> None:
    """Sets a key. What was set for one of the routes only goes."""
    for name in [name for name in keys if name.startswith(key + ".")]:
        del keys[name]
    keys[key] = value


def pattern_of(lines: list[str]) -> re.Pattern:
    """Matches exactly these lines; "…" is anything within one, or any lines."""
    parts = [r"(?:.*\n)*" if line == "…" else ".*".join(map(re.escape, line.split("…"))) + "\n" for line in lines]
    return re.compile("".join(parts))


def value_at(document: object, path: str) -> str:
    """What a document has at "a.b.0.c"; other values than texts as JSON."""
    for key in path.split("."):
        document = document[int(key) if isinstance(document, list) else key]
    return document if isinstance(document, str) else json.dumps(document)


def items_of(text: str) -> list[str]:
    return [item.replace("\\; ", "; ") for item in re.split(r"(?<!\\); ", text)] if text else []


class RowRun:
    """One row on one route."""

    def __init__(self, fixture: Fixture, keys: dict[str, str], route: str):
        self.fixture, self.keys, self.route = fixture, keys, route
        self.problems: list[str] = []

    def key(self, name: str, default: str = "") -> str:
        return self.keys.get(f"{name}.{self.route}", self.keys.get(name, default))

    def command(self, name: str) -> str:
        """The key with the keys that it has in braces."""
        return PLACEHOLDER.sub(lambda match: self.key(match[1]), self.key(name))

    def expected(self, name: str) -> str:
        """The key with variables and repetitions written out."""
        return repeated(filled(self.key(name), self.run.variables()))

    def expect(self, what: str, wanted: str, seen: str) -> None:
        if wanted != seen:
            shown = [text if "\n" not in text.strip() else "\n" + text for text in (wanted.strip(), seen.strip())]
            self.problems.append(f"{what}: expected {shown[0]}\n{' ' * len(what)}  seen {shown[1]}")

    def expect_lines(self, what: str, wanted: list[str], seen: str) -> None:
        if not pattern_of(wanted).fullmatch(seen if seen.endswith("\n") or not seen else seen + "\n"):
            self.expect(what, "\n".join(wanted) + "\n", seen.strip())

    def mention(self, what: str, names: list[str]) -> None:
        if names:
            more = f" and {len(names) - 3} more" if len(names) > 3 else ""
            self.problems.append(f"{what}: {', '.join(names[:3])}{more}")

    def execute(self) -> list[str]:
        place = Run(self.fixture, self.key("source", "unsigned"),
                    filled(self.key("tls"), self.fixture.variables()), self.key("tunnels") == "yes",
                    {name: self.key(name) for name in BEHAVIOURS if self.key(name)})
        with place as self.run:
            try:
                try:
                    self.run.shell(self.key("needs"))
                except ValueError as error:
                    print(f"skipped: a row that needs {error}")
                    return []
                self.run.shell(self.command("app"), self.run.app)
                self.run.shell(self.command("pack"), self.run.files)
                before = self.run.snapshot()
                result = self.run.run(self.command("run"), float(self.key("limit", "60")))
                self.compare(result, before)
            except (ValueError, LookupError, OSError) as error:
                self.problems.append(str(error))
        return self.problems

    def compare(self, result: Result, before: dict[str, str]) -> None:
        self.expect("status", self.key("status", "0"), result.status)
        for name, first in (("out", self.expected("first")), ("err", "")):
            self.expect_lines(name, items_of(first) + items_of(self.expected(name)), getattr(result, name))
        if self.key("hidden") != "no" and any(text in result.out + result.err for text in (KEY, SECRET)):
            self.problems.append("the key or the secret is in the output")
        self.compare_service()
        self.compare_files(before)
        self.problems += self.run.strangers_content()
        for item in items_of(self.expected("json")):
            path, _, wanted = item.partition("=")
            self.expect(path, wanted, value_at(json.loads(result.out), path))
        if self.key("check"):
            self.run.shell(self.command("check"))

    def compare_service(self) -> None:
        self.expect_lines("complaints", items_of(self.key("complaints")), "\n".join(self.run.service.complaints))
        if "calls" in self.keys:
            self.expect("calls", self.key("calls"), " ".join(self.run.service.calls))
        if "connects" in self.keys:
            self.expect("connects", self.expected("connects"), " ".join(self.run.service.connects))
        for item in items_of(self.expected("form")):
            match = re.fullmatch(r"(?:(\w+) )?(.*?)=(.*)", item, re.DOTALL)
            values = values_of(self.run.service.forms.get(match[1] or "upload", []), match[2])
            self.expect(match[2], unescaped(match[3]).decode(), ",".join(values) if values else "-")

    def compare_files(self, before: dict[str, str]) -> None:
        self.run.save_requests()
        after = self.run.snapshot()
        changed = sorted(path for path in before.keys() | after.keys() if before.get(path) != after.get(path))
        allowed = self.expected("changes").split()
        self.mention("changed", [path for path in changed if not any(fnmatch.fnmatch(path, p) for p in allowed)])
        if "tree" in self.keys:
            self.expect("tree", self.key("tree"), "; ".join(self.run.leftovers()))
        patterns = self.key("left").split()
        paths = {name: self.run.temporary / name for name in self.run.leftovers()}
        left = {name: {pattern for pattern in patterns if fnmatch.fnmatch(name, pattern)}
                for name, path in paths.items() if path.suffix == ".app" or path.is_symlink() or not path.is_dir()}
        self.mention("left behind", [name for name, found in left.items() if not found])
        self.mention("not left behind", sorted(set(patterns).difference(*left.values())))


def run_row(fixture: Fixture, keys: dict[str, str]) -> list[str]:
    problems = []
    for route in keys.get("routes", "run").split():
        problems += [f"({route}) {problem}" for problem in RowRun(fixture, keys, route).execute()]
    return problems


def main() -> int:
    parser = argparse.ArgumentParser(usage=__doc__[__doc__.index("usage: ") + 7:])
    parser.add_argument("-j", type=int, default=os.cpu_count())
    parser.add_argument("--build", type=Path, default=ROOT / "build")
    parser.add_argument("file", type=Path)
    parser.add_argument("names", nargs="*")
    options = parser.parse_args()
    rows = [row for row in Rows(options.file).rows if not options.names or row[0] in options.names]
    failures = 0 if rows else 1
    with (tempfile.TemporaryDirectory(prefix="runs-") as folder,
          concurrent.futures.ThreadPoolExecutor(options.j) as pool):
        os.chmod(folder, 0o755)
        fixture = Fixture(Path(folder).resolve(), options.build.resolve())
        results = pool.map(functools.partial(run_row, fixture), [keys for _, keys in rows])
        for (name, _), problems in zip(rows, results):
            if problems:
                failures += 1
                print(name, *"\n".join(problems).split("\n"), sep="\n    ", flush=True)
    print(f"{options.file.name}: {len(rows)} rows, {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
