#!/usr/bin/env python3
"""Starts four runs at once again and again. Each must end as it would alone.

usage: at_once.py [--build FOLDER] [ROUNDS]
"""
import argparse
import contextlib
import sys
import tempfile
from pathlib import Path

from run import ROOT, Fixture, Result, Run

RIGHT = Result("0", "Quorvantile.framework/sendoff 1.3.6 (19)\nUploaded Successfully 202\n", "")


def prepare(run: Run, number: int, name: str, temporary: Path) -> None:
    """All .ipa files have one name; two of them hold apps of one name, too."""
    run.environment["TMPDIR"] = str(temporary)
    run.shell(f"""
        plist $A/Info.plist CFBundleIdentifier=com.example.app{number}
        profile Entitlements/application-identifier=ABCDE12345.com.example.app{number}
        sign; [ {name} = Example ] || mv $A $F/Payload/{name}.app; pack""", run.app)


def problems_of(run: Run, number: int, rounds: int) -> list[str]:
    calls = list(zip(run.service.calls, run.service.requests))
    problems = run.service.complaints + [f"{number}: a request about another app: {request.target}"
                                         for _, request in calls if f"/com.example.app{number}/" not in request.target]
    if run.service.calls != ["validate", "upload"] * rounds:
        problems.append(f"{number}: calls {run.service.calls}")
    return problems


def main() -> int:
    parser = argparse.ArgumentParser(usage=__doc__[__doc__.index("usage: ") + 7:])
    parser.add_argument("--build", type=Path, default=ROOT / "build")
    parser.add_argument("rounds", type=int, nargs="?", default=3)
    options = parser.parse_args()
    with contextlib.ExitStack() as places:
        folder = places.enter_context(tempfile.TemporaryDirectory(prefix="at-once-"))
        fixture = Fixture(Path(folder).resolve(), options.build.resolve())
        runs = [places.enter_context(Run(fixture, "signed")) for _ in range(4)]
        for number, (run, name) in enumerate(zip(runs, ("Example", "Example", "Other", "Third"))):
            prepare(run, number, name, runs[0].temporary)
        problems = []
        for _ in range(options.rounds):
            command = "exec $SENDOFF $KEY $SECRET -ipaPath $IPA -QuorvantileAPIEndpoint $URL"
            results = [running.wait() for running in [run.start(command) for run in runs]]
            problems += [str(result) for result in results if result != RIGHT]
        for number, run in enumerate(runs):
            problems += problems_of(run, number, options.rounds)
        left = {"Example", "Example/Payload", "com.quorvantile.ipas", "com.quorvantile.mac",
                "com.quorvantile.mac/distributions"}
        problems += [f"left behind: {name}" for name in set(runs[0].leftovers()) ^ left]
    print(*problems, f"{options.rounds} rounds, {len(problems)} problems", sep="\n")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
