#!/usr/bin/env python3
"""A stand-in for the release service on loopback, stricter than any real one.

Each request is compared with what this build of the app must send: method, path, headers, the form's
exact bytes and order of fields, and the uploaded .ipa, which other programs take apart (unzip, openssl,
LLVM's dwarfdump, check_signature.py). A right request gets the response of its call, any other 400 with
the complaints. "(null)" in a path, from an app without a readable executable, is accepted.

usage: service.py [--port N] [--key API_KEY] [--secret BUILD_SECRET] [--root PEM] [--save FOLDER]
                  [--tls PEM] [--behave OCCASION=STEPS]... [--record FOLDER]

As a program it prints its address, then each request, until it is ended; status 0 when all were right. Into
the folder of --record go the bytes of all requests, in files that are numbered from 0. service_test.py shows
that it refuses what is wrong.
"""
import argparse
import contextlib
import fnmatch
import functools
import hashlib
import json
import plistlib
import re
import signal
import socket
import ssl
import struct
import subprocess
import sys
import tempfile
import textwrap
import threading
import time
import urllib.parse
from dataclasses import dataclass, field
from pathlib import Path

HERE = Path(__file__).resolve().parent
CALLS = {"GET validate_project": "validate", "PUT notes": "notes", "PUT access/enable": "testers",
         "POST distributions": "upload"}
RIGHT_STATUS = {"validate": "200", "notes": "200", "testers": "200", "upload": "202"}
HEADERS = {"User-Agent": "uploader/19", "Accept": "application/json, application/x-plist",
           "X-QUORVANTILE-DEVELOPER-TOKEN": "389eabecb56021e9d618c5d32c6afc83b458bfdd"}
FAMILIES = {1: "iPhone", 2: "iPad"}
VERSIONS = ("app[display_version]", "app[build_version]")


@dataclass
class Request:
    """Headers are pairs in the order and spelling of the request."""
    method: str
    target: str
    headers: list[tuple[str, str]]
    body: bytes = b""
    head: bytes = b""

    @staticmethod
    def parse(head: bytes, body: bytes = b"") -> "Request":
        first, *lines = head.decode("latin-1").split("\r\n")[:-2]
        method, _, rest = first.partition(" ")
        headers = [(line.partition(":")[0], line.partition(":")[2].strip()) for line in lines]
        return Request(method, rest.removesuffix(" HTTP/1.1"), headers, body, head)

    def header(self, name: str) -> str | None:
        return next((value for key, value in self.headers if key.lower() == name.lower()), None)


@dataclass
class Part:
    """A part of a form; only a file has a file name and a type."""
    name: str
    value: bytes
    file_name: str | None = None
    type: str | None = None

    def __str__(self) -> str:
        if self.file_name is not None:
            return f"{self.name} = {self.file_name}, {self.type}, {len(self.value)} bytes"
        text = self.value.decode(errors="replace")
        plain = len(text) <= 200 and all(c >= " " or c == "\n" for c in text)
        return f"{self.name} = {text if plain else f'<{len(self.value)} bytes>'}"


def text_part(name: str, value: object) -> Part:
    if isinstance(value, bool):
        value = "true" if value else "false"
    return Part(name, str(value).encode())


def values_of(form: list[Part], name: str) -> list[str]:
    return [part.value.decode(errors="replace") for part in form if part.name == name]


DELIMITER = b"\r\n--AaB03x"
PART_HEAD = re.compile(
    rb'\r\nContent-Disposition: form-data; name="([^"]*)"(?:; filename="([^"]*)"\r\nContent-Type: ([^\r\n]*)'
    rb"\r\nContent-Transfer-Encoding: binary|\r\nContent-Type: text/plain)\r\n\r\n")


def form_of(body: bytes) -> list[Part]:
    """Raises ValueError unless the body is a form that is byte for byte as the service expects it."""
    start = b"MIME-Version: 1.0" + DELIMITER
    if not body.startswith(start):
        raise ValueError("not the beginning of a form")
    parts, at = [], len(start)
    while at != len(body) - 4 or not body.endswith(b"--\r\n"):
        head = PART_HEAD.match(body, at)
        end = body.find(DELIMITER, head.end()) if head else -1
        if end < 0:
            raise ValueError(f"form, byte {at}: not a part, and not the end")
        name, file_name, kind = (text and text.decode() for text in head.groups())
        parts.append(Part(name, body[head.end():end], file_name, kind))
        at = end + len(DELIMITER)
    return parts


def output_of(*command: object) -> bytes:
    done = subprocess.run([str(word) for word in command], capture_output=True, check=False)
    if done.returncode != 0:
        raise ValueError(f"{command[0]} ended with {done.returncode}: "
                         f"{(done.stdout + done.stderr).decode(errors='replace').strip()}")
    return done.stdout


@functools.cache
def llvm(tool: str) -> Path:
    return Path(output_of("llvm-config", "--bindir").decode().strip()) / tool


@dataclass
class Facts:
    """What an .ipa holds; slices are pairs of architecture and UUID, in file order."""
    info: dict
    profile: dict
    slices: list[tuple[str, str]]
    names: list[str]
    problems: list[str] = field(default_factory=list)

    def identifier(self) -> str:
        ordered = sorted(self.slices, key=lambda pair: pair[0])
        return hashlib.sha1("".join(uuid for _, uuid in ordered).encode()).hexdigest()


def slices_of(executable: Path) -> list[tuple[str, str]]:
    lines = output_of(llvm("llvm-dwarfdump"), "--uuid", executable).decode()
    found = re.findall(r"^UUID: (\S+) \((\S+)\)", lines, re.MULTILINE)
    return [(architecture, uuid.replace("-", "").lower()) for uuid, architecture in found]


def signature_problems(app: Path, root: str | None) -> list[str]:
    """What check_signature.py says; without a root certificate the chain is not looked at."""
    command = [sys.executable, "-S", "-E", HERE.parent / "support/check_signature.py", app]
    done = subprocess.run(command + (["--root", root] if root else []), capture_output=True, check=False)
    lines = (done.stdout + done.stderr).decode(errors="replace").splitlines()
    return lines if done.returncode else []


@functools.lru_cache(maxsize=4)
def facts_of(ipa: bytes, root: str | None) -> Facts:
    """Raises ValueError unless the bytes are an .ipa with one app, its profile and its executable."""
    with tempfile.TemporaryDirectory() as folder:
        place = Path(folder)
        (place / "x.zip").write_bytes(ipa)
        output_of("unzip", "-qo", place / "x.zip", "-d", place)
        names = output_of("unzip", "-Z1", place / "x.zip").decode(errors="replace").splitlines()
        apps = [path for path in place.glob("Payload/*") if path.suffix == ".app"]
        if len(apps) != 1:
            raise ValueError(f"the .ipa has {len(apps)} apps")
        try:
            info = plistlib.loads((apps[0] / "Info.plist").read_bytes())
            profile = plistlib.loads(output_of("openssl", "cms", "-verify", "-noverify", "-inform", "DER",
                                               "-in", apps[0] / "embedded.mobileprovision"))
        except (OSError, plistlib.InvalidFileException) as error:
            raise ValueError(str(error)) from error
        slices = slices_of(apps[0] / info.get("CFBundleExecutable", "none"))
        return Facts(info, profile, slices, names, signature_problems(apps[0], root))


def is_true(value: object) -> bool:
    """Whether the platform reads the value of a property list as true."""
    return value.strip()[:1] in set("YyTt123456789") if isinstance(value, str) else bool(value)


def expected_upload(facts: Facts, received: list[Part]) -> list[Part]:
    """Devices may be in any order; the time and the notifications are the sender's choice."""
    def text_of(name: str, key: str) -> list[Part]:
        return [text_part(name, facts.info[key])] if isinstance(facts.info.get(key), str) else []

    def sent(name: str) -> list[Part]:
        return [text_part(name, (values_of(received, name) + ["(missing)"])[0])]
    attributes = "distribution[platform_attributes]"
    families = facts.info.get("UIDeviceFamily", [])
    families = [FAMILIES.get(item, "unknown") if type(item) is int else "unknown" for item in families]
    form = text_of(VERSIONS[0], "CFBundleShortVersionString") + text_of(VERSIONS[1], "CFBundleVersion")
    form += [part for part in received if part.name == "distribution[devices][][udid]"]
    form += sent("distribution[built_at]") + [
        text_part("app[type]", "ios_app"),
        text_part(attributes + "[enterprise]", is_true(facts.profile.get("ProvisionsAllDevices"))),
        text_part(attributes + "[devices]", ",".join(families))]
    form += text_of(attributes + "[min_os]", "MinimumOSVersion")
    form += [text_part(attributes + "[newsstand]", is_true(facts.info.get("UINewsstandapp")))]
    for architecture, uuid in facts.slices:
        form += [text_part("app[slices][][arch]", architecture), text_part("app[slices][][uuid]", uuid)]
    form += [text_part(attributes + "[architectures]", ",".join(name for name, _ in facts.slices)),
             text_part("app[instance_identifier]", facts.identifier())]
    return form + sent("send_notifications") + received[-1:]


def difference(expected: list[Part], received: list[Part]) -> list[str]:
    for i in range(max(len(expected), len(received))):
        wanted, found = ((form + [None] * i)[i] for form in (expected, received))
        if wanted != found:
            return [f"field {i + 1} should be {wanted or 'nothing'} and is {found or 'nothing'}"]
    return []


@dataclass
class Checker:
    """Compares requests with each other and with the app they are about.

    Where key or secret are None, any of the right form will do, but the same in each request. Without
    `opens_ipa` the .ipa stays unopened, and so the fields that describe it are not checked.
    """
    key: str | None = None
    secret: str | None = None
    root: str | None = None
    opens_ipa: bool = True
    host: str | None = None
    builds: dict[str, str] = field(default_factory=dict)  # of the apps that were validated
    versions: dict[str, list[Part]] = field(default_factory=dict)

    def call_of(self, request: Request) -> tuple[str, str, str | None] | None:
        """Call, bundle identifier, and build unless it is an upload; None when it is none of the calls."""
        path = "/spi/v1/platforms/ios/apps/([^/]+)/(?:releases/([^/]+)/build_server/)?(.+)"
        match = re.fullmatch(path, request.target)
        call = CALLS.get(f"{request.method} {match[3]}") if match else None
        if call is None or (call == "upload") == (match[2] is not None):
            return None
        return call, urllib.parse.unquote(match[1]), match[2]

    def check(self, request: Request) -> tuple[list[Part], list[str]]:
        """Returns the call's form and the complaints."""
        address = self.call_of(request)
        if address is None:
            return [], [f"no such call: {request.method} {request.target}"]
        call, app, build = address
        complaints = self.check_headers(request, call)
        if call == "validate":
            self.builds[app] = build
            self.versions.pop(app, None)
            return [], complaints + (["a GET with a body"] if request.body else [])
        if app not in self.builds or build not in (None, self.builds[app]):
            complaints.append("not the app and build that were validated")
        try:
            form = form_of(request.body)
            versions = [part for part in form if part.name in VERSIONS]
            if self.versions.setdefault(app, versions) != versions:
                complaints.append("not the versions of the calls before")
            check = {"notes": self.check_notes, "testers": self.check_testers, "upload": self.check_upload}
            return form, complaints + check[call](form, app)
        except ValueError as error:
            return [], complaints + [str(error)]

    def check_headers(self, request: Request, call: str) -> list[str]:
        key, secret = (request.header(f"X-QUORVANTILE-{name}") or "-" for name in ("API-KEY", "BUILD-SECRET"))
        if self.key is None and re.fullmatch("[0-9a-fA-F]{40}", key):
            self.key = key
        if self.secret is None and re.fullmatch("[0-9a-fA-F]+", secret):
            self.secret = secret
        wanted = HEADERS | {"X-QUORVANTILE-API-KEY": self.key, "X-QUORVANTILE-BUILD-SECRET": self.secret,
                            "Host": self.host or request.header("Host")}
        if call != "validate":
            wanted |= {"Content-Type": "multipart/form-data; boundary=AaB03x",
                       "Content-Length": str(len(request.body))}
        if (encoding := request.header("Accept-Encoding")) is not None:
            wanted["Accept-Encoding"] = encoding
        found = sorted((name.lower(), value) for name, value in request.headers)
        expected = sorted((name.lower(), str(value)) for name, value in wanted.items())
        return ([f"no header {name}: {value}" for name, value in expected if (name, value) not in found]
                + [f"header {name}: {value}" for name, value in found
                   if found.count((name, value)) > expected.count((name, value))])

    def check_notes(self, form: list[Part], app: str) -> list[str]:
        body = (values_of(form, "release_notes[body]") + [""])[0]
        notes = [text_part("release_notes[body]", body), text_part("release_notes[format]", "text")]
        return difference(self.versions[app] + notes, form)

    def check_testers(self, form: list[Part], app: str) -> list[str]:
        people = [part for name in ("emails[]", "group_ids[]") for part in form if part.name == name]
        wrong = [] if people else ["nobody to enable"]
        wrong += [f"{part.name} has a line break" for part in people if b"\n" in part.value]
        return wrong + difference(self.versions[app] + [text_part("send_notifications", False)] + people, form)

    def check_upload(self, form: list[Part], app: str) -> list[str]:
        complaints = []
        built_at = "".join(values_of(form, "distribution[built_at]"))
        if not re.fullmatch("[0-9]{1,15}", built_at) or abs(int(built_at) - time.time()) > 600:
            complaints.append("distribution[built_at] is not about now")
        if values_of(form, "send_notifications") not in (["true"], ["suppress"]):
            complaints.append("send_notifications is neither true nor suppress")
        file = form[-1] if form else Part("", b"")
        name = "[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.ipa"
        if (file.name, file.type) != ("distribution[file]", "application/zip"):
            return complaints + ["the last part is not distribution[file]"]
        if not re.fullmatch(name, file.file_name):
            complaints.append(f"the file is called {file.file_name}")
        return complaints + (self.check_ipa(form, app, facts_of(file.value, self.root)) if self.opens_ipa else [])

    def check_ipa(self, form: list[Part], app: str, facts: Facts) -> list[str]:
        complaints = facts.problems + difference(expected_upload(facts, form), form)
        devices = set(facts.profile.get("ProvisionedDevices", []))
        if sorted(values_of(form, "distribution[devices][][udid]")) != sorted(devices):
            complaints.append("the devices are not those of the profile")
        if facts.identifier() != self.builds.get(app):
            complaints.append(f"the .ipa is build {facts.identifier()}, before it was {self.builds.get(app)}")
        if facts.info.get("CFBundleIdentifier") != app:
            complaints.append("the .ipa is another app than the calls before were about")
        if not is_true(facts.info.get("QuorvantileSignedForDistribution")):
            complaints.append("the .ipa's Info.plist is not marked for distribution")
        return complaints


class Connection:
    """The server's end of a connection. Whatever goes wrong with it, and its own end, is an OSError."""

    def __init__(self, peer: socket.socket, address: tuple[str, int]):
        self.socket, self.input, self.client = peer, peer.makefile("rb"), address[1]
        self.host: str | None = None  # that of its requests

    def start_tls(self, certificate: Path) -> None:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(certificate)
        self.input.close()
        self.socket = context.wrap_socket(self.socket, server_side=True, suppress_ragged_eofs=False)
        self.input = self.socket.makefile("rb")

    def head(self) -> bytes:
        """The next request's, or nothing at the end."""
        lines = []
        while lines[-1:] != [b"\r\n"]:
            lines.append(self.input.readline())
            if not lines[-1].endswith(b"\n"):
                return b""
        return b"".join(lines)

    def stall(self) -> None:
        """Waits for the client to end the connection."""
        while self.input.read1():
            pass

    def cut(self) -> None:
        """Ends TCP without TLS's closing message."""
        self.input.close()
        self.socket.close()
        raise ConnectionAbortedError

    def reset(self) -> None:
        """Ends with a TCP reset: unread and unsent bytes are lost."""
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.cut()

    def close(self) -> None:
        """An orderly end, that of TLS included."""
        if isinstance(self.socket, ssl.SSLSocket):
            with contextlib.suppress(OSError, ValueError):
                self.socket.settimeout(5)
                self.socket.unwrap()
        with contextlib.suppress(OSError):
            self.socket.shutdown(socket.SHUT_WR)
        self.cut()


ESCAPES = {b"r": b"\r", b"n": b"\n", b"t": b"\t", b"\\": b"\\"}


def repeated(text: str) -> str:
    """The text with "<3*ab>" written out as "ababab"."""
    return re.sub(r"<(\d+)\*(.*?)>", lambda match: int(match[1]) * match[2], text)


def unescaped(text: str) -> bytes:
    r"""The text with \r, \n, \t, \\ and \xNN resolved."""
    return re.sub(rb"\\([rnt\\]|x[0-9a-f]{2})",
                  lambda match: ESCAPES.get(match[1]) or bytes([int(match[1][1:], 16)]), text.encode())


class Service:
    """The service on a port of 127.0.0.1, with what it saw. Each connection has a thread.

    `behaviours` says how it acts at a call ("validate", "notes", "testers", "upload"), at another target that
    matches a pattern ("/moved/*"), at "any" request, a proxy's "connect", or a new "connection", in steps joined
    by " then ":
        STATUS [with HEADER: VALUE]... [saying BODY]
        send BYTES | repeat BYTES | take N | wait SECONDS | run COMMAND | close | cut | reset | stall
    BYTES and BODY are read by `repeated` and `unescaped`; {target}, {port}, {key} and {client}, the client's
    port, are filled in. Steps that begin with "early" come before the body is read and checked; the connection
    ends after them. " next " joins what is done at the first request, the second and so on. With `tunnels` it is
    a proxy that is the end of its own tunnels. `tls` is a file with certificate and key.
    """

    def __init__(self, checker: Checker | None = None, behaviours: dict[str, str] | None = None,
                 port: int = 0, tls: Path | None = None, tunnels: bool = False, recorded: Path | None = None,
                 run=lambda command: None):
        self.checker, self.behaviours, self.run = checker or Checker(), dict(behaviours or {}), run
        self.tls, self.tunnels, self.recorded = tls, tunnels, recorded
        self.calls: list[str] = []
        self.forms: dict[str, list[Part]] = {}
        self.requests: list[Request] = []
        self.complaints: list[str] = []
        self.connects: list[str] = []
        self.observer = lambda request, form, complaints: None
        self.lock, self.connections, self.threads = threading.Lock(), [], []
        self.listener = socket.create_server(("127.0.0.1", port), backlog=1024)
        self.port = self.listener.getsockname()[1]
        self.acceptor = threading.Thread(target=self.accept)
        self.acceptor.start()

    def url(self) -> str:
        start = "https://localhost" if self.tls and not self.tunnels else "http://127.0.0.1"
        return f"{start}:{self.port}"

    def stop(self) -> None:
        """Ends every connection and waits for its thread."""
        self.listener.shutdown(socket.SHUT_RDWR)
        self.acceptor.join()
        for connection in self.connections:
            with contextlib.suppress(OSError):
                socket.socket.shutdown(connection.socket, socket.SHUT_RDWR)
        for thread in self.threads:
            thread.join()
        self.listener.close()

    def accept(self) -> None:
        with contextlib.suppress(OSError):
            while True:
                self.connections.append(Connection(*self.listener.accept()))
                self.threads.append(threading.Thread(target=self.serve, args=self.connections[-1:]))
                self.threads[-1].start()

    def serve(self, connection: Connection) -> None:
        with contextlib.suppress(OSError):
            try:
                if self.act(connection, "connection"):
                    return
                if self.tls and not self.tunnels:
                    connection.start_tls(self.tls)
                while (head := connection.head()) and self.serve_one(connection, Request.parse(head)):
                    pass
            finally:
                connection.close()

    def serve_one(self, connection: Connection, request: Request) -> bool:
        """Returns whether more requests may come."""
        if request.method == "CONNECT" and self.tunnels:
            return self.open_tunnel(connection, request)
        if self.act(connection, "any", request):
            return False
        occasion = self.occasion_of(request)
        if self.behaviours.get(occasion, "").startswith("early "):
            self.record(request, occasion, [], [])
            return not self.act(connection, occasion, request)
        size = int(request.header("Content-Length") or 0)
        request.body = connection.input.read(size)
        if len(request.body) == size:
            self.answer(connection, request, occasion)
        return len(request.body) == size

    def occasion_of(self, request: Request) -> str:
        """Its call, or the first pattern that its target matches."""
        address = self.checker.call_of(request)
        patterns = (name for name in self.behaviours if fnmatch.fnmatchcase(request.target, name))
        return address[0] if address else next(patterns, "none")

    def open_tunnel(self, connection: Connection, request: Request) -> bool:
        self.connects.append(request.target)
        if self.act(connection, "connect", request):
            return False
        connection.host = request.target.removesuffix(":443")
        connection.socket.sendall(b"HTTP/1.1 200 OK\r\n\r\n")
        connection.start_tls(self.tls)
        return True

    def record(self, request: Request, occasion: str, form: list[Part], complaints: list[str]) -> None:
        with self.lock:
            if self.recorded:
                (self.recorded / str(len(self.requests))).write_bytes(request.head + request.body)
            self.requests.append(request)
            self.calls.append(occasion)
            self.forms[occasion] = form
            self.complaints += [f"{request.target if occasion == 'none' else occasion}: {complaint}"
                                for complaint in complaints]

    def answer(self, connection: Connection, request: Request, occasion: str) -> None:
        if occasion in self.behaviours and occasion not in RIGHT_STATUS:
            self.record(request, occasion, [], [])
            self.act(connection, occasion, request)
            return
        with self.lock:
            self.checker.host = connection.host or self.url().partition("://")[2]
            form, complaints = self.checker.check(request)
        self.record(request, occasion, form, complaints)
        self.observer(request, form, complaints)
        if complaints:
            message = json.dumps({"error": {"message": "; ".join(complaints)}}).replace("\\", "\\\\")
            self.perform(connection, "400 with Content-Type: application/json saying " + message, request)
        elif not self.act(connection, occasion, request):
            self.perform(connection, RIGHT_STATUS[occasion], request)

    def act(self, connection: Connection, occasion: str, request: Request | None = None) -> bool:
        """Does what is wanted on this occasion; returns whether there is anything."""
        if occasion not in self.behaviours:
            return False
        with self.lock:
            steps, _, later = self.behaviours[occasion].partition(" next ")
            self.behaviours[occasion] = later or steps
        self.perform(connection, steps, request)
        return True

    def perform(self, connection: Connection, steps: str, request: Request | None = None) -> None:
        values = {"port": self.port, "target": request and request.target, "key": self.checker.key,
                  "client": connection.client}
        steps = re.sub(r"\{(port|target|key|client)\}", lambda name: str(values[name[1]]), steps)
        for step in steps.removeprefix("early ").split(" then "):
            match repeated(step).partition(" "):
                case "send", _, rest:
                    connection.socket.sendall(unescaped(rest))
                case "repeat", _, rest:
                    while True:
                        connection.socket.sendall(unescaped(rest))
                case "take", _, rest:
                    connection.input.read(int(rest))
                case "wait", _, rest:
                    time.sleep(float(rest))
                case "run", _, rest:
                    self.run(rest)
                case "close" | "cut" | "reset" | "stall" as verb, _, _:
                    getattr(connection, verb)()
                case status, _, rest:
                    connection.socket.sendall(response(status, rest))


def response(status: str, rest: str) -> bytes:
    """The bytes of "STATUS [with HEADER: VALUE]... [saying BODY]"."""
    headers, _, body = (" " + rest).partition(" saying ")
    content = unescaped(body)
    lines = [f"HTTP/1.1 {status} Answer", *headers.split(" with ")[1:], f"Content-Length: {len(content)}"]
    return "\r\n".join([*lines, "", ""]).encode() + content


def describe(request: Request, form: list[Part], complaints: list[str]) -> str:
    """The request for people, with credentials shortened."""
    headers = [f"{name}: {value}" for name, value in request.headers]
    headers = [re.sub("^(X-QUORVANTILE.*: .{4}).+", r"\1…", header) for header in headers]
    verdict = [f"REFUSED: {complaint}" for complaint in complaints] or ["ACCEPTED"]
    lines = [f"{request.method} {request.target}", *headers, *[""] * bool(form), *map(str, form), *verdict]
    return textwrap.indent("\n".join(lines), "    ") + "\n"


def main() -> int:
    parser = argparse.ArgumentParser(usage=__doc__[__doc__.index("usage: ") + 7:])
    parser.add_argument("--port", type=int, default=0)
    for name in ("--key", "--secret", "--root", "--save", "--tls"):
        parser.add_argument(name)
    parser.add_argument("--behave", action="append", default=[])
    parser.add_argument("--record", type=Path)
    options = parser.parse_args()

    def observer(request: Request, form: list[Part], complaints: list[str]) -> None:
        print(describe(request, form, complaints), flush=True)
        if options.save and form and form[-1].file_name and not complaints:
            (Path(options.save) / form[-1].file_name).write_bytes(form[-1].value)

    signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGINT, signal.SIGTERM})
    behaviours = dict(behaviour.split("=", 1) for behaviour in options.behave)
    service = Service(Checker(options.key, options.secret, options.root), behaviours, options.port,
                      options.tls, recorded=options.record)
    service.observer = observer
    print(f"listening on {service.url()}\n", flush=True)
    signal.sigwait({signal.SIGINT, signal.SIGTERM})
    service.stop()
    return 1 if service.complaints else 0


if __name__ == "__main__":
    sys.exit(main())
