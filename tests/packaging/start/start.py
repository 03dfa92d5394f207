#!/usr/bin/env python3
"""Shows what the program beside it measures, as a table, and fails if an idle session holds more than it may.

usage: start.py RUNS COMMAND…

The time is counted from before the process is made. Each figure is the median of the runs.
"""

import statistics
import subprocess
import sys
import time

MOST_BYTES = 1_000_000


def run(command):
    begin = time.monotonic_ns()
    output = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    ready, heap, written = map(int, output.split())
    return (ready - begin) / 1e6, heap, written


def main():
    runs = [run(sys.argv[2:]) for _ in range(int(sys.argv[1]))]
    milliseconds, heap, written = (statistics.median(figures) for figures in zip(*runs))
    print("| | |")
    print("|---|--:|")
    print(f"| from the start of the process until the first request is ready to be sent | {milliseconds:.1f} ms |")
    print(f"| what an idle session holds of the heap, the configuration included | {heap:,.0f} bytes |")
    print(f"| all memory that the idle process has written to | {written:,.0f} bytes |")
    if heap > MOST_BYTES:
        print(f"start.py: an idle session may not hold more than {MOST_BYTES:,} bytes", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
