#!/usr/bin/env python3
"""Draws what a simulation of an outage printed, and writes its figures into a page.

usage: report.py TABLE PAGE PICTURE

TABLE is what outage_of_calls or outage_of_writes printed; its first policy is what the others are
compared with, and its load before the outage the usual one. In PAGE the lines between the two marks
are replaced.
"""

import math
import pathlib
import subprocess
import sys

BEGINS, ENDS = 2400, 3000
BEGIN_MARK, END_MARK = "<!-- outage figures -->", "<!-- end of outage figures -->"


def loads(table):
    """The requests of each second, in multiples of the usual load, by policy."""
    found = {}
    for line in table.read_text().splitlines():
        policy, second, requests = line.split("\t")
        found.setdefault(policy, {})[int(second)] = int(requests)
    usual = mean(next(iter(found.values()))[second] for second in range(BEGINS))
    return {policy: {second: requests / usual for second, requests in load.items()}
            for policy, load in found.items()}


def mean(values):
    values = list(values)
    return sum(values) / len(values)


def smoothed(load, second):
    """A second's load as the mean of ten, so that chance does not draw the curve."""
    return mean(load[each] for each in range(second - 5, second + 5))


def figures(load, calm):
    outage = range(BEGINS, ENDS)
    after = range(ENDS, ENDS + 600)
    return (mean(load[s] for s in outage) / mean(calm[s] for s in outage) - 1,
            max(load[s] for s in outage),
            max(load[s] for s in after),
            sum(max(load[s] - 1.05, 0) > 0 for s in after))


def table_of(found):
    calm = next(iter(found.values()))
    rows = ["| Policy | added during the outage | peak of the outage | peak after it | seconds above 1.05 in the ten minutes after |",
            "|---|---:|---:|---:|---:|"]
    for policy, load in found.items():
        added, peak, peak_after, late = figures(load, calm)
        rows.append(f"| {policy} | {added * 100:+.1f} % | {peak:.2f} | {peak_after:.2f} | {late} |")
    return "\n".join(rows)


def draw(found, picture):
    shown = range(BEGINS - 180, ENDS + 600, 5)
    least = min(smoothed(load, second) for load in found.values() for second in shown)
    bottom = min(0.5, 2 ** math.floor(math.log2(max(least, 1 / 64))))
    plots = ", ".join(f"'-' using 1:2 with lines lw 2 title '{policy}'" for policy in found)
    data = "\ne\n".join("\n".join(f"{(second - BEGINS) / 60} {smoothed(load, second)}" for second in shown)
                        for load in found.values()) + "\ne\n"
    script = ("set terminal svg size 720,420 font 'sans-serif,13' background 'white'\n"
              "set title 'Requests that reach the service, its outage being minutes 0 to 10'\n"
              "set xlabel 'minutes'\nset ylabel 'times the usual load'\nset logscale y 2\n"
              f"set yrange [{bottom}:32]\nset grid\nset key right top\n"
              f"plot {plots}\n{data}")
    drawn = subprocess.run(["gnuplot"], input=script, capture_output=True, text=True, check=True)
    picture.write_text(drawn.stdout)


def main():
    table, page, picture = map(pathlib.Path, sys.argv[1:])
    found = loads(table)
    text = page.read_text()
    before, rest = text.split(BEGIN_MARK)
    _, after = rest.split(END_MARK)
    rows = table_of(found)
    page.write_text(f"{before}{BEGIN_MARK}\n{rows}\n{END_MARK}{after}")
    draw(found, picture)
    print(rows)


main()
