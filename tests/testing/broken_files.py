"""Broken raw images, for the tests of what reads them from Python."""

import os
import pathlib
import struct
import zlib

CORPUS = pathlib.Path(__file__).parents[2] / "fuzz/corpus/files"
# Where many small files cost little.
FOLDER = pathlib.Path("/dev/shm" if os.access("/dev/shm", os.W_OK) else "/tmp")

_MOST = 2**31 - 1


def header(table=0):
    return b"RIMG" + struct.pack("<IIQIQ", 1, 3, table, 1, 0)


def tag(number, payload, *numbers):
    """The header of a tag that claims `payload` bytes."""
    return struct.pack("<II8i", number, 40 + payload, *numbers, *[0] * (8 - len(numbers)))


def unfinished(data):
    """A file as its writer leaves it when it dies before it writes the table's offset."""
    return data[:12] + bytes(8) + data[20:]


def lengths(data, step=1):
    """The file at every length, or at each of `step` of them."""
    return (data[:length] for length in range(0, len(data), step))


def flips(data, first=0, step=1):
    """The file with one bit changed: each bit, or each of `step` of them."""
    for bit in range(first, 8 * len(data), step):
        broken = bytearray(data)
        broken[bit // 8] ^= 1 << bit % 8
        yield bytes(broken)


def _lists(start):
    """Records that announce more than there is, and more than there could be."""
    for payload in (0, 900, 0xFFFFFFF0 - 80):
        records = [(262, (_MOST, 80)), (266, (26754, 26754)), (273, (_MOST,)), (267, ()), (269, ())]
        for number, numbers in records:
            yield f"record {number} of {payload} bytes", start + tag(number, payload, *numbers) + bytes(900)
        pixels = tag(270, payload, 6, -_MOST - 1, _MOST, 11585, 11585)
        yield f"pixels of {payload} bytes", start + pixels + bytes(900)
        yield f"table of {payload} bytes", header(72) + start[32:] + tag(263, payload, _MOST) + bytes(900)


def _frames():
    """Frames, regions and buckets of any size, with a channel for their pixels."""
    name = struct.pack("<4i64s", 0, 2, 126, 0, b"color")
    small = tag(256, 4, 64, 64) + struct.pack("<f", 1)
    bodies = {
        "no height": tag(256, 0, 1),
        "frame": tag(256, 4, _MOST, _MOST) + struct.pack("<f", 1) + tag(262, 80, 1, 80) + name,
        "region": small + tag(262, 80, 1, 80) + name + tag(265, 20)
        + struct.pack("<5i", 0, -_MOST, _MOST, _MOST, _MOST),
        "buckets": small + tag(257, 0, _MOST, _MOST) + tag(262, 80, 1, 80) + name
        + tag(258, 2**32 - 41, 2, 0, 0, _MOST, _MOST),
        "channels": small + tag(262, 80 * 20000, 20000, 80)
        + b"".join(struct.pack("<4i64s", i, 1, 0, 0, b"c") for i in range(20000)),
    }
    for what, body in bodies.items():
        for table in (0, 32, _MOST):
            yield f"{what}, table at {table}", header(table) + body


def hostile():
    """Names and contents of small files that claim much."""
    start = header() + tag(256, 0, _MOST, _MOST)
    yield from _lists(start)
    yield from _frames()
    bomb = zlib.compress(bytes(850 * 1030), 9)
    for side in (400, 480, 23170):
        yield f"bomb of {side}", start + tag(261, len(bomb), 4, 0, 0, side, side) + bomb
    for offset in (1, 32, 2**63 - 1, 2**64 - 1):
        yield f"table at {offset}", header(offset) + start[32:] + bytes(900)
    wide = (tag(261, 0, 4, i * 80000000, i - 2**31, i % 2 * _MOST, 0, 0, 0, i) for i in range(22))
    yield "channels of places", start + b"".join(wide)
    yield "no sizes", start + struct.pack("<II", 261, 0) * 120
    for path in sorted(CORPUS.iterdir()):
        yield path.name, path.read_bytes()
