#!/usr/bin/env python3
"""Measures what the farm's way takes beyond rendering: frames in pieces on GNU parallel, with a renderer that sleeps.

    bench/farm_overhead.py build/release [--frames 100] [--pieces 16] [--seconds 10] [--jobs 64]

Prints a row: the time of rimg-farm submit, merges included, beside that of the sleep alone, with so many jobs at a time,
and the processor time of it all beside the seconds that the renderers slept. The sleepers share the processors of one
machine, so the second is what a farm is to expect, where each has one of its own.
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


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("build")
    parser.add_argument("--frames", type=int, default=100)
    parser.add_argument("--pieces", type=int, default=16)
    parser.add_argument("--seconds", type=float, default=10)
    parser.add_argument("--jobs", type=int, default=64)
    args = parser.parse_args()
    rimg = os.path.abspath(os.path.join(args.build, "cli", "rimg"))
    with tempfile.TemporaryDirectory() as folder:
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
        start, used = time.monotonic(), processor_time()
        subprocess.run([sys.executable, "-B", os.path.join(ROOT, "farm", "rimg-farm"), "submit", "--frames",
                        "1-%d" % args.frames, "--pieces", str(args.pieces), "--size", SIZE, "--bucket", BUCKET, "--out",
                        os.path.join(folder, "shot"), "--rimg", rimg, "--engine", "parallel", "--engine-args",
                        "--jobs %d" % args.jobs, "--", renderer, folder, str(args.seconds), "{frame}", "{box}", "{out}"],
                       check=True)
        took, used = time.monotonic() - start, processor_time() - used
        merged = len(os.listdir(os.path.join(folder, "shot", "frames")))
        if merged != args.frames:
            sys.exit("%d of %d frames merged" % (merged, args.frames))
    count = args.frames * len(boxes)
    ideal = -(-count // args.jobs) * args.seconds
    print("| pieces | at a time | rendering, s | in all, s | more | processor time, s | of all rendering |")
    print("|---:|---:|---:|---:|---:|---:|---:|")
    print("| %d | %d | %.0f | %.1f | %.1f %% | %.1f | %.2f %% |" % (
        count, args.jobs, ideal, took, (took / ideal - 1) * 100, used, used / (count * args.seconds) * 100))


if __name__ == "__main__":
    main()
