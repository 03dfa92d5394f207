#!/usr/bin/env python3
"""Says which sources of a target can be compiled as one.

usage: together.py <TARGETS

Reads a line for each target: its name and the paths of its sources, with tabs between them. Writes a line
for each source that can be compiled with others: target, number of the group, source, with tabs between
them. Sources that define the same name, in a namespace without a name for example, are kept apart.
"""

import collections
import functools
import itertools
import pathlib
import re
import sys

LINES_OF_A_GROUP = 2000

# Lines at the scope of a namespace begin at the margin.
NAMES = [re.compile(pattern, re.MULTILINE) for pattern in (
    r"^(?:class|struct|enum(?: class)?|union|concept) (\w+)\b[^;]*$",
    r"^# *define (\w+)",
    r"^(?:\w+_)?(?:TEST|TEST_[FP]|PROP)\((\s*\w+,\s*\w+)",
    r"^INSTANTIATE_TEST_SUITE_P\((\s*\w+,\s*\w+)",
    r"^(?:\[\[[^\]\n]*\]\] ?)*(?!namespace|using|return|template)"
    # A namespace before the name begins with a small letter, so this is no member of a type.
    r"[A-Za-z][\w:<>,&*\[\] ]*?[ &*](?:[a-z]\w*::)*(\w+)(?:[({;\[]| =)",
)]
BENCHMARK_MAIN = re.compile(r"^BENCHMARK_MAIN\(\)", re.MULTILINE)
ENUMERATION = re.compile(r"\benum class (\w+)[^{;]*\{(.*?)\}", re.DOTALL)
USING_ENUMERATION = re.compile(r"^using enum (?:\w*::)*(\w+);", re.MULTILINE)
ALIAS = re.compile(r"^(?:using|namespace) (\w+) = ([^;]*);", re.MULTILINE)
USING = re.compile(r"^using ((?:\w*::)+)(\w+);|^(namespace) (\w+) =", re.MULTILINE)


@functools.cache
def enumerators():
    """Those of each enumeration in the headers of the repository, and what they stand for."""
    found = collections.defaultdict(dict)
    root = pathlib.Path(__file__).resolve().parent.parent
    headers = (root.glob(f"{folder}/**/*.hpp") for folder in ("apps", "bench", "bindings", "libs", "tests"))
    for header in itertools.chain.from_iterable(headers):
        for enumeration, body in ENUMERATION.findall(header.read_text()):
            names = re.findall(r"^\s*(\w+)|,\s*(\w+)", re.sub(r"//.*", "", body))
            found[enumeration].update((first or other, enumeration) for first, other in names)
    return found


@functools.cache
def names_of(path):
    """What stands at the margin of the source and of the headers beside it, and what it stands for."""
    text = path.read_text()
    names = {using[2]: using[1] for using in USING.finditer(text) if using[2]}
    names.update(ALIAS.findall(text))
    names.update((re.sub(r"\s", "", name), path) for pattern in NAMES for name in pattern.findall(text))
    if BENCHMARK_MAIN.search(text):
        names["main"] = path
    for enumeration in USING_ENUMERATION.findall(text):
        names.update(enumerators()[enumeration])
    for header in re.findall(r'^#include "(.*)"', text, flags=re.MULTILINE):
        if (path.parent / header).exists():
            names.update(names_of((path.parent / header).resolve()))
    return names


def takes(names, more):
    """Whether no name would stand for two things."""
    return all(names.get(name, what) == what for name, what in more.items())


class Group:
    def __init__(self):
        self.names = {}
        self.sources = []
        self.lines = 0

    def takes(self, source):
        return self.lines < LINES_OF_A_GROUP and takes(self.names, names_of(source))

    def add(self, source):
        self.names.update(names_of(source))
        self.sources.append(source)
        self.lines += source.read_text().count("\n")


def groups_of(sources):
    groups = []
    for source in sources:
        group = next((group for group in groups if group.takes(source)), None)
        if group is None:
            group = Group()
            groups.append(group)
        group.add(source)
    return groups


def main():
    for line in sys.stdin:
        target, *sources = line.rstrip("\n").split("\t")
        for number, group in enumerate(groups_of(map(pathlib.Path, sources))):
            for source in group.sources:
                print(target, number, source, sep="\t")


if __name__ == "__main__":
    main()
