#!/usr/bin/env python3
"""Draws how cost grows and what each choice of compression costs, and writes tables of growth, levels and choices.

Usage: bench_report.py GROWTH_JSON ROWS_JSON OUT_DIR

GROWTH_JSON is what bench_growth wrote with --benchmark_out, ROWS_JSON what bench_rawimage wrote. OUT_DIR receives
growth.svg and growth.md, choices.svg and choices.md. A file that is - or has no rows of its kind gives nothing.
"""

import json
import math
import re
import sys
from pathlib import Path

COLOURS = {"write": "#c0392b", "read": "#2471a3", "table": "#1e8449", "scan": "#8e44ad"}
LABELS = {"write": "write, level 1", "read": "read", "table": "load the table", "scan": "scan without a table"}
PANELS = [
    ("buckets of 16 x 16 pixels, one channel", "buckets", lambda b, s, c: s == 16 and c == 1),
    ("channels, 64 buckets of 32 x 32 pixels", "channels", lambda b, s, c: s == 32 and b == 64),
    ("bucket side in pixels, a frame of 1024 x 1024, two channels", "side", lambda b, s, c: c == 2),
]
WIDTH, HEIGHT, LEFT, TOP, GAP = 300, 240, 60, 60, 70


def load(path):
    """Median milliseconds of processor time by (job, buckets, side, channels), and the rows of the level tables."""
    growth, levels = {}, {}
    for row in json.loads(Path(path).read_text())["benchmarks"]:
        if row.get("error_occurred") or row.get("aggregate_name", "median") != "median":
            continue
        name = row["run_name"]
        sizes = re.match(r"(\w+)/buckets:(\d+)/side:(\d+)/channels:(\d+)", name)
        level = re.match(r"level/(\w+)/(\d+)", name)
        if sizes:
            growth[(sizes[1], *map(int, sizes.groups()[1:]))] = row["cpu_time"]
        elif level:
            levels.setdefault(level[1], {})[int(level[2])] = row
    return growth, levels


def points(growth, job, axis, chosen):
    at = {"buckets": 1, "side": 2, "channels": 3}[axis]
    return sorted((key[at], time) for key, time in growth.items() if key[0] == job and chosen(*key[1:]))


def ticks(low, high):
    return [10**e for e in range(math.floor(math.log10(low)), math.ceil(math.log10(high)) + 1)]


def place(value, low, high, length):
    return length * (math.log(value) - math.log(low)) / (math.log(high) - math.log(low))


def panel(growth, left, title, axis, chosen):
    curves = {job: points(growth, job, axis, chosen) for job in COLOURS}
    sizes = sorted({size for curve in curves.values() for size, _ in curve})
    times = [time for curve in curves.values() for _, time in curve]
    marks = ticks(min(times), max(times))
    x = lambda size: left + place(size, sizes[0], sizes[-1], WIDTH)
    y = lambda time: TOP + HEIGHT - place(time, marks[0], marks[-1], HEIGHT)
    out = [f'<text x="{left}" y="{TOP - 14}" font-size="11">{title}</text>']
    for mark in marks:
        out.append(f'<line x1="{left}" x2="{left + WIDTH}" y1="{y(mark):.1f}" y2="{y(mark):.1f}" stroke="#ddd"/>')
        out.append(f'<text x="{left - 6}" y="{y(mark) + 4:.1f}" text-anchor="end">{mark:g} ms</text>')
    for size in sizes:
        label = f"{size // 1024}k" if size >= 1024 else str(size)
        out.append(f'<line x1="{x(size):.1f}" x2="{x(size):.1f}" y1="{TOP}" y2="{TOP + HEIGHT}" stroke="#eee"/>')
        out.append(f'<text x="{x(size):.1f}" y="{TOP + HEIGHT + 16}" text-anchor="middle">{label}</text>')
    for job, curve in curves.items():
        line = " ".join(f"{x(size):.1f},{y(time):.1f}" for size, time in curve)
        out.append(f'<polyline points="{line}" fill="none" stroke="{COLOURS[job]}" stroke-width="2"/>')
        out += [f'<circle cx="{x(s):.1f}" cy="{y(t):.1f}" r="3" fill="{COLOURS[job]}"/>' for s, t in curve]
    return out


def plot(growth):
    total = LEFT + len(PANELS) * (WIDTH + GAP)
    out = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{total}" height="{TOP + HEIGHT + 40}" '
        'font-family="sans-serif" font-size="10">',
        '<rect width="100%" height="100%" fill="white"/>',
    ]
    for i, (job, colour) in enumerate(COLOURS.items()):
        left = LEFT + i * 160
        out.append(f'<rect x="{left}" y="14" width="14" height="4" fill="{colour}"/>')
        out.append(f'<text x="{left + 20}" y="20" font-size="11">{LABELS[job]}</text>')
    for i, (title, axis, chosen) in enumerate(PANELS):
        out += panel(growth, LEFT + i * (WIDTH + GAP), title, axis, chosen)
    return "\n".join(out + ["</svg>", ""])


def tables(growth, levels):
    out = []
    for title, axis, chosen in PANELS:
        sizes = [size for size, _ in points(growth, "write", axis, chosen)]
        curves = {job: dict(points(growth, job, axis, chosen)) for job in COLOURS}
        out += [f"Milliseconds of processor time by {title}:", "", "| | " + " | ".join(map(str, sizes)) + " |"]
        out.append("|---|" + "---:|" * len(sizes))
        for job in COLOURS:
            out.append(f"| {LABELS[job]} | " + " | ".join(f"{curves[job][size]:.3g}" for size in sizes) + " |")
        out.append("")
    for frame, rows in levels.items():
        out += [f"Levels, {frame} frame:", "", "| level | file, MiB | of raw | MB/s of raw values | time |", "|---:|---:|---:|---:|---:|"]
        slowest = rows[9]["cpu_time"]
        for level, row in sorted(rows.items()):
            raw, stored, time = row["rawBytes"], row["fileBytes"], row["cpu_time"]
            out.append(
                f"| {level} | {stored / 2**20:.2f} | {100 * stored / raw:.1f} % | {raw / time / 1e3:.0f} | "
                f"{time / slowest:.2f} x |"
            )
        out.append("")
    return "\n".join(out)


def load_choices(path):
    """By frame, of each choice: the processor times of writing and of reading, in those of fast, and its bytes of raw."""
    found = {"": {}, ", read": {}, ", bytes": {}}
    for row in json.loads(Path(path).read_text())["rows"]:
        name = re.fullmatch(r"choice, ([^,]+), (\w+) frame(, bytes|, read|)", row["row"])
        if name and not row["failure"]:
            value = row["ratio" if name[3] == ", bytes" else "processorRatio"]
            found[name[3]].setdefault(name[2], {})[name[1]] = value
    frames = {}
    for frame, sizes in found[", bytes"].items():
        for choice, size in sizes.items():
            times = [1.0 if choice == "fast" else found[kind].get(frame, {}).get(choice) for kind in ("", ", read")]
            if None not in times:
                frames.setdefault(frame, {})[choice] = (*times, size)
    return frames


def choice_panel(left, top, title, dots):
    """`dots`: of each choice its time and its bytes."""
    times = [time for time, _ in dots.values()]
    low, high = min(times) / 1.3, max(times) * 2
    x = lambda time: left + place(time, low, high, WIDTH)
    marks = [0.01, 0.02, 0.05, 0.1, 0.2, 0.3, 0.5, 0.7, 1, 1.1]
    smallest = min(size for _, size in dots.values())
    while marks[1] < smallest:
        marks.pop(0)
    y = lambda size: top + HEIGHT - place(size, marks[0], marks[-1], HEIGHT)
    out = [f'<text x="{left}" y="{top - 14}" font-size="11">{title}</text>']
    for mark in marks[:-1]:
        out.append(f'<line x1="{left}" x2="{left + WIDTH}" y1="{y(mark):.1f}" y2="{y(mark):.1f}" stroke="#ddd"/>')
        out.append(f'<text x="{left - 6}" y="{y(mark) + 4:.1f}" text-anchor="end">{100 * mark:g} %</text>')
    for mark in (0.2, 0.5, 1, 2, 5, 10, 20, 50):
        if low < mark < high:
            out.append(f'<line x1="{x(mark):.1f}" x2="{x(mark):.1f}" y1="{top}" y2="{top + HEIGHT}" stroke="#eee"/>')
            out.append(f'<text x="{x(mark):.1f}" y="{top + HEIGHT + 16}" text-anchor="middle">{mark:g} x</text>')
    labels = []  # moved down where they would cover each other
    for choice, (time, size) in sorted(dots.items(), key=lambda item: y(item[1][1])):
        colour = COLOURS["read" if choice.startswith("OpenEXR") else "write"]
        beside, below = x(time) + 6, y(size) + 3
        while any(abs(beside - other) < 70 and abs(below - above) < 11 for other, above in labels):
            below += 1
        labels.append((beside, below))
        out.append(f'<circle cx="{x(time):.1f}" cy="{y(size):.1f}" r="3" fill="{colour}"/>')
        out.append(f'<text x="{beside:.1f}" y="{below:.1f}" fill="{colour}">{choice}</text>')
    return out


def plot_choices(frames):
    """A column for each frame: above the time of writing, below that of reading."""
    row = HEIGHT + GAP
    out = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{LEFT + len(frames) * (WIDTH + GAP)}" '
        f'height="{TOP + row + HEIGHT + 40}" font-family="sans-serif" font-size="10">',
        '<rect width="100%" height="100%" fill="white"/>',
        f'<text x="{LEFT}" y="20" font-size="11">bytes of the file, of the raw values, '
        "against processor time, in that of fast</text>",
    ]
    for column, (frame, choices) in enumerate(sorted(frames.items(), reverse=True)):
        for line, job in enumerate(("writing", "reading")):
            dots = {choice: (facts[line], facts[2]) for choice, facts in choices.items()}
            out += choice_panel(LEFT + column * (WIDTH + GAP), TOP + line * row, f"{frame} frame, {job}", dots)
    return "\n".join(out + ["</svg>", ""])


def choice_table(frames):
    names = sorted(frames, reverse=True)
    titles = (f"{name} frame: writing, reading, bytes of raw" for name in names)
    out = ["| | " + " | ".join(titles) + " |", "|---|" + "---|" * len(names)]
    for choice in frames[names[0]]:
        rows = (frames[name][choice] for name in names)
        cells = (f"{written:.2f} x, {read:.2f} x, {100 * size:.1f} %" for written, read, size in rows)
        out.append(f"| {choice} | " + " | ".join(cells) + " |")
    return "\n".join(out + [""])


def main():
    if len(sys.argv) != 4:
        sys.exit("usage: bench_report.py GROWTH_JSON ROWS_JSON OUT_DIR")
    folder = Path(sys.argv[3])
    if sys.argv[1] != "-":
        growth, levels = load(sys.argv[1])
        (folder / "growth.svg").write_text(plot(growth))
        (folder / "growth.md").write_text(tables(growth, levels))
    choices = load_choices(sys.argv[2]) if sys.argv[2] != "-" else {}
    if choices:
        (folder / "choices.svg").write_text(plot_choices(choices))
        (folder / "choices.md").write_text(choice_table(choices))


if __name__ == "__main__":
    main()
