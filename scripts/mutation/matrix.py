#!/usr/bin/env python3
"""Which tests notice which planted faults, and which tests notice none alone?

usage: matrix.py --mutants FILE --build DIR --result FILE [--count N] [--seed N] [--sample FILE]
                 [--workers N] [FOLDER...]

Works on what scripts/mutation.sh has planted and built. Unlike run.py it runs all tests that reach a
fault, those of one program together. The result has a line for each fault: file:line, kind, and all
tests and rows that fail. At the end it prints, for each test, how many faults it notices and how
many of them alone: one that notices none alone may say what others say, unless it is about time,
memory or threads, which such faults do not touch.
"""
import collections
import os
import threading

import run


def grouped(tests):
    """Tests of one program as a single one, with a filter; the rest as they are."""
    programs, others = collections.defaultdict(list), []
    for test in tests:
        command = test["command"]
        filters = [word for word in command if word.startswith("--gtest_filter=")]
        if filters:
            programs[command[0]].append((test, filters[0].removeprefix("--gtest_filter=")))
        else:
            others.append(test)
    groups = []
    for members in programs.values():
        names = ":".join(name for _, name in members)
        groups.append({**members[0][0], "name": members[0][0]["command"][0],
                       "command": [members[0][0]["command"][0], "--gtest_filter=" + names],
                       "members": [test for test, _ in members]})
    return groups + [{**test, "members": [test]} for test in others]


def noticing(own, mutant, tests, reach):
    """The names of all tests and rows that fail."""
    failed = set()
    for group in grouped([t for t in tests if mutant["number"] in reach[t["name"]]["reached"]]):
        limit = 15 + 10 * sum(reach[t["name"]]["seconds"] for t in group["members"])
        seen = own.run(group, mutant["number"], limit)
        if seen["status"] == 0:
            continue
        if len(group["members"]) == 1:
            failed |= {f"{group['name']}/{name}" for name in seen["failed"]} or {group["name"]}
        elif seen["status"] == 1:
            failed |= set(seen["failed"])
        else:  # it crashed or did not end, so each by itself
            failed |= {t["name"] for t in group["members"]
                       if own.run(t, mutant["number"], limit)["status"] != 0}
    return sorted(failed)


def main():
    parser = run.arguments()
    options = parser.parse_args()
    mutants = run.read_mutants(options.mutants)
    chosen = run.sampled(mutants, options)
    build = os.path.realpath(options.build)
    workers = [run.Worker(max(m["number"] for m in mutants) + 1, build) for _ in range(options.workers)]
    tests, reach = run.reach_of(options, workers, build)

    known = run.known_rows(options)
    noticed = {key: row[2].split(" ; ") if row[2] else [] for key, row in known.items()}
    lock = threading.Lock()
    with open(options.result, "a" if options.go_on else "w", encoding="utf-8") as result:

        def try_one(own, mutant):
            names = noticing(own, mutant, tests, reach)
            with lock:
                noticed[mutant["place"], mutant["kind"]] = names
                print(mutant["place"], mutant["kind"], " ; ".join(names), mutant["text"], sep="\t",
                      file=result, flush=True)
                print(f"{len(noticed):4d} {mutant['place']} ({mutant['kind']}): {len(names)}", flush=True)

        run.in_parallel(workers, [m for m in chosen if (m["place"], m["kind"]) not in noticed], try_one)

    every, alone = collections.Counter(), collections.Counter()
    for names in noticed.values():
        every.update(names)
        if len(names) == 1:
            alone.update(names)
    for test in sorted({t["name"] for t in tests} | set(every)):
        print(f"{every[test]:5d} noticed, {alone[test]:4d} alone  {test}")


if __name__ == "__main__":
    main()
