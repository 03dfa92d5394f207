#!/usr/bin/env python3
"""Prepares a page of the repository for the site, on the standard output.

usage: page.py PAGE

Headings get the anchors that links of pages name. Links to what is in the repository but not on the site
become the name of the file, and pictures are named without their folder.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES_AT_THE_TOP = ("README.md", "CHANGELOG.md", "CONTRIBUTING.md", "SECURITY.md")


CODE = re.compile(r"`` (`) ``|`([^`]+)`(\w?)")


def code(match):
    """Code as it is, or without a mark in it if Doxygen 1.9 would take it for something else."""
    text, behind = match[1] or match[2], match[3] or ""
    if not behind and not re.search(r"[`\\<>\"^{}|&]", text):
        return match[0]
    return "<code>" + "".join(c if c.isalnum() else f"&#{ord(c)};" for c in text) + f"</code>{behind}"


def anchor(heading):
    """What a link to a heading says behind the #."""
    return re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-")


def is_on_site(path):
    inside = path.relative_to(ROOT)
    return str(inside) in PAGES_AT_THE_TOP or (inside.parts[0] == "docs" and path.suffix == ".md")


def place(page, heading=""):
    """The anchor of a heading, or of the page: the only one of its name on the site."""
    if heading:
        return f"{page.stem.lower()}-{heading}"
    return "index" if page.name == "README.md" else f"page-{page.stem.lower()}"


def linked(page, text, target):
    file, _, heading = target.partition("#")
    path = (page.parent / file).resolve() if file else page
    if not is_on_site(path):
        name = str(path.relative_to(ROOT))
        return text if name in text else f"{text} (`{name}`)"
    return f'@ref {place(path, heading)} "{text}"'


def outside_code(page, line):
    """A line with its links and headings prepared; what stands between backquotes stays."""
    line = CODE.sub(code, line)
    line = re.sub(r"!\[([^\]]*)\]\(([^)]*/)?([^)/]+)\)", r"![\1](\3)", line)
    parts = re.split(r"(!\[[^\]]*\]\([^)]*\)|\[(?:[^\]`]|`[^`]*`)+\]\((?!https?:)[^)\s]+\)|`[^`]*`)", line)
    for index, part in enumerate(parts):
        link = re.fullmatch(r"\[(.+)\]\(([^)\s]+)\)", part)
        if link and not part.startswith("!"):
            parts[index] = linked(page, link[1], link[2])
    line = "".join(parts)
    heading = re.fullmatch(r"(#{1,4}) (.*)", line)
    if not heading or (heading[1] == "#" and page.name == "README.md"):
        return line
    return f"{line} {{#{place(page, '' if heading[1] == '#' else anchor(heading[2]))}}}"


def main():
    page = pathlib.Path(sys.argv[1]).resolve()
    in_code = False
    for line in page.read_text().splitlines():
        if line.lstrip().startswith("```"):
            in_code = not in_code
        elif not in_code:
            line = outside_code(page, line)
        print(line)


if __name__ == "__main__":
    main()
