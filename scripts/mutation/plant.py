#!/usr/bin/env python3
"""Plants sleeping faults in a copy of the tree.

usage: plant.py TREE        changes the sources of TREE in place; prints a line for each fault:
                            number, file:line, kind, the line as it was (tab-separated)

A fault is an expression that asks `mutant::on(number)`. Which one is awake stands in a file, since
tests give child processes environments of their own. The same header notes in a shared file which
faults a process reaches.
"""
import os
import re
import sys

NOT_PLANTED = ("tests/", "fuzz/", "bench/", "build/")

HEADER = r"""#pragma once
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <type_traits>
namespace mutant {
struct State {
  int awake = 0;
  unsigned char* reached = nullptr;
  int count = 0;
};
inline const State& state() {
  static const State shared = [] {
    State result;
    char text[16] = {};
    const int file = ::open("/run/mutant/awake", O_RDONLY | O_CLOEXEC);
    if (file < 0) return result;
    const auto size = ::read(file, text, sizeof text - 1);
    ::close(file);
    for (int i = 0; i < size && text[i] >= '0' && text[i] <= '9'; ++i) {
      result.awake = result.awake * 10 + text[i] - '0';
    }
    const int map = ::open("/run/mutant/reached", O_RDWR | O_CLOEXEC);
    if (map < 0) return result;
    struct ::stat facts {};
    ::fstat(map, &facts);
    void* const bytes = ::mmap(nullptr, static_cast<unsigned long>(facts.st_size),
                               PROT_READ | PROT_WRITE, MAP_SHARED, map, 0);
    ::close(map);
    if (bytes == MAP_FAILED) return result;
    result.reached = static_cast<unsigned char*>(bytes);
    result.count = static_cast<int>(facts.st_size);
    return result;
  }();
  return shared;
}
inline bool isAwake(int number) {
  const State& now = state();
  if (number < now.count) now.reached[number] = 1;
  return now.awake == number;
}
constexpr bool on(int number) { return std::is_constant_evaluated() ? false : isAwake(number); }
}  // namespace mutant
"""

CONDITION = re.compile(r"\b(?:else )?if \(")
DECLARES = re.compile(r"[^=!<>]=[^=]")
CALL = re.compile(r"^  +(?!return|throw|delete|case|using|co_|static|const|auto|public|explicit|friend)"
                  r"[A-Za-z_][\w:>.\-]*\([^;]*\);$")
RESULT = re.compile(r"\breturn (true|false);")
STEP = re.compile(r" [+-] 1\b(?![.\w])")


def closing_bracket(text, at):
    """Index of the bracket that closes the one at `at`; strings and characters are passed over."""
    depth, quote = 0, ""
    while at < len(text):
        c = text[at]
        if quote:
            if c == "\\":
                at += 1
            elif c == quote:
                quote = ""
        elif c == '"' or (c == "'" and not text[at - 1].isalnum()):
            quote = c
        elif c in "([{":
            depth += 1
        elif c in ")]}":
            depth -= 1
            if depth == 0:
                return at
        at += 1
    return -1


def last_top_level(text, wanted):
    depth, last = 0, -1
    for i, c in enumerate(text):
        depth += c in "([{"
        depth -= c in ")]}"
        if depth == 0 and c == wanted:
            last = i
    return last


def conditions(text):
    for match in CONDITION.finditer(text):
        start = match.end() - 1
        end = closing_bracket(text, start)
        if end < 0 or text[: match.start()].endswith("constexpr "):
            continue
        inner = text[start + 1 : end]
        offset = last_top_level(inner, ";") + 1
        condition = inner[offset:]
        if DECLARES.search(condition) or "\n#" in condition:
            continue
        begin = start + 1 + offset + len(condition) - len(condition.lstrip())
        yield begin, end, "condition", "mutant::on(%d) != static_cast<bool>(", ")"


def calls(text):
    offset, before = 0, ""
    for line in text.split("\n"):
        if CALL.match(line) and before.endswith((";", "{", "}")):
            begin = offset + len(line) - len(line.lstrip())
            yield begin, begin, "call", "if (!mutant::on(%d)) ", ""
        offset, before = offset + len(line) + 1, line.rstrip()


def results(text):
    for match in RESULT.finditer(text):
        sign = "!" if match[1] == "true" else ""
        yield match.start(1), match.end(1), "result", sign + "mutant::on(%d)", None


def steps(text):
    for match in STEP.finditer(text):
        line = text[text.rfind("\n", 0, match.start()) + 1 : match.end()]
        if "//" not in line and '"' not in line and "template" not in line:
            yield match.end() - 1, match.end(), "off by one", "(1 + mutant::on(%d))", None


def plant(path, number, out):
    with open(path, encoding="utf-8") as file:
        text = file.read()
    finders = [conditions, results, steps] + ([calls] if path.endswith(".cpp") else [])
    found = sorted((edit for finder in finders for edit in finder(text)), key=lambda e: e[:2])
    pieces, last = [], 0
    for begin, end, kind, before, after in found:
        if begin < last:
            continue  # inside a condition that is turned round as a whole
        line = text.count("\n", 0, begin) + 1
        pieces.append(text[last:begin] + before % number)
        if after is not None:
            pieces.append(text[begin:end] + after)
        last = end
        out.append((number, f"{path}:{line}", kind, text.split("\n")[line - 1].strip()))
        number += 1
    if pieces:
        with open(path, "w", encoding="utf-8") as file:
            file.write('#include "mutant.h"\n' + "".join(pieces) + text[last:])
    return number


def main():
    os.chdir(sys.argv[1])
    with open("mutant.h", "w", encoding="utf-8") as file:
        file.write(HEADER)
    sources = sorted(
        os.path.relpath(os.path.join(folder, name))
        for folder, _, names in os.walk(".") for name in names if name.endswith(".cpp"))
    found, number = [], 1
    for path in sources:
        if not path.startswith(NOT_PLANTED):
            number = plant(path, number, found)
    for row in found:
        print(*row, sep="\t")


if __name__ == "__main__":
    main()
