#!/usr/bin/env python3
"""Says how much of each library the tests run, and fails if it is less than promised.

usage: report.py ROOT COVERAGE…

COVERAGE is what `llvm-cov export` writes of one program: of several at once it takes a function for unused
that one of them does not use. A line is one that holds code; a branch is one of the two ways
that a condition of the source can go. That a call may throw is no branch.
"""

import collections
import json
import pathlib
import sys

# Of each library: how many percent of its lines and of the ways of its conditions have to be run.
WANTED = {
    "libs/HalvardMorrow": (100, 100),
    "libs/HalvardSling": (98, 95),
    "libs/KestrinConfigManager": (99, 95),
    "libs/KestrinProfile": (100, 100),
    "libs/KestrinHousehold": (98, 96),
    "libs/KestrinC": (98, 95),
    "libs/internal": (100, 97),
}

# What no test can run, and why: files, and of a file a text that stands in it.
FILES_LEFT_OUT = {
    "libs/KestrinC/internal/records/Enumerations.cpp": "the compiler runs it: each function is a constant",
    "libs/internal/Table.hpp": "the compiler runs it, for static_assert",
}
TEXTS_LEFT_OUT = {
    ("libs/KestrinProfile/service/Error.cpp", "} catch (...) {\n    return ErrorNotice::unknown;\n}"):
        "only the members of an application's own error types throw",
}


class File:
    def __init__(self):
        self.lines = collections.Counter()  # of each line, how often it runs
        self.ways = collections.Counter()  # of each way of a condition; the first number is its line

    def covered(self):
        return sum(map(bool, self.lines.values())), sum(map(bool, self.ways.values()))

    def total(self):
        return len(self.lines), len(self.ways)


def counts_of_lines(segments):
    """How often each line with code runs, by what llvm-cov says of the places where a count begins."""
    counts, around = {}, None
    by_line = collections.defaultdict(list)
    for segment in segments:
        by_line[segment[0]].append(segment)
    for line in range(min(by_line, default=0), max(by_line, default=-1) + 1):
        begun = [count for _, _, count, has_count, is_entry, is_gap in by_line[line]
                 if has_count and is_entry and not is_gap]
        if begun or (around and around[3]):
            counts[line] = max(begun + ([around[2]] if around and around[3] else []))
        around = by_line[line][-1] if by_line[line] else around
    return counts


def read(path, files):
    """Adds the files of an export. What several programs or instances of a template hold counts once."""
    for each in json.loads(path.read_text())["data"][0]["files"]:
        file = files[pathlib.Path(each["filename"]).resolve()]
        file.lines.update(counts_of_lines(each["segments"]))
        for begin, column, end, end_column, when_true, when_false, *_ in each["branches"]:
            place = begin, column, end, end_column
            file.ways[*place, True] += when_true
            file.ways[*place, False] += when_false


def without_texts_left_out(name, path, file):
    for text in (text for left_out, text in TEXTS_LEFT_OUT if left_out == name):
        before, _, _ = path.read_text().partition(text)
        first = before.count("\n") + 1
        last = first + text.count("\n")
        file.lines = {line: count for line, count in file.lines.items() if not first <= line <= last}
        file.ways = {way: count for way, count in file.ways.items() if not first <= way[0] <= last}
    return file


def without_defaulted(path, file):
    """A comparison that the compiler writes: llvm-cov has one place for all of its conditions, and counts
    no way of theirs but one, whatever is compared."""
    source = path.read_text().splitlines()
    file.ways = {way: count for way, count in file.ways.items() if not source[way[0] - 1].endswith("= default;")}
    return file


def ranges(numbers):
    """E.g. "3-5, 9" of 3, 4, 5 and 9."""
    found = []
    for number in sorted(numbers):
        if found and number == found[-1][1] + 1:
            found[-1][1] = number
        else:
            found.append([number, number])
    return ", ".join(str(first) if first == last else f"{first}-{last}" for first, last in found)


def gaps(name, file):
    lines = [number for number, count in file.lines.items() if not count]
    ways = [way[0] for way, count in file.ways.items() if not count and way[0] not in lines]
    if lines:
        print(f"{name}: lines {ranges(lines)} are not run")
    if ways:
        print(f"{name}: a condition goes one way only in line {ranges(set(ways))}")


def percent(covered, total):
    return 100 * covered / total if total else 100


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    files = collections.defaultdict(File)
    for path in sys.argv[2:]:
        read(pathlib.Path(path), files)
    totals = {library: [[0, 0], [0, 0]] for library in WANTED}
    for path, file in sorted(files.items()):
        if not path.is_relative_to(root):
            continue
        name = str(path.relative_to(root))
        library = next((library for library in WANTED if name.startswith(library + "/")), None)
        if library is None or name in FILES_LEFT_OUT:
            continue
        file = without_defaulted(path, without_texts_left_out(name, path, file))
        gaps(name, file)
        for total, covered, count in zip(totals[library], file.covered(), file.total()):
            total[0] += covered
            total[1] += count

    print("\n| Library | Lines | wanted | Branches | wanted |\n|---|--:|--:|--:|--:|")
    low = []
    for library, total in totals.items():
        shares = [percent(*counts) for counts in total]
        low += [library for share, wanted in zip(shares, WANTED[library]) if share < wanted]
        print(f"| {library} | {shares[0]:.2f} % of {total[0][1]} | {WANTED[library][0]} % "
              f"| {shares[1]:.2f} % of {total[1][1]} | {WANTED[library][1]} % |")
    if low:
        print(f"\nToo little of {', '.join(dict.fromkeys(low))}", file=sys.stderr)
    return 1 if low else 0


if __name__ == "__main__":
    sys.exit(main())
