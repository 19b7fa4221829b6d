#!/usr/bin/env python3
"""Holds README.md and docs/ against the sources that they show.

Usage: check_docs.py ROOT

- Every ```cpp block is a run of lines of one file in examples/, which compiles; indentation aside.
- Every table of fields, which begins "| `STRUCT`, of `HEADER` | |", has exactly the fields of that structure, in its
  order.
- Every link to a file of the project, and to a heading of it, leads somewhere.
- Every test that a page names, as in `Suite.Name`, is one of tests/.

Prints one line for each breach and exits with 1 if there is one.
"""

import re
import sys
import textwrap
from pathlib import Path

BLOCK = re.compile(r"^```cpp\n(.*?)^```$", re.M | re.S)
FIELDS = re.compile(r"^\| `(\w+)`, of `([\w/.]+)` \| \|\n\|[-|]+\|\n((?:\|.*\n)+)", re.M)
LINK = re.compile(r"\]\(([^)\s]+)\)")
HEADING = re.compile(r"^#+ (.*)$", re.M)
NAMED_TEST = re.compile(r"`([A-Z]\w*\.[A-Z]\w*)`")
TEST = re.compile(r"^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\s*\)", re.M)
# A member of a structure that is written as the house style has it: type, name, perhaps a value.
MEMBER = re.compile(r"^    [\w:<>, ()*]+[ *](\w+)(?: = .*|\{.*\})?;")


def normal(text):
    return textwrap.dedent(text).strip("\n")


def check_blocks(name, page, examples):
    for block in BLOCK.findall(page):
        lines = [line.strip() for line in normal(block).split("\n")]
        if not any(holds(source, lines) for source in examples):
            yield f"{name}: no file of examples/ has the code that begins \"{lines[0]}\""


def holds(source, lines):
    starts = (i for i, line in enumerate(source) if line == lines[0])
    return any(source[i : i + len(lines)] == lines for i in starts)


def fields_of(header, struct):
    body = re.search(rf"^struct (?:RAWIMAGE_EXPORT )?{struct}\b[^;]*?\{{\n(.*?)^\}};", header, re.M | re.S)
    if body is None:
        return None
    return [match[1] for match in map(MEMBER.match, body[1].split("\n")) if match]


def check_fields(name, page, root):
    for struct, header, rows in FIELDS.findall(page):
        path = root / header
        actual = fields_of(path.read_text(), struct) if path.exists() else None
        if not actual:
            yield f"{name}: {header} has no structure {struct}"
            continue
        shown = [field for row in rows.splitlines() for field in re.findall(r"`(\w+)`", row.split("|")[1])]
        if shown != actual:
            yield f"{name}: {struct} has the fields {', '.join(actual)}; the page has {', '.join(shown)}"


def anchor(heading):
    return re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")


def check_links(path, page):
    for target in LINK.findall(page):
        if "://" in target:
            continue
        file, _, part = target.partition("#")
        other = path.parent / file if file else path
        if not other.exists():
            yield f"{path.name}: {target} leads to no file"
        elif part and part not in map(anchor, HEADING.findall(other.read_text())):
            yield f"{path.name}: {target} leads to no heading"


def check_tests(name, page, tests):
    for test in dict.fromkeys(NAMED_TEST.findall(page)):
        if test not in tests:
            yield f"{name}: there is no test {test}"


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    root = Path(sys.argv[1])
    examples = [
        [line.strip() for line in path.read_text().split("\n")]
        for path in sorted((root / "examples").rglob("*"))
        if path.suffix in {".h", ".cpp"}
    ]
    sources = (root / "tests").rglob("*.cpp")
    tests = {".".join(test) for path in sources for test in TEST.findall(path.read_text())}
    pages = [root / "README.md", *sorted((root / "docs").glob("*.md"))]
    breaches = []
    for path in pages:
        page = path.read_text()
        breaches += check_blocks(path.name, page, examples)
        breaches += check_fields(path.name, page, root)
        breaches += check_links(path, page)
        breaches += check_tests(path.name, page, tests)
    print("\n".join(breaches) or f"{len(pages)} pages show what is there")
    sys.exit(1 if breaches else 0)


if __name__ == "__main__":
    main()
