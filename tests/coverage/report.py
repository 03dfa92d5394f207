#!/usr/bin/env python3
"""Says how much of each library the tests run, and fails if it is less than promised.

usage: report.py COVERAGE ROOT

COVERAGE is what `llvm-cov export -summary-only` prints. A branch is one of the two ways a condition of
the source can go; a line is one that holds code.
"""

import json
import pathlib
import sys

# Of each library: how many percent of its lines and branches have to be run.
WANTED = {"libs/KestrinProfile": 100, "libs/KestrinConfigManager": 95, "libs/HalvardSling": 95,
          "libs/HalvardMorrow": 95, "libs/internal": 95}
KINDS = ("lines", "branches")


def percent(counts):
    covered, count = counts
    return 100 * covered / count if count else 100


def main():
    coverage, root = json.loads(pathlib.Path(sys.argv[1]).read_text()), pathlib.Path(sys.argv[2]).resolve()
    totals = {library: {kind: [0, 0] for kind in KINDS} for library in WANTED}
    gaps = []
    for each in coverage["data"][0]["files"]:
        name = str(pathlib.Path(each["filename"]).resolve().relative_to(root)) \
            if pathlib.Path(each["filename"]).resolve().is_relative_to(root) else ""
        library = next((library for library in WANTED if name.startswith(library + "/")), None)
        if library is None:
            continue
        for kind in KINDS:
            summary = each["summary"][kind]
            totals[library][kind][0] += summary["covered"]
            totals[library][kind][1] += summary["count"]
        missing = [each["summary"][kind]["count"] - each["summary"][kind]["covered"] for kind in KINDS]
        if any(missing):
            gaps.append((missing, name))

    for missing, name in sorted(gaps, reverse=True):
        print(f"{name}: {missing[0]} lines and {missing[1]} branches not run")
    print("\n| library | lines | branches | wanted |\n|---|---|---|---|")
    low = False
    for library, total in totals.items():
        shares = [percent(total[kind]) for kind in KINDS]
        low |= min(shares) < WANTED[library]
        print(f"| {library} | {shares[0]:.1f} % | {shares[1]:.1f} % | {WANTED[library]} % |")
    return 1 if low else 0


if __name__ == "__main__":
    sys.exit(main())
