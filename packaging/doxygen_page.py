#!/usr/bin/env python3
"""Prints a page of docs/ as Doxygen takes it: each heading with a name of its own, links to headings by these, and none to
sources.

Usage: doxygen_page.py PAGE.md
"""

import re
import sys
from pathlib import Path


def name_of(page, heading):
    return f"{page}-" + re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")


def main():
    path = Path(sys.argv[1])
    named = set()

    def with_name(match):
        name = name_of(path.stem, match[2])
        if name in named:
            return match[0]
        named.add(name)
        return f"{match[1]} {match[2]} {{#{name}}}"

    def link(match):
        page = Path(match[1]).stem if match[1] else path.stem
        return f"](#{page}-{match[2]})"

    # Code keeps its hashes.
    parts = re.split(r"(^```.*?^```$)", path.read_text(), flags=re.M | re.S)
    for at in range(0, len(parts), 2):
        parts[at] = re.sub(r"^(##+) (.*)$", with_name, parts[at], flags=re.M)
        parts[at] = re.sub(r"\]\(([\w/]+\.md)?#([\w-]+)\)", link, parts[at])
        # Sources are no pages.
        parts[at] = re.sub(r"(?<!!)\[([^\]]*)\]\([\w./]+\.(?:cpp|h|py|sh)\)", r"\1", parts[at])
    print("".join(parts), end="")


if __name__ == "__main__":
    main()
