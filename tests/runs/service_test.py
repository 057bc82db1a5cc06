#!/usr/bin/env python3
"""Shows that the stand-in service refuses what is wrong: makes the right requests of one app, then damages
each header, field and byte of them and each part of the app once.

usage: service_test.py CODESIGN
"""
import functools
import plistlib
import shutil
import socket
import sys
import tempfile
import time
from collections.abc import Callable
from dataclasses import replace
from pathlib import Path

from service import (HEADERS, HERE, VERSIONS, Checker, Part, Request, Service, expected_upload, facts_of,
                     output_of, text_part)

KEY, SECRET, HOST = "0" * 40, "abc1", "127.0.0.1:1"
# What the sender may choose.
FREE = ("release_notes[body]", "emails[]", "group_ids[]", "distribution[built_at]", "distribution[file]")


def body_of(form: list[Part]) -> bytes:
    body = b"MIME-Version: 1.0\r\n"
    for part in form:
        body += f'--AaB03x\r\nContent-Disposition: form-data; name="{part.name}"'.encode()
        if part.file_name is not None:
            body += f'; filename="{part.file_name}"\r\nContent-Type: {part.type}\r\n'.encode()
            body += b"Content-Transfer-Encoding: binary"
        else:
            body += b"\r\nContent-Type: text/plain"
        body += b"\r\n\r\n" + part.value + b"\r\n"
    return body + b"--AaB03x--\r\n"


def make_request(request_line: str, form: list[Part] | None) -> Request:
    method, target = request_line.split(" ")
    headers = [*HEADERS.items(), ("X-QUORVANTILE-API-KEY", KEY), ("X-QUORVANTILE-BUILD-SECRET", SECRET),
               ("Host", HOST)]
    if form is None:
        return Request(method, target, headers)
    body = body_of(form)
    headers += [("Content-Type", "multipart/form-data; boundary=AaB03x"), ("Content-Length", str(len(body)))]
    return Request(method, target, headers, body)


class ServiceTest:
    def __init__(self, folder: Path, codesign: str):
        self.made, self.codesign = folder / "made", codesign
        output_of(HERE.parent.parent / "scripts/make-demo-app.sh", self.made, codesign)
        self.app, self.root = self.made / "Payload/Example.app", str(self.made / "root.crt")
        self.change_plist(QuorvantileSignedForDistribution=True)
        self.sign()
        self.forms, self.right = self.right_requests()
        self.count, self.accepted = 0, []

    def right_requests(self) -> tuple[list[list[Part] | None], list[Request]]:
        ipa = self.packed()
        facts = facts_of(ipa, self.root)
        name = "2D9CDC21-9F7B-4E53-92A8-4F3D0B5F1D5C.ipa"
        file = Part("distribution[file]", ipa, name, "application/zip")
        devices = facts.profile["ProvisionedDevices"]
        sent = [text_part("distribution[devices][][udid]", device) for device in devices]
        sent += [text_part("distribution[built_at]", int(time.time())), text_part("send_notifications", True)]
        notes = [("release_notes[body]", "new"), ("release_notes[format]", "text")]
        testers = [("send_notifications", False), ("emails[]", "a@x"), ("emails[]", "b@x"),
                   ("group_ids[]", "g")]
        versions = [(VERSIONS[0], "1.2"), (VERSIONS[1], "345")]
        forms = [None, *([text_part(*pair) for pair in versions + pairs] for pairs in (notes, testers)),
                 expected_upload(facts, sent + [file])]
        base = "/spi/v1/platforms/ios/apps/com.example.demo"
        early = f"{base}/releases/{facts.identifier()}/build_server"
        lines = [f"GET {early}/validate_project", f"PUT {early}/notes", f"PUT {early}/access/enable",
                 f"POST {base}/distributions"]
        return forms, [make_request(line, form) for line, form in zip(lines, forms)]

    def change_plist(self, **changes: object) -> None:
        path = self.app / "Info.plist"
        path.write_bytes(plistlib.dumps(plistlib.loads(path.read_bytes()) | changes))

    def sign(self) -> None:
        output_of(self.codesign, "--force", "--sign", "iPhone Distribution", "--keychain",
                  self.made / "keychain.pem", self.app)

    def packed(self) -> bytes:
        output_of("sh", "-c", f"cd {self.made} && rm -f x.zip && zip -q --symlinks -r x.zip Payload")
        return (self.made / "x.zip").read_bytes()

    def complaints(self, requests: list[Request]) -> list[str]:
        checker = Checker(KEY, SECRET, self.root, host=HOST)
        return [text for request in requests for text in checker.check(request)[2]]

    def refuse(self, name: str, index: int, damaged: Request) -> None:
        self.count += 1
        if not self.complaints(self.right[:index] + [damaged] + self.right[index + 1:]):
            self.accepted.append(f"{damaged.method} {damaged.target}: {name}")

    def refuse_form(self, name: str, index: int, form: list[Part]) -> None:
        self.refuse(name, index, make_request(f"{self.right[index].method} {self.right[index].target}", form))

    def refuse_part(self, name: str, index: int, position: int, **changes: object) -> None:
        form = list(self.forms[index])
        form[position] = replace(form[position], **changes)
        self.refuse_form(name, index, form)

    def damage_head(self, index: int) -> None:
        right = self.right[index]
        for i, (name, value) in enumerate(right.headers):
            rest = right.headers[:i] + right.headers[i + 1:]
            for what, headers in {"missing": rest, "changed": rest + [(name, value + "0")],
                                  "renamed": rest + [(name + "0", value)],
                                  "twice": right.headers + [(name, value)]}.items():
                self.refuse(f"header {name} {what}", index, replace(right, headers=headers))
        self.refuse("one header more", index, replace(right, headers=right.headers + [("X-More", "1")]))
        self.refuse("method", index, replace(right, method="PATCH"))
        pieces = right.target.split("/")
        for i in range(1, len(pieces)):
            target = "/".join(pieces[:i] + [pieces[i] + "0"] + pieces[i + 1:])
            self.refuse(f"piece {i} of the path", index, replace(right, target=target))

    def damage_fields(self, index: int) -> None:
        form = self.forms[index]
        for i, part in enumerate(form):
            if part.name not in ("emails[]", "group_ids[]"):
                self.refuse_form(f"{part.name} missing", index, form[:i] + form[i + 1:])
                self.refuse_form(f"{part.name} twice", index, form[:i + 1] + form[i:])
            if part.name not in FREE:
                self.refuse_part(f"{part.name} changed", index, i, value=part.value + b"0")
            if i > 0 and form[i - 1].name != part.name:
                swapped = form[:i - 1] + [part, form[i - 1]] + form[i + 1:]
                self.refuse_form(f"{part.name} too early", index, swapped)

    def damage_bytes(self, index: int) -> None:
        body, at, free = self.right[index].body, 0, set()
        for part in self.forms[index]:
            start = body.index(b"\r\n\r\n", body.index(part.name.encode(), at)) + 4
            if part.file_name:
                name = body.index(part.file_name.encode())
                free.update(range(name, name + len(part.file_name)))
            at = start + len(part.value)
            if part.name in FREE:
                free.update(range(start, at))
        for i in set(range(len(body))) - free:
            flipped = body[:i] + bytes([body[i] ^ 1]) + body[i + 1:]
            self.refuse(f"byte {i} of the body", index, replace(self.right[index], body=flipped))

    def damage_file(self) -> None:
        name = self.forms[3][-1].file_name
        for wrong in (name.lower(), name[1:], name.replace(".ipa", ".zip"), "../" + name):
            self.refuse_part(f"file called {wrong}", 3, -1, file_name=wrong)
        place = [part.name for part in self.forms[3]].index("distribution[built_at]")
        for value in ("", "now", int(time.time()) - 700, int(time.time()) + 700):
            self.refuse_part(f"time {value}", 3, place, value=str(value).encode())

    def damage_app(self, name: str, change: Callable[[], object]) -> None:
        """Changes the app, sends it, and takes the change back."""
        kept = self.made / "kept"
        shutil.copytree(self.made / "Payload", kept, symlinks=True)
        change()
        self.refuse_part(f"app with {name}", 3, -1, value=self.packed())
        shutil.rmtree(self.made / "Payload")
        kept.rename(self.made / "Payload")

    def flip_executable(self) -> None:
        data = bytearray((self.app / "Example").read_bytes())
        data[-40000] ^= 1
        (self.app / "Example").write_bytes(data)

    def change_and_sign(self, **changes: object) -> None:
        self.change_plist(**changes)
        self.sign()

    def damage_apps(self) -> None:
        self.damage_app("one byte of its executable changed", self.flip_executable)
        self.damage_app("a resource changed", lambda: (self.app / "PkgInfo").write_text("APPL???!"))
        self.damage_app("a resource more", lambda: (self.app / "more").write_text("more"))
        self.damage_app("no signature", lambda: shutil.rmtree(self.app / "_CodeSignature"))
        other = self.app.with_name("Other.app")
        self.damage_app("another beside it", lambda: shutil.copytree(self.app, other, symlinks=True))
        for key, value in {"CFBundleVersion": "346", "QuorvantileSignedForDistribution": False,
                           "CFBundleIdentifier": "com.example.other", "UIDeviceFamily": [1]}.items():
            change = functools.partial(self.change_and_sign, **{key: value})
            self.damage_app(f"{key} changed, then signed", change)
        self.root = str(self.made / "leaf.crt")
        self.refuse("another root", 3, self.right[3])

    def over_the_wire(self) -> list[str]:
        """Sends the right requests and a wrong one; returns what is not as it should be."""
        statuses = []
        with (Service(Checker(KEY, SECRET, self.root)) as service,
              socket.create_connection(("127.0.0.1", service.port)) as connection):
            answers = connection.makefile("rb")
            for request in self.right + [replace(self.right[0], target="/none")]:
                headers = dict(request.headers) | {"Host": f"127.0.0.1:{service.port}"}
                head = "".join(f"{name}: {value}\r\n" for name, value in headers.items())
                line = f"{request.method} {request.target} HTTP/1.1\r\n"
                connection.sendall(f"{line}{head}\r\n".encode() + request.body)
                statuses.append(answers.readline().split()[1].decode())
                while (line := answers.readline()) != b"\r\n":
                    size = int(line.split()[1]) if line.startswith(b"Content-Length") else 0
                answers.read(size)
        right = statuses == ["200", "200", "200", "202", "400"] and len(service.complaints) == 1
        return [] if right else [f"statuses {statuses}", *service.complaints]


def main() -> int:
    with tempfile.TemporaryDirectory() as folder:
        test = ServiceTest(Path(folder), sys.argv[1])
        problems = test.complaints(test.right) + test.over_the_wire()
        for index in range(4):
            test.damage_head(index)
        for index in range(1, 4):
            test.damage_fields(index)
            test.damage_bytes(index)
        test.damage_file()
        test.damage_apps()
    for problem in problems:
        print("a right request:", problem)
    for name in test.accepted:
        print("not refused:", name)
    print(f"{test.count} damaged requests, {test.count - len(test.accepted)} refused")
    return 1 if problems or test.accepted else 0


if __name__ == "__main__":
    sys.exit(main())
