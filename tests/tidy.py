#!/usr/bin/env python3
"""Runs clang-tidy over every source of the repository, many sources at a time.

usage: tidy.py BUILD JOBS [PATH…]

BUILD holds compile_commands.json; with paths, only the sources at and below them are read. Most of clang-tidy's time goes into the headers of others, so sources
that share a .clang-tidy are copied behind one another into one file: their headers are read once, and
every check takes all of it for the main file. Findings name the place in the source itself. Of sources that
define the same name, one gets another name for it or they are kept apart; those that cannot be read together
all the same are read one by one.

Ends with 1 if there is a finding.
"""

import concurrent.futures
import dataclasses
import itertools
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "cmake"))
from together import USING, names_of  # noqa: E402

LINES_OF_A_BATCH = 5000
NOT_READ = {
    "libs/HalvardSling/json/BoostJSON.cpp",  # other people's code
    "bench/decode/RapidJSONDecoders.cpp",  # clang refuses the headers of RapidJSON 1.1.0
    "bench/http/CpprestBench.cpp",  # needs a library that is no package
    "examples/cookbook/Searches.cpp",  # needs all of RxCpp
    "tests/packaging/own_platform/main.cpp",  # needs the headers of its own platform
    "tests/32bit/project/WordWidth.cpp",  # no source of another word width
}
# What a finding does not depend on.
IRRELEVANT_FLAGS = re.compile(r"-[Og]\d$|-f(PIC|PIE|visibility|instrument)|-Werror$")

FINDING = re.compile(r"(/[^:]+):(\d+)(:\d+: (?:error|warning): .*)")
UNREADABLE = re.compile(r".*\[clang-diagnostic-error")
PLACE = re.compile(r"(/[^:]+):(\d+)(:\d+: .*)")


@dataclasses.dataclass(frozen=True, eq=False)
class Source:
    path: pathlib.Path
    settings: pathlib.Path  # the folder of its .clang-tidy
    text: str
    names: dict  # what each name at the margin stands for
    flags: tuple


def may_rename(source, name):
    """Whether the source defines the name for itself, never means another thing by it, and is no
    specialization of a template."""
    return (source.names[name] == source.path and re.search(rf"\b{name}\b", source.text)
            and not re.search(rf"(?:\.|->|::)\s*{name}\b|\b{name}<", source.text))


class Batch:
    """Sources that are read as one."""

    def __init__(self, settings, sources=()):
        self.settings = settings
        self.sources = []
        self.names = {}
        self.renamed = {}  # for each source
        self.flags = {}  # in their order
        self.lines = 0
        for source in sources:
            self.add(source)

    def taken(self, source):
        """Those names of the source that stand for something else already."""
        return [name for name, what in source.names.items() if self.names.get(name, what) != what]

    def takes(self, source):
        macros = {flag.partition("=")[0]: flag for flag in self.flags if flag.startswith("-D")}
        return (self.settings == source.settings and self.lines < LINES_OF_A_BATCH
                and all(may_rename(source, name) for name in self.taken(source))
                and all(macros.get(flag.partition("=")[0], flag) == flag for flag in source.flags))

    def add(self, source):
        self.renamed[source] = {name: f"{name}{len(self.sources)}" for name in self.taken(source)}
        self.sources.append(source)
        self.names.update((self.renamed[source].get(name, name), what) for name, what in source.names.items())
        self.flags.update(dict.fromkeys(source.flags))
        self.lines += source.text.count("\n")


def listed(*patterns):
    output = subprocess.run(["git", "ls-files", "--", *patterns], capture_output=True, text=True, check=True)
    return [pathlib.Path(line) for line in output.stdout.splitlines()]


def relevant_flags(command):
    """The flags of a compiler's command; one that has an argument with it, on two lines."""
    flags = []
    arguments = iter(shlex.split(command)[1:])
    for argument in arguments:
        if argument == "-o":
            next(arguments)
        elif argument in ("-isystem", "-include", "-Xclang"):
            flags.append(f"{argument}\n{next(arguments)}")
        elif argument.startswith("-") and argument != "-c" and not IRRELEVANT_FLAGS.match(argument):
            flags.append(argument)
    return tuple(flags)


def commands(build):
    """The flags of each source that is built; for one built several times, those of the first."""
    found = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        path = pathlib.Path(os.path.relpath(entry["file"]))
        found.setdefault(path, relevant_flags(entry["command"]))
    return found


def read_sources(build, wanted):
    built = commands(build)
    settings = {path.parent for path in listed(".clang-tidy", "*/.clang-tidy")}
    for path in listed("*.cpp"):
        if str(path) in NOT_READ or not any(path.is_relative_to(each) for each in wanted):
            continue
        flags = built.get(path)
        if flags is None:  # another configuration builds it, with what its neighbours are built with
            neighbours = [built[other] for other in sorted(built)
                          if other.parts[0] == path.parts[0] and other.suffix == path.suffix]
            flags = tuple(dict.fromkeys(flag for one in neighbours for flag in one))
        text = path.read_text()
        yield Source(path, next(folder for folder in path.parents if folder in settings), text,
                     names_of(path), flags)


def batches(sources):
    made = []
    for source in sources:
        batch = next((batch for batch in made if batch.takes(source)), None)
        if batch is None:
            batch = Batch(source.settings)
            made.append(batch)
        batch.add(source)
    return sorted(made, key=lambda batch: -batch.lines)


def copied(source, renamed):
    """The source's text as it is read elsewhere."""
    def absolute(include):
        beside = source.path.parent / include[2]
        return f'{include[1]}"{beside.resolve()}"' if beside.exists() else include[0]
    return replaced(renamed, re.sub(r'^(#include )"(.*)"', absolute, source.text, flags=re.MULTILINE))


def replaced(names, text):
    for old, new in names.items():
        text = re.sub(rf"\b{old}\b", new, text)
    return text


def read_together(batch, folder, number):
    """What clang-tidy prints of the batch, as blocks of lines, one for each finding."""
    folder = (folder / batch.settings).resolve()
    file = folder / f"batch_{number}.cpp"
    file.write_text("".join(copied(source, batch.renamed[source]) for source in batch.sources))
    former = {new: old for names in batch.renamed.values() for old, new in names.items()}
    places = [(source.path, line + 1) for source in batch.sources
              for line in range(source.text.count("\n"))]
    flags = [part for flag in batch.flags for part in flag.split("\n")]
    run = subprocess.run(["clang-tidy-19", "--quiet", str(file), "--", "-x", "c++", *flags],
                         capture_output=True, text=True)

    def true_place(line):
        place = PLACE.match(line)
        if not place:  # a quoted line, after its number in the batch
            return re.sub(r"^ *\d+ \|", lambda number: "|".rjust(len(number[0])), line)
        path, number = place[1], int(place[2])
        if path == str(file):
            path, number = places[number - 1]
        return f"{os.path.relpath(path)}:{number}{place[3]}"

    blocks = []
    for line in run.stdout.splitlines():
        if FINDING.match(line):
            blocks.append([])
        if blocks:
            blocks[-1].append(replaced(former, true_place(line)))
    if run.returncode and not blocks:
        blocks.append([f"clang-tidy failed with {run.returncode}", *run.stderr.splitlines()])
    return ["\n".join(block) for block in blocks]


def unused_names(source):
    """What no check sees if another source of the batch uses the name."""
    for using in USING.finditer(source.text):
        name = using[2] or using[4]
        if len(re.findall(rf"\b{name}\b", source.text)) == 1:
            line = source.text.count("\n", 0, using.start()) + 1
            yield f"{source.path}:{line}:1: error: '{name}' is not used"


def read_all(made, folder, jobs):
    """The findings of the batches, each once. What cannot be read with others is read again, alone."""
    seen = set()
    numbers = itertools.count()
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        reading = {}

        def read(batch):
            reading[pool.submit(read_together, batch, folder, next(numbers))] = batch

        for batch in made:
            read(batch)
        while reading:
            done, _ = concurrent.futures.wait(reading, return_when=concurrent.futures.FIRST_COMPLETED)
            for future in done:
                batch = reading.pop(future)
                findings = future.result()
                errors = [finding for finding in findings if UNREADABLE.match(finding)]
                if errors and len(batch.sources) > 1:
                    alone = [source for source in batch.sources
                             if any(error.startswith(f"{source.path}:") for error in errors)]
                    alone = alone or batch.sources  # the error is in a header
                    print("read alone:", *(source.path for source in alone), file=sys.stderr)
                    print("because of", errors[0].partition("\n")[0], file=sys.stderr)
                    for source in alone:
                        read(Batch(batch.settings, [source]))
                    if rest := [source for source in batch.sources if source not in alone]:
                        read(Batch(batch.settings, rest))
                    continue
                yield from sorted(set(findings) - seen)
                seen.update(findings)


def main():
    build, jobs, wanted = pathlib.Path(sys.argv[1]), int(sys.argv[2]), sys.argv[3:] or ["."]
    folder = build / "batches"
    shutil.rmtree(folder, ignore_errors=True)
    for file in listed(".clang-tidy", "*/.clang-tidy"):
        (folder / file).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(file, folder / file)
    sources = list(read_sources(build, wanted))
    count = 0
    for finding in itertools.chain(*map(unused_names, sources), read_all(batches(sources), folder, jobs)):
        print(finding, flush=True)
        count += 1
    print(f"clang-tidy: {len(sources)} sources, {count} findings", file=sys.stderr)
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main())
