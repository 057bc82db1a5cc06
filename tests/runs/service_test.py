#!/usr/bin/env python3
"""Shows that the stand-in service refuses what is wrong: records the requests of a run, then damages each header,
field and byte of them and each part of the app once.

usage: service_test.py [--build FOLDER]
"""
import argparse
import re
import sys
import tempfile
import time
from pathlib import Path

from run import KEY, ROOT, SECRET, Fixture, Run
from service import DELIMITER, PART_HEAD, Checker, Request

RUN = ("$SENDOFF $KEY $SECRET -ipaPath $IPA -QuorvantileAPIEndpoint $URL -emails a@x,b@x -groupAliases g "
       "-notesPath /dev/stdin <<<new")
# What the sender may choose, and of what there may be any number.
FREE = (b"release_notes[body]", b"emails[]", b"group_ids[]", b"distribution[built_at]", b"distribution[file]")
ANY_NUMBER = (b"emails[]", b"group_ids[]")
# Changes of single values of the upload.
FILE_NAME, TIME = rb'(?<=filename=")[^"]+', rb'(?<=built_at\]"\r\nContent-Type: text/plain\r\n\r\n)\d+'
VALUES = {"file name in small letters": (FILE_NAME, lambda name: name.lower()),
          "shorter file name": (FILE_NAME, lambda name: name[1:]),
          "file name of another kind": (FILE_NAME, lambda name: name.replace(b".ipa", b".zip")),
          "file name that climbs": (FILE_NAME, lambda name: b"../" + name),
          "no time": (TIME, lambda _: b""), "no number as time": (TIME, lambda _: b"now"),
          "early time": (TIME, lambda _: b"%d" % (time.time() - 700)),
          "late time": (TIME, lambda _: b"%d" % (time.time() + 700))}
# Changes of the app, after each of which the service gets it once.
APPS = ("flip Example $(($(stat -c %s Example) - 40000))", "printf 'APPL???!' >PkgInfo", "echo more >more",
        "rm -r _CodeSignature", "cp -a . ../Other.app", "plist Info.plist CFBundleVersion=346; sign",
        "plist Info.plist QuorvantileSignedForDistribution=false; sign",
        "plist Info.plist CFBundleIdentifier=com.example.other; sign", "plist Info.plist UIDeviceFamily=[1]; sign")


class Damage:
    """Sends the four requests, one of them damaged, to the service's checker."""

    def __init__(self, requests: list[Request], root: str, host: str):
        # An encoding may be accepted or not.
        self.right = [(re.sub(rb"Accept-Encoding: .*\r\n", b"", request.head), request.body) for request in requests]
        self.root, self.host, self.count, self.accepted = root, host, 0, []

    def complaints(self, requests: list[tuple[bytes, bytes]]) -> list[str]:
        checker = Checker(KEY, SECRET, self.root, host=self.host)
        return [text for head, body in requests for text in checker.check(Request.parse(head, body))[1]]

    def refuse(self, name: str, index: int, head: bytes | None = None, body: bytes | None = None) -> None:
        """The length fits a damaged body."""
        right_head, right_body = self.right[index]
        if body is not None:
            head = right_head.replace(b"Length: %d" % len(right_body), b"Length: %d" % len(body))
        self.count += 1
        damaged = head, right_body if body is None else body
        if not self.complaints(self.right[:index] + [damaged] + self.right[index + 1:]):
            self.accepted.append(f"request {index + 1}: {name}")

    def damage_head(self, index: int) -> None:
        head = self.right[index][0]
        for i in range(len(head) - 4):
            self.refuse(f"byte {i} of the head", index, head[:i] + bytes([head[i] ^ 1]) + head[i + 1:])
        for line in head.split(b"\r\n")[1:-2]:
            self.refuse(f"no {line}", index, head.replace(line + b"\r\n", b""))
            self.refuse(f"twice {line}", index, head.replace(line, line + b"\r\n" + line))
        self.refuse("one header more", index, head[:-2] + b"X-More: 1\r\n\r\n")

    def damage_body(self, index: int) -> None:
        body, free, before = self.right[index][1], set(), None
        for part in PART_HEAD.finditer(body):
            name, start, end = part[1], part.start(), body.index(DELIMITER, part.end()) + len(DELIMITER)
            if name in FREE:
                free.update(range(part.end(), end - len(DELIMITER)))
            if part[2]:
                free.update(range(*part.span(2)))
            if name not in ANY_NUMBER:
                self.refuse(f"no {name}", index, body=body[:start] + body[end:])
                self.refuse(f"twice {name}", index, body=body[:end] + body[start:])
            if before and before[1] != name:
                swapped = body[start:end] + body[before.start():start]
                self.refuse(f"{name} too early", index, body=body[:before.start()] + swapped + body[end:])
            before = part
        for i in set(range(len(body))) - free:
            self.refuse(f"byte {i} of the body", index, body=body[:i] + bytes([body[i] ^ 1]) + body[i + 1:])

    def damage_upload(self, run: Run) -> None:
        body = self.right[3][1]
        for name, (pattern, change) in VALUES.items():
            self.refuse(name, 3, body=re.sub(pattern, lambda match: change(match[0]), body, count=1))
        run.shell("rm -r Payload $IPA; unzip -q $UPLOADED; cp -a Payload $W/kept", run.files)
        start = body.index(b"PK\3\4")
        for change in APPS:
            run.shell(change, run.app)
            run.shell("pack; rm -r Payload; cp -a $W/kept Payload", run.files)
            self.refuse(f"app after {change}", 3, body=body[:start] + run.ipa.read_bytes() + DELIMITER + b"--\r\n")
            run.ipa.unlink()
        self.root = str(run.fixture.made / "leaf.crt")
        self.refuse("another root", 3, *self.right[3])


def main() -> int:
    parser = argparse.ArgumentParser(usage=__doc__[__doc__.index("usage: ") + 7:])
    parser.add_argument("--build", type=Path, default=ROOT / "build")
    build = parser.parse_args().build.resolve()
    with tempfile.TemporaryDirectory() as folder, Run(Fixture(Path(folder).resolve(), build), "signed") as run:
        run.shell("pack", run.files)
        result = run.run(RUN)
        run.save_requests()
        damage = Damage(run.service.requests, run.service.checker.root, f"127.0.0.1:{run.service.port}")
        problems = [str(result)] * (result.status != "0") + run.service.complaints + damage.complaints(damage.right)
        for index in range(4):
            damage.damage_head(index)
            if index > 0:
                damage.damage_body(index)
        damage.damage_upload(run)
    print(*[f"a right run: {problem}" for problem in problems], *[f"not refused: {name}" for name in damage.accepted],
          f"{damage.count} damaged requests, {damage.count - len(damage.accepted)} refused", sep="\n")
    return 1 if problems or damage.accepted else 0


if __name__ == "__main__":
    sys.exit(main())
