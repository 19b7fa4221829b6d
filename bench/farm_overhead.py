#!/usr/bin/env python3
"""Measures what the farm's way takes beyond rendering: frames in pieces on GNU parallel, with a renderer that sleeps.

    bench/farm_overhead.py build/release [--frames 100] [--slept 3] [--pieces 16] [--seconds 10] [--jobs N]

Two rows, each the time of rimg-farm submit, merges included, with N jobs at a time, by default one for each processor:
all frames with a renderer that does not sleep, so that the time is all overhead, beside the time that so many pieces
would sleep; and the first few of them with one that does. Also the processor time of each piece.
"""
import argparse
import os
import resource
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SIZE, BUCKET = "1280x720", "64x64"
# Takes a finished piece instead of rendering one: RENDERER FOLDER SECONDS FRAME BOX OUT.
RENDERER = '#!/bin/sh\nsleep "$2" && cp "$1/$4.rimg" "$5"\n'


def processor_time():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def render_pieces(args, rimg, folder):
    """The pieces that the renderer takes, and itself; how many there are."""
    cut = [rimg, "pieces", "--size", SIZE, "--bucket", BUCKET, "--count", str(args.pieces)]
    boxes = subprocess.run(cut, check=True, stdout=subprocess.PIPE, universal_newlines=True).stdout.split()
    for box in boxes:
        subprocess.run([os.path.join(args.build, "examples", "render_frame"), "--size", SIZE, "--bucket", BUCKET,
                        "--samples", "1", "--region", box, "--output", os.path.join(folder, box + ".rimg")],
                       check=True, stdout=subprocess.DEVNULL)
    renderer = os.path.join(folder, "renderer")
    with open(renderer, "w", encoding="utf-8") as file:
        file.write(RENDERER)
    os.chmod(renderer, 0o755)
    return len(boxes)


def measure(args, rimg, folder, frames, slept):
    """A row for so many frames whose renderers sleep so many seconds."""
    out = os.path.join(folder, "shot-%d" % frames)
    start, used = time.monotonic(), processor_time()
    subprocess.run([sys.executable, "-B", os.path.join(ROOT, "farm", "rimg-farm"), "submit", "--frames", "1-%d" % frames,
                    "--pieces", str(args.pieces), "--size", SIZE, "--bucket", BUCKET, "--out", out, "--rimg", rimg,
                    "--engine", "parallel", "--engine-args", "--jobs %d" % args.jobs, "--",
                    os.path.join(folder, "renderer"), folder, str(slept), "{frame}", "{box}", "{out}"], check=True)
    took, used = time.monotonic() - start, processor_time() - used
    merged = len(os.listdir(os.path.join(out, "frames")))
    if merged != frames:
        sys.exit("%d of %d frames merged" % (merged, frames))
    count = frames * args.pieces
    rendering = -(-count // args.jobs) * args.seconds
    more = took - (rendering if slept else 0)
    print("| %d | %g | %d | %.0f | %.1f | %.2f %% | %.1f |" % (
        count, slept, args.jobs, rendering, more, more / rendering * 100, used / count * 1000), flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("build")
    parser.add_argument("--frames", type=int, default=100)
    parser.add_argument("--slept", type=int, default=3, metavar="FRAMES")
    parser.add_argument("--pieces", type=int, default=16)
    parser.add_argument("--seconds", type=float, default=10)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    args = parser.parse_args()
    rimg = os.path.abspath(os.path.join(args.build, "cli", "rimg"))
    with tempfile.TemporaryDirectory() as folder:
        args.pieces = render_pieces(args, rimg, folder)
        print("| pieces | slept, s | at a time | rendering of %g s each, s | more, s | more | processor, ms a piece |" %
              args.seconds)
        print("|---:|---:|---:|---:|---:|---:|---:|")
        measure(args, rimg, folder, args.frames, 0)
        measure(args, rimg, folder, args.slept, args.seconds)


if __name__ == "__main__":
    main()
