#!/usr/bin/env python3
"""Writes the manual pages.

Usage: manual.py TREE DOCS PANDOC VERSION DATE OUT_DIR

TREE is what rimg --help-json prints: it becomes rimg(1) and a page for each verb. Pages of DOCS become rawimage(5) and
rimg-farm(1). OUT_DIR gets man1/ and man5/ with compressed pages, and nothing else is left in it.
"""

import gzip
import json
import re
import shutil
import subprocess
import sys
from pathlib import Path

# Page, section, source in docs/, what it is.
FROM_DOCS = [
    ("rawimage", 5, "raw_format.md", "raw image files of a renderer"),
    ("rimg-farm", 1, "farm.md", "render frames in pieces on many machines"),
]


def escaped(text):
    """Text as roff shows it unchanged, at the beginning of a line too."""
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq").replace("`", "\\(ga")
    text = text.replace("^", "\\(ha").replace("~", "\\(ti")
    return re.sub(r"^([.])", r"\\&\1", text, flags=re.M)


def bold(text):
    return f"\\fB{escaped(text)}\\fR"


def paragraph_with(head, text):
    return [".TP", head, escaped(text)]


def form(option):
    """The option as it is typed: "-o, --output OUT"."""
    names = ", ".join(bold(name) for name in option["names"])
    return names + (f" \\fI{escaped(option['value'])}\\fR" if option["value"] else "")


def argument(option):
    return f"\\fI{escaped(option['names'][0])}\\fR" + ("..." if option["repeats"] else "")


def synopsis(verb):
    words = [bold("rimg " + verb["name"])]
    words += [argument(option) for option in verb["options"] if option["positional"]]
    needed = [option for option in verb["options"] if option["required"] and not option["positional"]]
    words += [f"{bold(option['names'][-1])} \\fI{escaped(option['value'])}\\fR" for option in needed]
    return " ".join(words + ["[\\fIOPTIONS\\fR]"])


def option_lines(options):
    """Arguments, then the options of each group below the group's name."""
    lines = []
    for title, chosen in [("ARGUMENTS", True), ("OPTIONS", False)]:
        part = [option for option in options if option["positional"] == chosen]
        if part:
            lines.append(f".SH {title}")
        for group in dict.fromkeys(option["group"] for option in part):
            if group not in ("Positionals", "Options"):
                lines.append(f".SS {escaped(group)}")
            for option in part:
                if option["group"] == group:
                    lines += paragraph_with(argument(option) if chosen else form(option), option["help"])
    return lines


def end_lines(end):
    """What the help ends with: examples, and exit codes, each with what it means behind it."""
    lines = []
    for chapter in end.split("\n\n"):
        title, *rows = chapter.split("\n")
        if title == "Exit codes:":
            lines.append(".SH EXIT STATUS")
            for row in rows:
                lines += paragraph_with(*(row.split(maxsplit=1)))
        else:
            lines += [f".SH {title.rstrip(':').upper()}", ".nf"]
            lines += [escaped(row.strip()) for row in rows] + [".fi"]
    return lines


def page(name, brief, ends, body):
    title = name.upper().replace("-", "\\-")
    lines = [f'.TH {title} 1 "{ends["date"]}" "{ends["footer"]}" "{ends["header"]}"', ".ad l"]
    lines += [".SH NAME", f"{escaped(name)} \\- {escaped(brief)}"]
    return "\n".join(lines + body) + "\n"


def see_also(pages):
    return [".SH SEE ALSO", ", ".join(f"\\fB{escaped(name)}\\fR({section})" for name, section in pages)]


def brief_of(verb):
    """The first sentence of a verb's help, as a manual's list of names has it."""
    text = verb["help"].split(". ")[0].split(": ")[0].rstrip(".")
    return text[0].lower() + text[1:]


def program_page(tree, ends):
    body = [".SH SYNOPSIS", f"{bold('rimg')} \\fIVERB\\fR [\\fIOPTIONS\\fR] \\fIFILE\\fR..."]
    body += [".SH DESCRIPTION", escaped(tree["help"]), ".SH VERBS"]
    for verb in tree["verbs"]:
        body += paragraph_with(f"{bold(verb['name'])}", verb["help"] + ".")
    body += [".PP", "Each verb has a page of its own, such as", ".BR rimg\\-info (1)."]
    verbs = [(f"rimg-{verb['name']}", 1) for verb in tree["verbs"]]
    body += option_lines(tree["options"]) + end_lines(tree["end"])
    return page("rimg", brief_of(tree), ends, body + see_also(verbs + [("rimg-farm", 1), ("rawimage", 5)]))


def verb_page(verb, ends):
    body = [".SH SYNOPSIS", synopsis(verb), ".SH DESCRIPTION", escaped(verb["help"]) + "."]
    body += option_lines(verb["options"]) + end_lines(verb["end"]) + see_also([("rimg", 1), ("rawimage", 5)])
    return page("rimg-" + verb["name"], brief_of(verb), ends, body)


def page_of_docs(pandoc, docs, name, section, source, brief, ends):
    command = [pandoc, "--standalone", "--from=gfm", "--to=man"]
    command.append(f"--lua-filter={Path(__file__).parent / 'docs_filter.lua'}")
    variables = {"title": name.upper(), "section": section, "name": f"{name} - {brief}", **ends}
    command += [f"--variable={key}={value}" for key, value in variables.items()]
    text = subprocess.run([*command, docs / source], check=True, stdout=subprocess.PIPE, text=True).stdout
    # Fonts that only some programs know, and lines of narrow table columns that cannot be stretched.
    text = text.replace("\\f[V]", "\\f[B]").replace("\\f[C]", "\\f[B]")
    text = text.replace(".hy\n", ".hy\n.ad l\n", 1)
    return re.sub(r"^(\.S[HS] .*\n)\.PP\n", r"\1", text, flags=re.M)


def main():
    if len(sys.argv) != 7:
        sys.exit(__doc__)
    tree = json.loads(Path(sys.argv[1]).read_text())
    docs, pandoc, version, date, out = Path(sys.argv[2]), *sys.argv[3:6], Path(sys.argv[6])
    ends = {"date": date, "footer": f"rimg {version}", "header": "rawimage"}
    pages = {("rimg", 1): program_page(tree, ends)}
    for verb in tree["verbs"]:
        pages[f"rimg-{verb['name']}", 1] = verb_page(verb, ends)
    for name, section, source, brief in FROM_DOCS:
        pages[name, section] = page_of_docs(pandoc, docs, name, section, source, brief, ends)
    shutil.rmtree(out, ignore_errors=True)
    for (name, section), text in pages.items():
        folder = out / f"man{section}"
        folder.mkdir(parents=True, exist_ok=True)
        # Without the time, so that the same page is the same file.
        (folder / f"{name}.{section}.gz").write_bytes(gzip.compress(text.encode(), 9, mtime=0))


if __name__ == "__main__":
    main()
