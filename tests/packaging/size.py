#!/usr/bin/env python3
"""Says how large KestrinC is, part by part, and compares that with the ledger on docs/size.md.

usage: size.py [--write] PAGE COLUMN=BUILD_DIRECTORY…

Each folder holds a build of libs/KestrinC with a link map beside the library (-DKESTRIN_LINK_MAPS=ON). A column of the
ledger that has grown by more than 2 % as a whole ends it with 1; --write renews the columns that are named and leaves
the others as they are.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

ALLOWED_GROWTH = 1.02
BEGIN, END = "<!-- size: begin -->", "<!-- size: end -->"
WHOLE = "the file, stripped"

# What a piece of the library belongs to: the first part whose pattern is in "<object> <section>". Rx comes
# first: its templates are compiled into the objects of who uses them.
PARTS = (
    ("Rx", r"rxcpp|5rxcpp"),
    ("JSON", r"libHalvardSling\.a\((JSON|BoostJSON)"),
    ("transport", r"libHalvardSling\.a"),
    ("records and operations", r"libKestrinProfile\.a"),
    ("configuration and binds", r"libKestrinConfigManager\.a"),
    ("outbox", r"libKestrinHousehold\.a\((Outbox|HouseholdDelivery|LaterSession|Memory|SQLite|Comparison|DeliveryF"
               r"|Entry|Supersession)"),
    ("sessions", r"libKestrinHousehold\.a"),
    ("interface for C", r"kestrin_c_objects|KestrinC\.dir"),
    ("the compiler's own", r""),
)
LOADED = re.compile(r"^ \.(text|rodata|data|eh_frame|gcc_except_table|init_array|tdata)")


def pieces(link_map):
    """Section, object and size of every piece that the linker has put into the file."""
    lines = link_map.read_text(errors="replace").split("Linker script and memory map", 1)[1].splitlines()
    name = None
    for line in lines:
        if re.match(r"^ \.\S+$", line):  # a name that is too long for its column
            name = line
            continue
        text = f"{name} {line}" if name and line.startswith("      ") else line
        name = None
        found = re.match(r"^( \.\S+)\s+0x([0-9a-f]+)\s+0x([0-9a-f]+)\s+(\S.*)$", text)
        if found and int(found[2], 16) and LOADED.match(found[1]):
            yield found[1], found[4], int(found[3], 16)


def stripped_size(library, build):
    strip = re.search(r"^CMAKE_STRIP:\w+=(.+)$", (build / "CMakeCache.txt").read_text(), re.MULTILINE)[1]
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder) / library.name
        subprocess.run([strip, "-o", copy, library], check=True)
        return copy.stat().st_size


def sizes_of(build):
    build = pathlib.Path(build)
    folder = build / "libs/KestrinC"
    library = (folder / "libKestrinC.so").resolve()
    sizes = dict.fromkeys((part for part, _ in PARTS), 0)
    for section, object_file, size in pieces(folder / "KestrinC.map"):
        sizes[next(part for part, pattern in PARTS if re.search(pattern, f"{object_file} {section}"))] += size
    whole = stripped_size(library, build)
    sizes["tables of the file"] = whole - sum(sizes.values())
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
    for part in [*(part for part, _ in PARTS), "tables of the file", WHOLE]:
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
