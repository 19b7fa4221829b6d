#!/usr/bin/env python3
"""Lays out a root that has nothing but some Debian packages of this machine and what these depend on.

Usage: clean_root.py ROOT NAME|FILE.deb...

NAME is a package, of which the files are copied as they are installed here. FILE.deb is one that is not installed: only
what it depends on is copied, so that dpkg in ROOT installs it just when it names all that it needs. A ROOT that exists
gets what it lacks.
"""

import re
import shutil
import subprocess
import sys
from pathlib import Path

STATUS = Path("/var/lib/dpkg/status")
# What Debian has in every root and no package depends on: of that, what installing and running programs takes.
BASE = ["base-files", "base-passwd", "bash", "coreutils", "dash", "debianutils", "diffutils", "dpkg", "findutils"]
BASE += ["grep", "gzip", "hostname", "libc-bin", "mawk", "perl-base", "sed", "tar", "util-linux"]
# Made when packages are installed, and in none of them.
MADE = ["/etc/passwd", "/etc/group", "/etc/ld.so.conf"]
LINKS = ["bin", "sbin", "lib", "lib64", "lib32", "libx32"]


def fields_of(stanza):
    return dict(re.findall(r"^([\w-]+): *(.*(?:\n[ \t].*)*)", stanza, re.M))


def names_in(relation):
    """Package names of "a (>= 1) | b:any, c" as [["a", "b"], ["c"]]."""
    groups = [group.split("|") for group in relation.split(",") if group.strip()]
    return [[re.match(r"\s*([\w.+-]+)", name)[1] for name in group] for group in groups]


class Machine:
    """The packages that are installed here."""

    def __init__(self):
        self.stanzas, self.fields, self.providers = {}, {}, {}
        for stanza in STATUS.read_text().split("\n\n"):
            fields = fields_of(stanza)
            if not fields.get("Status", "").endswith("ok installed"):
                continue
            self.stanzas[fields["Package"]] = stanza
            self.fields[fields["Package"]] = fields
            for group in names_in(fields.get("Provides", "")):
                self.providers.setdefault(group[0], fields["Package"])

    def chosen(self, group):
        for name in group:
            if name in self.fields or name in self.providers:
                return name if name in self.fields else self.providers[name]
        sys.exit(f"clean_root: a package depends on {' or '.join(group)}, which is not installed here")

    def with_dependencies(self, wanted, given):
        """The names of `wanted` and all that they need, those of `given` aside."""
        found, open_groups = set(), [[name] for name in wanted]
        while open_groups:
            group = open_groups.pop()
            if set(group) & given:
                continue
            name = self.chosen(group)
            if name not in found:
                found.add(name)
                open_groups += needs_of(self.fields[name])
        return found


def needs_of(fields):
    return names_in(fields.get("Pre-Depends", "")) + names_in(fields.get("Depends", ""))


def copy_files(root, packages):
    info = STATUS.parent / "info"
    paths, kept = set(), root / "var/lib/dpkg/info"
    kept.mkdir(parents=True, exist_ok=True)
    for name in packages:
        for path in info.glob(f"{name}[.:]*"):
            if path.stem.split(":")[0] != name:
                continue
            shutil.copy2(path, kept)
            if path.suffix == ".list":
                paths.update(path.read_text().split("\n"))
    paths = sorted(path for path in {*paths, *MADE} - {"", "/."} if Path(path).exists() or Path(path).is_symlink())
    names = "".join(path.lstrip("/") + "\0" for path in paths)
    pack = subprocess.Popen(
        ["tar", "-C", "/", "--null", "--no-recursion", "-T", "-", "-cf", "-"],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    unpack = subprocess.Popen(["tar", "-C", str(root), "--keep-directory-symlink", "-xf", "-"], stdin=pack.stdout)
    pack.stdin.write(names.encode())
    pack.stdin.close()
    if unpack.wait() != 0 or pack.wait() != 0:
        sys.exit("clean_root: the files cannot be copied")


def copy_alternatives(root):
    """Links such as awk, where what they lead to is there."""
    for record in (STATUS.parent / "alternatives").iterdir():
        lines = record.read_text().split("\n")
        end = lines.index("", 1)
        names = [record.name, *lines[2:end:2]]
        for name, link in zip(names, [lines[1], *lines[3:end:2]]):
            chosen = Path("/etc/alternatives", name)
            if not chosen.is_symlink() or not (root / str(chosen.readlink()).lstrip("/")).exists():
                continue
            for path in [chosen, Path(link)]:
                copy = root / str(path).lstrip("/")
                copy.parent.mkdir(parents=True, exist_ok=True)
                if not copy.is_symlink():
                    copy.symlink_to(path.readlink())


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    root = Path(sys.argv[1])
    machine = Machine()
    wanted, given = list(BASE), set()
    for word in sys.argv[2:]:
        if not word.endswith(".deb"):
            wanted.append(word)
            continue
        fields = fields_of(subprocess.check_output(["dpkg-deb", "-f", word], text=True))
        given.add(fields["Package"])
        wanted += [machine.chosen(group) for group in needs_of(fields) if not group[0].startswith("librawimage")]
    status = root / "var/lib/dpkg/status"
    there = status.read_text() if status.exists() else ""
    present = {fields_of(stanza).get("Package") for stanza in there.split("\n\n")}
    packages = machine.with_dependencies(wanted, given) - present
    for link in LINKS if not there else []:
        if Path("/", link).is_symlink():
            (root / "usr" / link).mkdir(parents=True, exist_ok=True)
            (root / link).symlink_to(f"usr/{link}")
    for folder in ["tmp", "dev", "proc", "root", "var/lib/dpkg/updates", "var/lib/dpkg/triggers", "var/log"]:
        (root / folder).mkdir(parents=True, exist_ok=True)
    copy_files(root, packages)
    copy_alternatives(root)
    status.write_text(there + "".join(machine.stanzas[name] + "\n\n" for name in sorted(packages)))
    # Which packages act on whose files, as dpkg has it.
    known = present | packages
    triggers = Path("/var/lib/dpkg/triggers/File").read_text().splitlines()
    kept = [line for line in triggers if line.split()[-1].split("/")[0].split(":")[0] in known]
    (root / "var/lib/dpkg/triggers/File").write_text("".join(line + "\n" for line in kept))
    print(f"{root}: {len(packages)} packages of this machine")


if __name__ == "__main__":
    main()
