#!/usr/bin/env python3
"""Says how large KestrinC is, part by part, and compares that with the ledger on docs/size.md.

usage: size.py [--write] PAGE COLUMN=BUILD_DIRECTORY…

Each folder holds a build of libs/KestrinC. A column of the ledger that has grown by more than 2 % as a whole ends it
with 1; --write renews the columns that are named and leaves the others as they are.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

ALLOWED_GROWTH = 1.02
BEGIN, END = "<!-- size: begin -->", "<!-- size: end -->"
WHOLE = "the file, stripped"

# What a function or a variable belongs to: the first part whose pattern is in its name. A template of one part that was
# made for another one's types is the other one's, so who uses stands before who is used.
PARTS = (
    ("Rx", r"5rxcpp"),
    ("interface for C", r"8KestrinC|^kestrin_"),
    ("outbox", r"16KestrinHousehold.*(Outbox|HouseholdDelivery|Later|Store|Comparison|DeliveryFailure|Entry"
               r"|Supersession|EventStream)"),
    ("sessions", r"16KestrinHousehold"),
    ("records and operations", r"14KestrinProfile"),
    ("configuration and binds", r"20KestrinConfigManager"),
    ("JSON", r"5boost4json|12HalvardSling.*JSON"),
    ("transport", r"12HalvardSling"),
    ("the C++ library's templates, and what else has a name", r""),
)
UNWINDING, REST = "unwinding", "texts, relocations and what aligns"
SECTION = re.compile(r"\] (\.\S+) +\S+ +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+)")


def symbols(library):
    """The name and the size of every function and variable in the file; of those at one address, the first."""
    lines = subprocess.run(["readelf", "-sW", library], check=True, capture_output=True, text=True).stdout.splitlines()
    table = lines[next(number for number, line in enumerate(lines) if "'.symtab'" in line):]
    of_address = {}
    for _, address, size, kind, _, _, section, name in (line.split()[:8] for line in table if len(line.split()) >= 8):
        if kind in ("FUNC", "OBJECT") and section != "UND":
            of_address.setdefault(address, (name, int(size, 0)))
    return of_address.values()


def unwinding_size(library):
    sections = subprocess.run(["readelf", "-SW", library], check=True, capture_output=True, text=True).stdout
    return sum(int(size, 16) for name, size in SECTION.findall(sections)
               if name.startswith((".eh_frame", ".gcc_except_table", ".ARM.ex")))


def stripped_size(library, build):
    strip = re.search(r"^CMAKE_STRIP:\w+=(.+)$", (build / "CMakeCache.txt").read_text(), re.MULTILINE)[1]
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder) / library.name
        subprocess.run([strip, "-o", copy, library], check=True)
        return copy.stat().st_size


def sizes_of(build):
    build = pathlib.Path(build)
    library = (build / "libs/KestrinC/libKestrinC.so").resolve()
    sizes = dict.fromkeys((part for part, _ in PARTS), 0)
    for name, size in symbols(library):
        sizes[next(part for part, pattern in PARTS if re.search(pattern, name))] += size
    sizes[UNWINDING] = unwinding_size(library)
    whole = stripped_size(library, build)
    sizes[REST] = whole - sum(sizes.values())
    sizes[WHOLE] = whole
    return sizes


def ledger_of(page):
    """The columns on the page, by their names."""
    rows = [[cell.strip() for cell in line.strip("|").split("|")]
            for line in page.split(BEGIN, 1)[1].split(END, 1)[0].splitlines() if line.startswith("|")]
    if len(rows) < 3:
        return {}
    return {name: {row[0]: int(row[column].replace(",", "")) for row in rows[2:] if row[column] != "–"}
            for column, name in enumerate(rows[0]) if column > 0}


def table_of(ledger):
    lines = ["| bytes | " + " | ".join(ledger) + " |", "|---|" + "---:|" * len(ledger)]
    for part in [*(part for part, _ in PARTS), UNWINDING, REST, WHOLE]:
        cells = (f"{sizes[part]:,}" if part in sizes else "–" for sizes in ledger.values())
        lines.append(f"| {part} | " + " | ".join(cells) + " |")
    return "\n".join(lines)


def grown(name, sizes, ledger):
    """Tells of a column, and whether it has grown too much."""
    if name not in ledger:
        print(f"{name}: not in the ledger; renew it with ./dev size --write")
        return True
    before = ledger[name]
    for part, size in sizes.items():
        if part == WHOLE or abs(size - before.get(part, 0)) > 1024:
            print(f"{name}: {part}: {size:,} bytes, {size - before.get(part, 0):+,}")
    if sizes[WHOLE] <= ALLOWED_GROWTH * before[WHOLE]:
        return False
    print(f"{name}: KestrinC has grown by more than 2 %. If it is worth that, renew docs/size.md with"
          " ./dev size --write and say in the commit why.")
    return True


def main():
    arguments = sys.argv[1:]
    write = arguments[0] == "--write"
    page = pathlib.Path(arguments[write])
    columns = dict(each.rsplit("=", 1) for each in arguments[write + 1:])
    text = page.read_text()
    ledger = ledger_of(text)
    measured = {name: sizes_of(build) for name, build in columns.items()}
    if write:
        head, rest = text.split(BEGIN, 1)
        table = table_of({**ledger, **measured})
        page.write_text(f"{head}{BEGIN}\n{table}\n{END}{rest.split(END, 1)[1]}")
        print(table)
        return 0
    return 1 if any([grown(name, sizes, ledger) for name, sizes in measured.items()]) else 0


if __name__ == "__main__":
    sys.exit(main())
