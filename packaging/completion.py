#!/usr/bin/env python3
"""Writes the shells' completion of rimg.

Usage: completion.py TREE OUT_DIR

TREE is what rimg --help-json prints. OUT_DIR gets rimg for bash, _rimg for zsh and rimg.fish: the scripts beside this
one, with the verbs, options and values of the tree filled in.
"""

import json
import shlex
import sys
from pathlib import Path

# What can be offered for a value, by its name in the help: endings of files, none for any file; one channel, or a list.
FILES = {
    "FILE": ["rimg"],
    "SIBLING": ["rimg"],
    "WxH|FILE": ["rimg"],
    "OUT.rimg": ["rimg"],
    "FILE.exr": ["exr"],
    "OUT.png": ["png"],
    "IN": ["rimg", "exr"],
    "A": ["rimg", "exr"],
    "B": ["rimg", "exr"],
    "PATH": [],
    "OUT": [],
}
CHANNELS = {"CHANNEL": "one", "GLOB,...": "list"}
NOTHING = {"N", "NUMBER", "X", "P", "LIST", "TEXT", "WxH", "X,Y", "X,Y,W,H", "RRGGBB"}


class Value:
    """What an option or argument takes: words, files by their endings, channels, or what cannot be offered."""

    def __init__(self, option):
        self.name = option["names"][0] if option["positional"] else option["value"]
        self.words = option["choices"]
        self.is_list = self.name.endswith(",...")
        self.files = FILES.get(self.name)
        self.channels = CHANNELS.get(self.name)
        if option["positional"] and self.name == "OUT":
            self.files = FILES["IN"]
        if not self.words and self.files is None and not self.channels and self.name not in NOTHING:
            sys.exit(f"completion.py: add the value {self.name} of {option['names'][-1]} to the tables")


def value_of(option):
    return Value(option) if option["value"] or option["positional"] else None


def named(verb):
    return [option for option in verb["options"] if not option["positional"]]


def arguments(verb):
    return [option for option in verb["options"] if option["positional"]]


def quoted(text):
    return "'" + text.replace("'", "'\\''") + "'"


def brief(option):
    """The beginning of a description, for a list of candidates."""
    return option["help"].split(". ")[0].split("; ")[0]


def bash_action(value):
    if value.words:
        return f"_rimg_offer {'list' if value.is_list else 'one'} {' '.join(value.words)}"
    if value.channels:
        return f"_rimg_channels {value.channels}"
    if value.files is None:
        return ":"
    return f"_filedir {quoted('@(' + '|'.join(value.files) + ')')}" if value.files else "_filedir"


def bash(tree):
    values, verbs = [], []
    for verb in tree["verbs"]:
        for option in named(verb):
            if option["value"]:
                patterns = "|".join(quoted(f"{verb['name']} {name}") for name in option["names"])
                values.append(f"        {patterns}) {bash_action(value_of(option))}; return ;;")
    for verb in [*tree["verbs"], tree]:
        names = " ".join(name for option in named(verb) for name in option["names"])
        other = f"_rimg_offer one {' '.join(part['name'] for part in verb['verbs'])}" if verb is tree else ":"
        if arguments(verb):
            other = bash_action(value_of(arguments(verb)[0]))
        pattern = "''" if verb is tree else verb["name"]
        verbs.append(f"        {pattern}) if [[ $cur == -* ]]; then _rimg_offer one {names}; else {other}; fi ;;")
    return {"VALUES": values, "VERBS": verbs}


def zsh_action(value):
    name = value.name.replace(":", "\\:")
    if value.words and value.is_list:
        return f":{name}:_values -s , {name} {' '.join(value.words)}"
    if value.words:
        return f":{name}:({' '.join(value.words)})"
    if value.channels:
        return f":{name}:_rimg_channels {value.channels}"
    if value.files is None:
        return f":{name}: "
    pattern = f' -g "*.({"|".join(value.files)})(-.)"' if value.files else ""
    return f":{name}:_files{pattern}"


def zsh_options(verb):
    for option in named(verb):
        text = brief(option).replace("[", "\\[").replace("]", "\\]")
        action = zsh_action(value_of(option)) if option["value"] else ""
        excluded = " ".join(option["names"])
        for name in option["names"]:
            ending = "" if not option["value"] else "=" if name.startswith("--") else "+"
            yield quoted(f"({excluded}){name}{ending}[{text}]{action}")


def zsh(tree):
    cases = []
    for verb in tree["verbs"]:
        specs = list(zsh_options(verb))
        for number, argument in enumerate(arguments(verb), 1):
            specs.append(quoted(("*" if argument["repeats"] else str(number)) + zsh_action(value_of(argument))))
        cases.append(f"        {verb['name']}) _arguments -s " + " \\\n            ".join(specs) + " ;;")
    return {
        "VERBS": ["        " + quoted(f"{verb['name']}:{brief(verb)}") for verb in tree["verbs"]],
        "OPTIONS": [f"        {spec} \\" for spec in zsh_options(tree)],
        "CASES": cases,
    }


def fish_action(value):
    if value.words:
        words = " ".join(value.words)
        return f"-x -a {quoted(f'(__rimg_list {words})' if value.is_list else words)}"
    if value.channels:
        return "-x -a '(__rimg_list (__rimg_channels))'" if value.channels == "list" else "-x -a '(__rimg_channels)'"
    if value.files is None:
        return "-x"
    return f"-x -a {quoted('(__rimg_files ' + ' '.join(value.files) + ')')}" if value.files else "-r -F"


def fish_text(text):
    return "'" + text.replace("\\", "\\\\").replace("'", "\\'") + "'"


def fish(tree):
    commands = []
    for verb in tree["verbs"]:
        commands.append(f"complete -c rimg -n '__rimg_verb_is \"\"' -a {verb['name']} -d {fish_text(brief(verb))}")
    for verb in [tree, *tree["verbs"]]:
        start = f"complete -c rimg -n '__rimg_verb_is {shlex.quote(verb['name']) if verb is not tree else chr(34) * 2}'"
        for option in named(verb):
            names = " ".join(("-l " if name.startswith("--") else "-s ") + name.lstrip("-") for name in option["names"])
            action = " " + fish_action(value_of(option)) if option["value"] else ""
            commands.append(f"{start} {names}{action} -d {fish_text(brief(option))}")
        if arguments(verb):
            action = fish_action(value_of(arguments(verb)[0])).replace("-x ", "")
            commands.append(f"{start} {action}")
    return {"COMMANDS": commands}


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    tree = json.loads(Path(sys.argv[1]).read_text())
    out = Path(sys.argv[2])
    out.mkdir(parents=True, exist_ok=True)
    for shell, fill, name in [("bash", bash, "rimg"), ("zsh", zsh, "_rimg"), ("fish", fish, "rimg.fish")]:
        text = (Path(__file__).parent / f"completion.{shell}").read_text()
        for place, lines in fill(tree).items():
            text = text.replace(f"@{place}@", "\n".join(lines))
        (out / name).write_text(text)


if __name__ == "__main__":
    main()
