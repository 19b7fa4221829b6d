"""Broken files: an exception or what was written, never other pixels, a crash or a hang."""

import os
import pickle
import struct

import numpy
import pytest

import broken_files
import rawimage
from conftest import write_frame

CHANNELS = [rawimage.Channel("a", "color"), rawimage.Channel("i", "int")]


@pytest.fixture
def place():
    path = broken_files.FOLDER / f"rawimage-{os.getpid()}.rimg"
    yield path
    path.unlink(missing_ok=True)


@pytest.fixture(scope="module")
def sample(tmp_path_factory):
    """A file of every kind of record, and its pixels."""
    path = tmp_path_factory.mktemp("sample") / "sample.rimg"
    thumbnail = numpy.ones((2, 2, 3), numpy.uint8)
    metadata = {"camera": rawimage.Camera(), "scene": (1, "s"), "note": "n", "stamp_text": "t"}
    metadata.update(settings=b"s", stamp=b"s", overlay_texts=b"o", thumbnail=thumbnail)
    return write_frame(path, 6, 4, CHANNELS, (3, 4), metadata=metadata, region=(0, 0, 6, 4)), path.read_bytes()


def check_pixels(path, frame):
    """Reads all that the file has. Returns its state, or the error's."""
    try:
        with rawimage.open(path) as file:
            for name in ("note", "settings", "thumbnail", "camera", "scene", "stamp_text"):
                try:
                    getattr(file, name)
                except rawimage.Error:
                    pass
            for name, values in frame.items():
                try:
                    found = file.read(name, (0, 0, 6, 4), fill=77)
                except rawimage.Error:
                    continue
                other = (found != values).any(axis=2)
                # Pixels that are not those that were written lack, and the file admits it.
                assert (found[other] == 77).all(), name
                assert not other.any() or file.state in ("unfinished", "incomplete"), name
                for bucket in file.buckets(name):
                    x, y = bucket.box[:2]
                    height, width, _ = bucket.values.shape
                    numpy.testing.assert_array_equal(bucket.values, values[y : y + height, x : x + width])
            return file.state
    except rawimage.Error as error:
        return error.state


@pytest.mark.parametrize("closed", [True, False])
def test_every_length_of_a_file_is_safe(sample, place, closed):
    frame, data = sample
    states = set()
    for broken in broken_files.lengths(data if closed else broken_files.unfinished(data), 3):
        place.write_bytes(broken)
        states.add(check_pixels(place, frame))
    assert {"not this format", "unfinished"} <= states or {"not this format", "damaged"} <= states


@pytest.mark.parametrize("step", range(4))
def test_every_bit_of_a_file_is_safe(sample, place, step):
    frame, data = sample
    states = set()
    for broken in broken_files.flips(data, step, 4 * 3):  # a third of them
        place.write_bytes(broken)
        states.add(check_pixels(place, frame))
    assert "damaged" in states


def test_damage_is_reported_where_it_is(sample, place):
    frame, data = sample
    offset = data.index(struct.pack("<I", 261))  # integers of the first bucket
    broken = bytearray(data)
    broken[offset + 45] ^= 0x55
    place.write_bytes(broken)
    with rawimage.open(place) as file:
        with pytest.raises(rawimage.DamagedError) as caught:
            file["i"]
        error = caught.value
        assert (error.offset, error.channel, error.box, error.state) == (offset, "i", (0, 0, 3, 4), "damaged")
        text = f"{place}: damaged bucket 3x4+0+0 of channel 1 i, offset {offset}"
        assert str(error).startswith(text) and error.path == str(place)
        assert not error.result[:, :3].any()
        numpy.testing.assert_array_equal(error.result[:, 3:], frame["i"][:, 3:])
        numpy.testing.assert_array_equal(file["a"], frame["a"])
        with pytest.raises(rawimage.DamagedError):
            list(file.buckets("i"))
    for tool in (rawimage.stats, rawimage.hash, lambda path: rawimage.preview(path, channel="i")):
        with pytest.raises(rawimage.DamagedError, match=f"offset {offset}") as caught:
            tool(place)
        assert caught.value.result is not None
    with pytest.raises(rawimage.DamagedError):
        rawimage.diff(place, place)
    # As it comes from another process.
    sent = pickle.loads(pickle.dumps(error))
    assert (type(sent), str(sent), sent.box, sent.result) == (rawimage.DamagedError, str(error), error.box, None)
    assert str(sent.faults[0]) == str(error.faults[0])
    report = rawimage.verify(place)
    assert report.state == "damaged" and str(report.faults[0]) in text + str(report.faults[0])
    assert [lack.name for lack in rawimage.missing(place, deep=True).missing] == ["i"]


def everything(path):
    jobs = [rawimage.verify, rawimage.missing, rawimage.stats, rawimage.hash, rawimage.preview]
    jobs.append(lambda name: rawimage.diff(name, name))
    for job in jobs:
        try:
            job(path)
        except rawimage.Error:
            pass
    try:
        with rawimage.open(path) as file:
            for channel in list(file.channels)[:20]:
                for read in (lambda: file.read(channel, (0, 0, 64, 64)), lambda: list(file.buckets(channel))):
                    try:
                        read()
                    except rawimage.Error:
                        pass
                try:
                    if file.width * file.height < 2**26 or file.width > 2**29:
                        file[channel]
                except (rawimage.Error, MemoryError, ValueError):  # an array that numpy refuses
                    pass
            file.note, file.camera, file.settings, file.thumbnail
    except rawimage.Error:
        pass


def test_hostile_files_are_harmless(place):
    for _, data in broken_files.hostile():
        place.write_bytes(data)
        everything(place)
