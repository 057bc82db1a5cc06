#!/usr/bin/env python3
"""Wakes planted faults one at a time and runs the tests that reach them, until one fails.

usage: run.py --mutants FILE --build DIR --result FILE [--count N] [--seed N] [--sample FILE]
              [--workers N] [--continue] [FOLDER...]

scripts/mutation.sh plants, builds and calls this; it says what the result holds. With --continue, a
run that was ended goes on: what each test reaches stands in the build folder's reached.json.
"""
import argparse
import collections
import ctypes
import fcntl
import json
import mmap
import os
import queue
import random
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import threading
import time

STATE = "/run/mutant"
AWAKE, REACHED = STATE + "/awake", STATE + "/reached"
LEAST_PER_ROOM = 3
# A test of a test program, or a row that is printed with its problems.
FAILED = re.compile(r"^\[  FAILED  \] ([\w./]+)(?: \(|,|$)|^(?!\S+\.rows: )(\S.*)$(?=\n    \()", re.MULTILINE)
WRITABLE = ("/tmp", "/var/tmp", "/dev/shm", "/run")


# What runs inside the namespaces of a worker, as process 1 of them.

def mount(source, target, kind, flags, options=""):
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.mount(source.encode(), target.encode(), kind.encode(), flags, options.encode()):
        sys.exit(f"mount {target}: {os.strerror(ctypes.get_errno())}")


def make_machine_read_only(build):
    """All but the usual places for temporary files; what changes in the build folder is thrown away."""
    read_only, remount, bind, recursive, private = 1, 32, 4096, 16384, 1 << 18
    mount("none", "/", "none", recursive | private)
    places = [line.split()[4] for line in open("/proc/self/mountinfo")]
    for place in places:
        if os.path.isdir(place) and not place.startswith(("/proc", "/sys", "/dev")):
            libc = ctypes.CDLL(None)
            libc.mount(b"none", place.encode(), b"none", read_only | remount | bind, None)
    for place in WRITABLE:
        if os.path.isdir(place):
            mount("tmpfs", place, "tmpfs", 0)
            os.chmod(place, 0o1777)
    os.makedirs(STATE, mode=0o755)
    upper, scratch = STATE + "/build", STATE + "/scratch"
    os.mkdir(upper)
    os.mkdir(scratch)
    mount("overlay", build, "overlay", 0, f"lowerdir={build},upperdir={upper},workdir={scratch}")


def bring_up_loopback():
    set_flags, up = 0x8914, 1
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        fcntl.ioctl(control, set_flags, struct.pack("16sh14x", b"lo", up))


def empty(folder):
    for entry in os.scandir(folder):
        if entry.is_dir(follow_symlinks=False):
            shutil.rmtree(entry.path, ignore_errors=True)
        else:
            os.unlink(entry.path)


def end_all_others():
    try:
        os.kill(-1, signal.SIGKILL)
    except ProcessLookupError:
        pass
    try:
        while os.waitpid(-1, 0)[0]:
            pass
    except ChildProcessError:
        pass


def run_test(test, awake, limit, reached):
    """Whether the test passes, how long it takes, and which faults its processes reach."""
    with open(AWAKE, "w", encoding="ascii") as file:
        file.write(str(awake))
    reached[:] = bytes(len(reached))
    environment = {**os.environ, "HOME": "/tmp", **dict(e.split("=", 1) for e in test["environment"])}
    began = time.monotonic()
    with open("/tmp/output", "wb") as output:
        child = subprocess.Popen(test["command"], cwd=test["folder"], env=environment, stdout=output,
                                 stderr=output, stdin=subprocess.DEVNULL, start_new_session=True)
        try:
            status = child.wait(limit)
        except subprocess.TimeoutExpired:
            status = "time"
    seconds = time.monotonic() - began
    end_all_others()
    found = [i for i, byte in enumerate(reached[:]) if byte]
    with open("/tmp/output", "rb") as output:
        text = output.read().decode(errors="replace")
    empty("/tmp")
    return {"status": status, "seconds": seconds, "reached": found, "output": text[-2000:],
            "failed": sorted({a or b for a, b in FAILED.findall(text)})}


def worker(count, build):
    make_machine_read_only(build)
    bring_up_loopback()
    with open(REACHED, "wb") as file:
        file.truncate(count)
    os.chmod(REACHED, 0o666)
    with open(REACHED, "r+b") as file:
        reached = mmap.mmap(file.fileno(), count)
    for line in sys.stdin:
        task = json.loads(line)
        print(json.dumps(run_test(task["test"], task["awake"], task["limit"], reached)), flush=True)


# What runs outside.

class Worker:
    def __init__(self, count, build):
        user = [] if os.geteuid() == 0 else ["--map-root-user"]
        self.process = subprocess.Popen(
            ["unshare", *user, "--mount", "--pid", "--net", "--ipc", "--fork", "--kill-child",
             "--mount-proc", sys.executable, os.path.abspath(__file__), "--worker", str(count), build],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def run(self, test, awake=0, limit=300.0):
        self.process.stdin.write(json.dumps({"test": test, "awake": awake, "limit": limit}) + "\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline()
        if not answer:
            sys.exit("a worker ended")
        return json.loads(answer)


def tests_of(build):
    listing = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"], check=True,
                             capture_output=True, text=True).stdout
    tests = []
    for entry in json.loads(listing)["tests"]:
        properties = {p["name"]: p["value"] for p in entry.get("properties", [])}
        if "command" in entry and not properties.get("DISABLED"):
            tests.append({"name": entry["name"], "command": entry["command"],
                          "folder": properties.get("WORKING_DIRECTORY", build),
                          "environment": properties.get("ENVIRONMENT", [])})
    return tests


def in_parallel(workers, tasks, do):
    """Calls `do(worker, task)` for every task, each worker taking the next one when it is free."""
    waiting = queue.SimpleQueue()
    for task in tasks:
        waiting.put(task)

    def work(own):
        while True:
            try:
                task = waiting.get_nowait()
            except queue.Empty:
                return
            do(own, task)

    threads = [threading.Thread(target=work, args=(w,), daemon=True) for w in workers]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


def sampled(mutants, options):
    if options.folders:
        mutants = [m for m in mutants if m["place"].startswith(tuple(options.folders))]
    if options.sample:
        wanted = collections.Counter()
        for line in open(options.sample, encoding="utf-8"):
            place, kind, _, text = line.rstrip("\n").split("\t", 3)
            wanted[(place.rsplit(":", 1)[0], kind, text)] += 1
        chosen = []
        for mutant in mutants:
            key = (mutant["place"].rsplit(":", 1)[0], mutant["kind"], mutant["text"])
            if wanted[key] > 0:
                wanted[key] -= 1
                chosen.append(mutant)
        print(f"{sum(wanted.values())} faults of {options.sample} are no longer in the sources")
        return chosen
    order = list(mutants)
    random.Random(options.seed).shuffle(order)
    rooms = collections.Counter()
    first, rest = [], []
    for mutant in order:
        room = os.path.dirname(mutant["place"])
        rooms[room] += 1
        (first if rooms[room] <= LEAST_PER_ROOM else rest).append(mutant)
    return (first + rest)[: options.count]


def reached_by(tests, workers, build):
    """For each test that passes without a fault: how long it takes, and what it reaches."""
    found = {}

    def run(own, test):
        seen = own.run(test)
        if seen["status"] != 0:
            print(f"left out, it fails without any fault: {test['name']}\n{seen['output'][-600:]}")
            return
        found[test["name"]] = {"seconds": seen["seconds"], "reached": seen["reached"]}

    in_parallel(workers, tests, run)
    with open(build + "/reached.json", "w", encoding="utf-8") as file:
        json.dump(found, file)
    return found


def verdict_of(own, mutant, tests, reach):
    """The first test that fails, those first that take little time and reach little."""
    reaching = [t for t in tests if mutant["number"] in reach[t["name"]]["reached"]]
    cost = {name: facts["seconds"] * len(facts["reached"]) for name, facts in reach.items()}
    for test in sorted(reaching, key=lambda t: cost[t["name"]]):
        limit = 15 + 10 * reach[test["name"]]["seconds"]
        # A test that fails by itself now and then proves nothing.
        if (own.run(test, mutant["number"], limit)["status"] != 0
                and own.run(test, 0, limit)["status"] == 0):
            return test["name"]
    return "survived" if reaching else "unreached"


def read_mutants(path):
    with open(path, encoding="utf-8") as file:
        rows = [line.rstrip("\n").split("\t", 3) for line in file]
    return [{"number": int(n), "place": p, "kind": k, "text": t} for n, p, k, t in rows]


def reach_of(options, workers, build):
    """The tests that pass without a fault, and by their names what each reaches."""
    if options.go_on and os.path.exists(build + "/reached.json"):
        with open(build + "/reached.json", encoding="utf-8") as file:
            reach = json.load(file)
    else:
        reach = reached_by(tests_of(build), workers, build)
    for facts in reach.values():
        facts["reached"] = set(facts["reached"])
    tests = [t for t in tests_of(build) if t["name"] in reach]
    print(f"{len(tests)} tests pass without a fault", flush=True)
    return tests, reach


def known_rows(options):
    """The rows of a run that goes on, by place and kind."""
    if not options.go_on or not os.path.exists(options.result):
        return {}
    with open(options.result, encoding="utf-8") as file:
        rows = [line.rstrip("\n").split("\t", 3) for line in file]
    return {(row[0], row[1]): row for row in rows}


def try_all(options):
    mutants = read_mutants(options.mutants)
    chosen = sampled(mutants, options)
    build = os.path.realpath(options.build)
    workers = [Worker(max(m["number"] for m in mutants) + 1, build) for _ in range(options.workers)]
    tests, reach = reach_of(options, workers, build)
    known = known_rows(options)
    verdicts = {m["number"]: known[m["place"], m["kind"]][2] for m in chosen
                if (m["place"], m["kind"]) in known}

    with open(options.result, "a" if options.go_on else "w", encoding="utf-8") as result:
        lock = threading.Lock()

        def try_one(own, mutant):
            verdict = verdict_of(own, mutant, tests, reach)
            with lock:
                verdicts[mutant["number"]] = verdict
                print(f"{len(verdicts):4d} {mutant['place']} ({mutant['kind']}): {verdict}", flush=True)
                print(mutant["place"], mutant["kind"], verdict, mutant["text"], sep="\t", file=result,
                      flush=True)

        in_parallel(workers, [m for m in chosen if m["number"] not in verdicts], try_one)
    counts = collections.Counter(v if v in ("survived", "unreached") else "caught"
                                 for v in verdicts.values())
    print(f"{counts['caught']} of {len(verdicts)} caught, {counts['survived']} survived, "
          f"{counts['unreached']} reached by no test")


def arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument("--mutants", required=True)
    parser.add_argument("--build", required=True)
    parser.add_argument("--result", required=True)
    parser.add_argument("--count", type=int, default=300)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--sample")
    parser.add_argument("--continue", dest="go_on", action="store_true")
    parser.add_argument("--workers", type=int, default=os.cpu_count())
    parser.add_argument("folders", nargs="*", metavar="FOLDER")
    return parser


def main():
    if sys.argv[1:2] == ["--worker"]:
        worker(int(sys.argv[2]), sys.argv[3])
    else:
        try_all(arguments().parse_args())


if __name__ == "__main__":
    main()
