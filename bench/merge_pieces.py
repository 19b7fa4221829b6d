#!/usr/bin/env python3
"""Measures rimg merge on pieces of one 8K frame with many small buckets, beside cp of the same bytes.

    bench/merge_pieces.py build/release/cli/rimg [--folder DIR] [--pieces 1000,10000] [--bucket 16] [--rounds 7]

Prints a row for each number of pieces: the time of the merge over that of cp -r, and over that of cat to one file, both
with the copy on the disk at the end, as a merged file is; medians of rounds that take the three in turn; and the peak
memory of the merge beside its limit, 64 MiB and 64 bytes a tag. Each merge may open 256 files.
"""
import argparse
import os
import random
import resource
import shutil
import statistics
import struct
import subprocess
import sys
import tempfile
import time
import zlib

WIDTH, HEIGHT = 7680, 4320
TAG_RESOLUTION, TAG_BUCKETS, TAG_CHANNELS, TAG_TABLE, TAG_REGION = 256, 257, 262, 263, 265
# Index, type, alias, name, tag, bytes of a value.
CHANNELS = [(0, 2, 126, "color", 258, 12), (1, 1, 125, "alpha", 260, 4), (2, 1, 117, "depth", 260, 4)]
VARIANTS = 64  # of payloads
OPEN_FILES = 256


def tag(tag_id, payload, *words):
    return struct.pack("<II8i", tag_id, 40 + len(payload), *words, *[0] * (8 - len(words))) + payload


def payloads(bucket):
    """Zlib streams of smooth values with some noise, for each channel."""
    rng = random.Random(1)

    def values(count):
        return [i / count + rng.randrange(64) / 512 for i in range(count)]

    return [[zlib.compress(struct.pack("<%df" % count, *values(count)), 6) for _ in range(VARIANTS)]
            for count in [bucket * bucket * size // 4 for *_, size in CHANNELS]]


def write_piece(path, box, bucket, streams):
    x0, y0, x1, y1 = box
    records = b"".join(struct.pack("<4i64s", index, kind, alias, 0, name.encode())
                       for index, kind, alias, name, _, _ in CHANNELS)
    tags = [tag(TAG_RESOLUTION, b"", WIDTH, HEIGHT), tag(TAG_BUCKETS, b"", bucket, bucket),
            tag(TAG_CHANNELS, records, len(CHANNELS), 80),
            tag(TAG_REGION, struct.pack("<5i", 0, x0, y0, x1 - x0, y1 - y0))]
    for y in range(y0, y1, bucket):
        for x in range(x0, x1, bucket):
            for index, kind, _, _, tag_id, _ in reversed(CHANNELS):
                stream = streams[index][(x * 7 + y * 13) // bucket % VARIANTS]
                tags.append(tag(tag_id, stream, kind, x, y, bucket, bucket, 0, 0, index))
    offset, table = 32, []
    for one in tags:
        table.append(one[:40] + struct.pack("<Q", offset))
        offset += len(one)
    with open(path, "wb") as file:
        file.write(struct.pack("<4sIIQI8x", b"RIMG", 1, 3, offset, 1))
        file.write(b"".join(tags) + tag(TAG_TABLE, b"".join(table), len(table)))


def run(command, **more):
    """Seconds and the peak memory in bytes of a command that must succeed."""
    start = time.monotonic()
    process = subprocess.Popen(command, **more)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    seconds = time.monotonic() - start
    if process.returncode != 0:
        sys.exit("%s... failed" % " ".join(command[:4]))
    return seconds, usage.ru_maxrss * 1024


def few_files():
    resource.setrlimit(resource.RLIMIT_NOFILE, (OPEN_FILES, OPEN_FILES))


def measure(args, count):
    pieces = os.path.join(args.folder, "pieces")
    copies, merged, whole = (os.path.join(args.folder, name) for name in ("copies", "merged.rimg", "copied"))
    os.makedirs(pieces)
    cut = subprocess.run([args.rimg, "pieces", "--size", "%dx%d" % (WIDTH, HEIGHT), "--bucket",
                          "%dx%d" % (args.bucket, args.bucket), "--count", str(count)],
                         check=True, stdout=subprocess.PIPE, universal_newlines=True).stdout.split()
    boxes = [[int(word) for word in line.split(",")] for line in cut]
    names = [os.path.join(pieces, "%05d.rimg" % number) for number in range(len(boxes))]
    # In a process of its own: the peak of a child counts what this one holds.
    writer = os.fork()
    if writer == 0:
        streams = payloads(args.bucket)
        for name, box in zip(names, boxes):
            write_piece(name, box, args.bucket, streams)
        os._exit(0)
    if os.waitpid(writer, 0)[1] != 0:
        sys.exit("no room for the pieces")
    tags = len(CHANNELS) * (-(-WIDTH // args.bucket) * -(-HEIGHT // args.bucket))
    size = sum(os.path.getsize(name) for name in names)
    lists = os.path.join(args.folder, "names")
    with open(lists, "w") as file:
        file.write("\n".join(names))
    to_folder, to_file, seconds, peak = [], [], [], 0
    for _ in range(args.rounds):
        for old in (merged, whole):
            if os.path.exists(old):
                os.remove(old)
        shutil.rmtree(copies, ignore_errors=True)
        os.sync()
        ours, memory = run([args.rimg, "merge", "--files-from", lists, "-o", merged], preexec_fn=few_files)
        os.sync()
        cp = run(["cp", "-r", pieces, copies])[0] + run(["sync", "-f", args.folder])[0]
        with open(whole, "wb") as out:
            one = run(["xargs", "-a", lists, "cat"], stdout=out)[0] + run(["sync", "-f", args.folder])[0]
        to_folder.append(ours / cp)
        to_file.append(ours / one)
        seconds.append(ours)
        peak = max(peak, memory)
    run([args.rimg, "verify", merged], stdout=subprocess.DEVNULL)
    limit = (64 << 20) + 64 * tags
    print("| %d | %d | %.0f | %.0f | %.2f | %.2f | %.1f | %.1f |" % (
        len(cut), tags, size / 2**20, statistics.median(seconds) * 1000, statistics.median(to_folder),
        statistics.median(to_file), peak / 2**20, limit / 2**20), flush=True)
    shutil.rmtree(pieces)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("rimg")
    parser.add_argument("--folder", help="for a few gigabytes; a new one in the temporary folder by default")
    parser.add_argument("--pieces", default="10,100,1000,10000")
    parser.add_argument("--bucket", type=int, default=16)
    parser.add_argument("--rounds", type=int, default=7)
    args = parser.parse_args()
    with tempfile.TemporaryDirectory(dir=args.folder) as args.folder:
        print("| pieces | tags | MiB | merge, ms | time / cp | time / copy to one file | peak, MiB | limit, MiB |")
        print("|---:|---:|---:|---:|---:|---:|---:|---:|")
        for count in args.pieces.split(","):
            measure(args, int(count))


if __name__ == "__main__":
    main()
