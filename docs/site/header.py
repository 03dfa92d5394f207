#!/usr/bin/env python3
"""Prepares a header for the site, on the standard output.

usage: header.py HEADER

Leaves out what the language makes by itself or takes away (`= default`, `= delete`), unless something is
said about it: there is nothing to ask a description of.
"""

import pathlib
import re
import sys

BY_ITSELF = re.compile(r"[^;{}]*\)[^;{}]*= (?:default|delete);")


def main():
    described = False
    for line in pathlib.Path(sys.argv[1]).read_text().splitlines():
        if BY_ITSELF.fullmatch(line) and not described:
            line = ""  # so that a warning names the line of the header
        described = line.lstrip().startswith("///")
        print(line)


if __name__ == "__main__":
    main()
