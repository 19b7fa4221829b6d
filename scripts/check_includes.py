#!/usr/bin/env python3
"""Holds the #include lines of this project's sources against its layers.

Usage: check_includes.py ROOT PUBLIC_HEADERS

PUBLIC_HEADERS names a file with one public header a line, relative to ROOT. Prints one line for each breach and
exits with 1 if there is one.
"""

import posixpath
import re
import sys
from pathlib import Path

PUBLIC = "(public)"
ANY = "(any)"

# What the conversions build on: public headers of the rooms below, and the format's own.
BELOW_CONVERT = ["rawimage", "support"]
BELOW_CONVERT += ["exr " + PUBLIC, *(f"rawimage/{room} {PUBLIC}" for room in ["tools", "frame", "inspect", "area", "read"])]

# What each folder may include of ours: a folder's headers, one header, public headers of a folder ("folder PUBLIC"),
# all public headers, or anything. Folders of the library are listed one by one; below the others all is alike.
LIBRARY = {
    "support": ["support", "rawimage/export.h"],
    "rawimage": ["rawimage", "support"],
    "rawimage/read": ["rawimage/read", "rawimage", "support"],
    "rawimage/area": ["rawimage/area", "rawimage", "support"],
    "rawimage/inspect": ["rawimage/inspect", "rawimage/area", "rawimage/read " + PUBLIC, "rawimage/read/torn_tail.h", "rawimage", "support"],
    "rawimage/frame": ["rawimage/frame", "rawimage/inspect", "rawimage/area", "rawimage/read", "rawimage", "support"],
    "rawimage/tools": ["rawimage/tools", "rawimage/frame", "rawimage/inspect", "rawimage/area", "rawimage/read " + PUBLIC, "rawimage", "support"],
    "exr": ["exr", "rawimage/export.h", "rawimage/records.h", "rawimage/output_file.h", "rawimage/area/pixel_box.h", "support"],
    "convert": ["convert", *BELOW_CONVERT],
    "convert/from_exr": ["convert/from_exr", "convert", *BELOW_CONVERT],
    "convert/to_exr": ["convert/to_exr", "convert", *BELOW_CONVERT],
}
PROGRAMS = {
    "cli": ["cli", PUBLIC],
    "oiio": ["oiio", PUBLIC],
    "examples": ["examples", PUBLIC],
    "python": ["python/native", PUBLIC],
    "bench": [ANY],
    "fuzz": [ANY],
    "tests": [ANY],
}

# Which of our files may include a foreign library. A name that ends with a slash stands for the folder.
CHECKS = ["tests/", "bench/", "fuzz/"]
FOREIGN = [
    ("zlib", re.compile(r"z(lib|conf)\.h$"), ["support/deflate_zlib.cpp", "support/inflate.cpp"] + CHECKS),
    ("xxHash", re.compile(r"xxhash\.h$"), ["support/digest.cpp"] + CHECKS),
    ("libdeflate", re.compile(r"libdeflate\.h$"), ["support/deflate_libdeflate.cpp"]),
    ("ISA-L", re.compile(r"isa-l(\.h$|/)"), ["support/deflate_isal.cpp"]),
    ("OpenEXR", re.compile(r"(OpenEXR/|Imath/|Imf|Imath|Iex|IlmThread|half|openexr)"),
     ["exr/", "convert/", "cli/convert.cpp", "oiio/attributes.cpp", "python/native/tools.cpp"] + CHECKS),
    ("OpenImageIO", re.compile(r"OpenImageIO/"), ["oiio/", "tests/oiio/"]),
    ("CLI11", re.compile(r"CLI/"), ["cli/", "examples/"]),
    ("nlohmann-json", re.compile(r"nlohmann/"), ["cli/", "tests/"]),
    ("libpng", re.compile(r"png(conf)?\.h$"), ["cli/", "tests/"]),
    ("pybind11", re.compile(r"pybind11/"), ["python/"]),
    ("GoogleTest", re.compile(r"(gtest|gmock)/"), ["tests/"]),
    ("Google Benchmark", re.compile(r"benchmark/"), ["bench/"]),
]
# The one public header that shows a foreign type to its users.
PUBLIC_WITH_FOREIGN = {"exr/attr_parser.h"}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def folder_of(path):
    return path.rpartition("/")[0]


def sources(root):
    for top in sorted({name.split("/")[0] for name in [*LIBRARY, *PROGRAMS]}):
        for path in sorted((root / top).rglob("*")):
            if path.suffix in {".h", ".cpp"}:
                yield path.relative_to(root).as_posix()


def rules_for(path):
    if folder_of(path) in LIBRARY:
        return LIBRARY[folder_of(path)]
    return PROGRAMS.get(path.split("/")[0])


def allowed(target, rules, public, own_top):
    for rule in rules:
        name, _, restriction = rule.partition(" ")
        if name == ANY or (name == PUBLIC and target in public) or name == target:
            return True
        if restriction == PUBLIC and target not in public:
            continue
        if folder_of(target) == name or (name == own_top and target.startswith(name + "/")):
            return True
    return False


# Public headers include each other by relative paths: a host may have files of the same names in its include path.
def resolve(path, target, public):
    return posixpath.normpath(posixpath.join(folder_of(path), target)) if path in public else target


def check_own(path, target, known, public):
    if target not in known:
        start = "this header's own folder" if path in public else "the root"
        return f'"{target}" is no file of this project (paths start at {start}; foreign headers go in <>)'
    own_top = path.split("/")[0] if path.split("/")[0] in PROGRAMS else None
    if not allowed(target, rules_for(path), public, own_top):
        return f'"{target}" is out of reach for {folder_of(path)}/'
    if path in public and target not in public:
        return f'public header includes "{target}", which is not public'
    return None


def check_foreign(path, target, known, public):
    if target in known:
        return f"<{target}> is ours and goes in quotes"
    for name, pattern, places in FOREIGN:
        if not pattern.match(target):
            continue
        if not any(path == place or (place.endswith("/") and path.startswith(place)) for place in places):
            return f"<{target}>: {name} is not for this file"
        if path in public and path not in PUBLIC_WITH_FOREIGN:
            return f"<{target}>: a public header shows {name}"
    return None


def find_cycle(graph):
    done = set()

    def walk(node, trail):
        if node in trail:
            return trail[trail.index(node) :] + [node]
        if node in done:
            return None
        for target in graph.get(node, []):
            cycle = walk(target, trail + [node])
            if cycle:
                return cycle
        done.add(node)
        return None

    for start in graph:
        cycle = walk(start, [])
        if cycle:
            return cycle
    return None


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: check_includes.py ROOT PUBLIC_HEADERS")
    root = Path(sys.argv[1])
    public = set(Path(sys.argv[2]).read_text().split())
    # The install test's consumer is a project of its own, outside the layers.
    known = {path for path in sources(root) if not path.startswith("tests/consumer/")}
    breaches = []
    graph = {}
    for path in sorted(known):
        if rules_for(path) is None:
            breaches.append(f"{path}: its folder has no place in the table of layers")
            continue
        graph[path] = []
        for number, line in enumerate((root / path).read_text().splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            quote, target = match.groups()
            if quote == '"':
                target = resolve(path, target, public)
            check = check_own if quote == '"' else check_foreign
            breach = check(path, target, known, public)
            if breach:
                breaches.append(f"{path}:{number}: {breach}")
            if quote == '"' and target in known:
                graph[path].append(target)
    cycle = find_cycle(graph)
    if cycle:
        breaches.append("include cycle: " + " -> ".join(cycle))
    for header in sorted(public - known):
        breaches.append(f"{header}: listed as public, but no such file")
    if not known:
        breaches.append(f"no sources below {root}")
    print("\n".join(breaches) or f"{len(known)} files keep to their layers")
    sys.exit(1 if breaches else 0)


if __name__ == "__main__":
    main()
