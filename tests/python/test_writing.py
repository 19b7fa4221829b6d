import os
import subprocess
import sys
import threading

import numpy
import pytest
from hypothesis import given
from hypothesis import strategies as st

import rawimage
from conftest import CHANNELS, values_of, write_frame

TYPES = ["float", "color", "float2", "int", "vector", "float4"]


@given(
    st.integers(1, 40),
    st.integers(1, 40),
    st.tuples(st.integers(1, 20), st.integers(1, 20)),
    st.lists(st.tuples(st.text(max_size=10).filter(lambda t: "\0" not in t), st.sampled_from(TYPES)), min_size=1,
             max_size=4, unique_by=lambda channel: channel[0]),
    st.sampled_from(["small", "balanced", "fast"]),
)
def test_what_is_written_is_read(tmp_path_factory, width, height, bucket, channels, compression):
    channels = [rawimage.Channel(name, kind) for name, kind in channels if name.encode("utf-8", "ignore")]
    if not channels:
        return
    path = tmp_path_factory.getbasetemp() / "roundtrip.rimg"
    frame = write_frame(path, width, height, channels, bucket, compression=compression)
    with rawimage.open(path) as file:
        assert file.state == "good"
        for name, values in file.read(list(frame)).items():
            numpy.testing.assert_array_equal(values, frame[name])


def test_writes_from_views_and_from_several_threads(tmp_path):
    path = tmp_path / "f.rimg"
    channel = rawimage.Channel("a", "color")
    values = values_of(channel, 64, 64)
    planar = numpy.ascontiguousarray(values.transpose(2, 0, 1))[:, ::-1]
    with rawimage.Writer(path, 64, 64, [channel], bucket=(16, 16)) as out:

        def write(y):
            for x in range(0, 64, 16):
                view = planar[:, ::-1][:, y : y + 16, x : x + 16].transpose(1, 2, 0)
                out.write(x, y, {"a": view})

        threads = [threading.Thread(target=write, args=[y]) for y in range(0, 64, 16)]
        [thread.start() for thread in threads]
        [thread.join() for thread in threads]
    numpy.testing.assert_array_equal(rawimage.open(path)["a"], values)


def test_leaving_by_an_exception_leaves_an_unfinished_file_that_goes_on(tmp_path):
    path = tmp_path / "f.rimg"
    values = values_of(CHANNELS[1], 16, 16)
    with pytest.raises(ZeroDivisionError):
        with rawimage.Writer(path, 16, 16, CHANNELS[:2], bucket=(8, 16)) as out:
            out.write(0, 0, {"depth": values[:, :8]})
            1 / 0
    assert out.closed and rawimage.open(path).state == "unfinished"
    left = rawimage.missing(path)
    assert {lack.name: lack.boxes for lack in left.missing} == {"color": [(0, 0, 16, 16)], "depth": [(8, 0, 16, 16)]}
    with rawimage.append(path) as out:
        assert (out.width, out.height, [c.name for c in out.channels]) == (16, 16, ["color", "depth"])
        out.write(8, 0, {"depth": values[:, 8:]})
        out.write(0, 0, {"color": numpy.ones((16, 16, 3), "f4")})
    with rawimage.open(path) as file:
        assert file.state == "good"
        numpy.testing.assert_array_equal(file["depth"], values)
    with pytest.raises(rawimage.CannotOpenError):
        rawimage.append(tmp_path / "none")


def test_a_killed_writer_leaves_what_it_has_flushed(tmp_path):
    path = tmp_path / "f.rimg"
    script = (
        "import os, sys, numpy, rawimage\n"
        "out = rawimage.Writer(sys.argv[1], 16, 8, [('a', 'float')], bucket=(8, 8))\n"
        "out.write(0, 0, {'a': numpy.ones((8, 8), 'f4')})\n"
        "out.flush()\n"
        "os.kill(os.getpid(), 9)\n"
    )
    assert subprocess.run([sys.executable, "-c", script, path]).returncode == -9
    file = rawimage.open(path)
    assert file.state == "unfinished" and file["a"].sum() == 64


@pytest.mark.parametrize("kind", ["scanline", "multipart", "tiled"])
def test_openexr_files_take_the_same_calls(tmp_path, kind):
    exr, back = tmp_path / "f.exr", tmp_path / "back.rimg"
    bucket = (16, 16) if kind == "tiled" else (50, 40)
    metadata = {"camera": rawimage.Camera(fov=1), "attributes": "answer=42"}
    frame = write_frame(exr, 50, 40, CHANNELS, bucket, rawimage.ExrWriter, kind=kind, metadata=metadata)
    assert rawimage.convert(exr, back).state == "good"
    with rawimage.open(back) as file:
        for name in ("color", "id", "crypto"):
            numpy.testing.assert_array_equal(file.read(file.channels[name]), frame[name])
    with rawimage.ExrWriter(tmp_path / "g.exr", 50, 40, CHANNELS, kind=kind) as out:
        with pytest.raises(ValueError, match="note: files of this kind have none"):
            out.metadata(note="x")
        if kind != "tiled":
            with pytest.raises(ValueError, match=r"takes the whole frame at once, \(40, 50\)"):
                out.write(0, 0, {"id": frame["id"][:16, :16]})


def test_wrong_arguments_say_what_was_expected(tmp_path):
    path = tmp_path / "f.rimg"
    cases = [
        (lambda: rawimage.Writer(path, 0, 8, ["a"]), ValueError, "width: expected 1 to"),
        (lambda: rawimage.Writer(path, 8, 8, "abc"), TypeError, "expected a list of channels"),
        (lambda: rawimage.Writer(path, 8, 8, ["ä" * 32]), ValueError, "at most 63 bytes"),
        (lambda: rawimage.Writer(path, 8, 8, ["a", "a"]), ValueError, "two have the same name"),
        (lambda: rawimage.Writer(path, 8, 8, [("a", "double")]), ValueError, "not double"),
        (lambda: rawimage.Writer(path, 8, 8, ["a"], compression="lz"), ValueError, "one of small, balanced, fast"),
        (lambda: rawimage.Writer(path, 8.5, 8, ["a"]), TypeError, "width: expected an integer, not 8.5"),
        (lambda: rawimage.Writer(path, 8, 8, ["a"], bucket=64), TypeError, r"bucket: expected \(width, height\)"),
        (lambda: rawimage.Writer(path, 8, 8, [5]), TypeError, "channels: expected a name, a Channel"),
        (lambda: rawimage.Writer(path, 8, 8, ["a"], pixel_aspect=float("nan")), ValueError, "pixel_aspect"),
        (lambda: rawimage.Writer(path, 8, 8, ["a"], region=(-(2**31), 0, 2**31, 8)), ValueError, "region: expected 1"),
        (lambda: rawimage.Writer(path, 8, 8, ["a"], region=(4, 4, 4, 4)), ValueError, "region: expected 1"),
        (lambda: rawimage.Writer("a\0b", 8, 8, ["a"]), ValueError, "NUL"),
        (lambda: rawimage.ExrWriter(path, 8, 8, ["a" * 64]), ValueError, "at most 63 bytes"),
        (lambda: rawimage.ExrWriter(path, 8, 8, ["a"], compression="lz"), ValueError, "one of none, rle"),
    ]
    for call, kind, text in cases:
        with pytest.raises(kind, match=text):
            call()
    ones = numpy.ones((4, 4, 3), "f4")
    with rawimage.Writer(path, 8, 8, ["a", ("i", "int")]) as out:
        cases = [
            ({}, ValueError, "at least one channel"),
            ({"b": ones}, ValueError, "no channel 'b'; expected some of a, i"),
            ({"a": ones.astype("f8")}, TypeError, "channel a: expected values of dtype float32, not float64"),
            ({"i": ones[:, :, :1]}, TypeError, "dtype int32"),
            ({"a": ones[:, :, :2]}, ValueError, r"channel a: expected the shape \(4, 4, 3\), not \(4, 4, 2\)"),
            ({"a": ones, "i": numpy.ones((4, 5), "i4")}, ValueError, r"expected the shape \(4, 4, 1\)"),
            ({"a": ones[:0]}, ValueError, "at least one pixel"),
            ({"a": ones[0, 0]}, ValueError, r"expected the shape \(height, width, 3\), not \(3,\)"),
            ([ones], TypeError, "values: expected a mapping"),
        ]
        with pytest.raises(ValueError, match="x: expected -2147483648 to"):
            out.write(2**31, 0, {"a": ones})
        for values, kind, text in cases:
            with pytest.raises(kind, match=text):
                out.write(0, 0, values)
        cases = [
            ({"note": 5}, TypeError, "note: expected a str"),
            ({"note": "x" * 1024}, ValueError, "note: expected at most 1023 bytes, not 1024"),
            ({"stamp_text": "a\0b"}, ValueError, "NUL"),
            ({"settings": 5}, TypeError, "settings: expected bytes"),
            ({"scene": "ab"}, TypeError, r"scene: expected \(number, name\)"),
            ({"camera": 5}, TypeError, "camera: expected a Camera"),
            ({"thumbnail": numpy.ones((0, 3, 3), "u1")}, ValueError, "thumbnail: expected the shape"),
        ]
        for records, kind, text in cases:
            with pytest.raises(kind, match=text):
                out.metadata(stamp=b"kept back", **records)
    assert rawimage.open(path).stamp is None
    with pytest.raises(ValueError, match="the file is closed"):
        out.write(0, 0, {"a": ones})


@pytest.mark.skipif(not os.path.exists("/dev/full"), reason="needs /dev/full")
def test_a_full_disk_is_an_error():
    with pytest.raises(rawimage.WriteError) as caught:
        with rawimage.Writer("/dev/full", 8, 8, ["a"]) as out:
            out.write(0, 0, {"a": numpy.ones((8, 8, 3), "f4")})
    assert caught.value.path == "/dev/full" and caught.value.state == "write failed"
