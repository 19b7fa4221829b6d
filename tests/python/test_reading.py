import copy
import errno
import os
import pickle

import numpy
import pytest
from hypothesis import given
from hypothesis import strategies as st

import rawimage
from conftest import CHANNELS, write_frame

PIXELS = st.integers(-8, 60)


def boxes():
    return st.tuples(PIXELS, PIXELS, PIXELS, PIXELS).map(lambda n: (*map(min, n[:2], n[2:]), *map(max, n[:2], n[2:])))


def expected(values, window, fill):
    """What a read of the window returns, by padding the frame."""
    x0, y0, x1, y1 = window
    height, width, components = values.shape
    made = numpy.full((y1 - y0, x1 - x0, components), fill, values.dtype)
    left, top, right, bottom = max(x0, 0), max(y0, 0), min(x1, width), min(y1, height)
    if left < right and top < bottom:
        made[top - y0 : bottom - y0, left - x0 : right - x0] = values[top:bottom, left:right]
    return made


@given(boxes(), st.sampled_from(CHANNELS), st.sampled_from([0.0, -3.0, 7.0]), st.integers(0, 3))
def test_any_window_reads_as_the_frame_has_it(frame, window, channel, fill, threads):
    path, values = frame
    with rawimage.open(path) as file:
        found = file.read(channel.name, window, fill=fill, threads=threads)
        assert found.dtype == channel.dtype
        numpy.testing.assert_array_equal(found, expected(values[channel.name], window, fill))


@given(
    st.permutations([0, 1, 2]),
    st.tuples(*[st.sampled_from([1, -1, 2, -3])] * 3),
    st.sampled_from(CHANNELS),
    st.sampled_from([None, numpy.float16]),
)
def test_reads_into_views_of_any_strides_in_place(frame, order, steps, channel, dtype):
    path, values = frame
    window = (-3, 2, 45, 44)
    wanted = expected(values[channel.name], window, 5)
    shape = wanted.shape
    memory = numpy.full([shape[axis] * 3 + 1 for axis in order], 99, dtype or channel.dtype)
    view = memory.transpose(numpy.argsort(order))
    places = tuple(slice(None, None, step) for step in steps)
    view = view[places][tuple(slice(0, size) for size in shape)]
    with rawimage.open(path) as file:
        assert file.read(channel.name, window, out=view, fill=5) is view
    with numpy.errstate(over="ignore"):
        numpy.testing.assert_array_equal(view, wanted.astype(view.dtype))
    view[...] = 99
    assert (memory == 99).all()  # nothing beside the view was written


def test_several_channels_come_in_one_call(frame):
    path, values = frame
    file = rawimage.open(path)
    keys = ["depth", 0, file.channels["id"]]
    found = file.read(keys, window=(3, 4, 20, 30))
    assert list(found) == keys
    for name, pixels in zip(["depth", "color", "id"], found.values()):
        numpy.testing.assert_array_equal(pixels, values[name][4:30, 3:20])
    out = {"depth": numpy.empty((40, 50), numpy.float32), "id": numpy.empty((40, 50, 1), numpy.int32)}
    assert file.read(["id", "depth"], out=out)["depth"] is out["depth"]
    numpy.testing.assert_array_equal(out["depth"], values["depth"][:, :, 0])
    # Into the components of one array, and by a number of numpy's.
    both = numpy.empty((40, 50, 4), numpy.float32)
    file.read(["color", "depth"], out=[both[:, :, :3], both[:, :, 3:]])
    numpy.testing.assert_array_equal(both, numpy.dstack([values["color"], values["depth"]]))
    numpy.testing.assert_array_equal(file[numpy.int64(2)], values["id"])


def test_a_channel_of_another_file_is_not_taken_for_one_with_its_number(frame, tmp_path):
    path, values = frame
    write_frame(tmp_path / "f.rimg", 8, 8, CHANNELS[::-1])
    others = rawimage.open(tmp_path / "f.rimg").channels
    file = rawimage.open(path)
    with pytest.raises(rawimage.ChannelError, match='no channel "id"'):
        file[others["id"]]
    numpy.testing.assert_array_equal(file[file.channels["id"]], values["id"])


def test_a_file_shows_what_it_holds(tmp_path):
    camera = rawimage.Camera(fov=0.5, transform=numpy.arange(16).reshape(4, 4), projection=2)
    thumbnail = numpy.arange(60, dtype=numpy.uint8).reshape(4, 5, 3)
    written = {
        "note": "Grüße" * 140,  # 980 bytes
        "stamp_text": "stamp",
        "settings": b"a\0b",
        "stamp": b"xy",
        "overlay_texts": b"texts",
        "scene": rawimage.Scene(3, "scene"),
    }
    path = tmp_path / "f.rimg"
    metadata = {**written, "camera": camera, "thumbnail": thumbnail[::-1][::-1]}
    write_frame(path, 40, 30, metadata=metadata, region=(0, 0, 40, 30), pixel_aspect=2)
    with rawimage.open(str(path)) as file:
        assert {name: getattr(file, name) for name in written} == written
        assert (file.camera.transform == camera.transform).all() and file.camera.projection == 2
        numpy.testing.assert_array_equal(file.thumbnail, thumbnail)
        assert (file.width, file.height, file.bucket, file.pixel_aspect) == (40, 30, (16, 16), 2)
        assert file.region == file.area == rawimage.Box(0, 0, 40, 30)
        facts = [(c.name, c.type, c.alias, c.flags, c.components, c.dtype) for c in file.channels.values()]
        assert facts == [(c.name, c.type, c.alias, c.flags, c.components, c.dtype) for c in CHANNELS]
        assert (file.state, file.cause, file.missing(), file.finished) == ("good", "", [], True)
        assert "depth" in file and "none" not in file and list(file) == [c.name for c in CHANNELS]
    bare = tmp_path / "bare.rimg"
    write_frame(bare, 8, 8)
    file = rawimage.open(bare)
    assert all(getattr(file, name) is None for name in [*metadata, "region"])


def test_buckets_come_in_the_order_of_the_file(tmp_path):
    path = tmp_path / "f.rimg"
    with rawimage.Writer(path, 32, 16, [("a", "float")]) as out:
        written = [((8, 0), 1), ((0, 0), 2), ((12, 4), 3), ((8, 0), 4)]  # some cover others
        for place, value in written:
            out.write(*place, {"a": numpy.full((8, 8), value, numpy.float32)})
    file = rawimage.open(path)
    found = [(b.box[:2], b.values.mean()) for b in file.buckets("a")]
    assert found == written
    assert [b.box.x0 for b in file.buckets("a", window=(0, 0, 8, 8))] == [0]
    assert next(file.buckets("a")).values.shape == (8, 8, 1)
    assert file.read("a", (12, 4, 13, 5))[0, 0, 0] == 4


def test_an_unfinished_file_grows_under_refresh(tmp_path):
    path = tmp_path / "f.rimg"
    ones = numpy.ones((8, 8), numpy.float32)
    with rawimage.Writer(path, 16, 8, [("a", "float")], bucket=(8, 8)) as out:
        out.write(0, 0, {"a": ones})
        out.flush()
        file = rawimage.open(path)
        assert file.state == "unfinished" and file.missing()[0].boxes == [(8, 0, 16, 8)]
        assert (file["a"][:, 8:] == 0).all() and file.refresh().kind == "none"
        with pytest.raises(rawimage.IncompleteError, match="pixels are missing of a") as caught:
            file.read("a", fill=None)
        assert caught.value.result[:, :8].all()
        out.write(8, 0, {"a": ones})
        out.flush()
        assert file.refresh() == ("grown", (8, 0, 16, 8))
        assert file["a"].all()
    assert file.refresh().kind == "grown" and file.state == "good"
    other = tmp_path / "other.rimg"
    other.write_bytes(path.read_bytes()[:-40])
    os.replace(other, path)
    assert file.refresh().kind == "restarted" and file.width == 16 and file["a"].all()


MEMORY = numpy.zeros((41, 50), numpy.float32)
BAD_READS = [
    (lambda f: f["none"], rawimage.ChannelError, 'has no channel "none"; it has color, depth'),
    (lambda f: f["none"], KeyError, "color, depth"),
    (lambda f: f.read(2.5), TypeError, "expected several|not iterable"),
    (lambda f: f.read("id", (5, 0, 4, 9)), ValueError, "window: expected x0 <= x1"),
    (lambda f: f.read("id", (0, 0, 2**40, 9)), ValueError, "window: expected -2147483648 to 2147483648"),
    (lambda f: f.read("id", (0, 0, 1)), ValueError, r"window: expected \(x0, y0, x1, y1\), not \(0, 0, 1\)"),
    (lambda f: f.read("id", 5), TypeError, "window: expected"),
    (lambda f: f.read("id", (0, 0, 1.5, 1)), TypeError, "window: expected an integer, not 1.5"),
    (lambda f: f.read("id", threads=-1), ValueError, "threads: expected 0 to"),
    (lambda f: f.read("id", threads="2"), TypeError, "threads: expected an integer"),
    (lambda f: f.read("id", dtype="float32"), TypeError, "channel id: expected values of dtype int32 or float16"),
    (lambda f: f.read("id", out=[1]), TypeError, "expected a numpy array"),
    (lambda f: f.read("id", out=numpy.zeros((50, 40, 1), "i4")), ValueError, r"expected the shape \(40, 50, 1\)"),
    (lambda f: f.read("id", out=numpy.zeros((40, 50, 1), ">i4")), TypeError, "not >i4"),
    (lambda f: f.read("id", out=numpy.broadcast_to(numpy.int32(1), (40, 50))), ValueError, "read-only"),
    (lambda f: f.read(["id", "depth"], out=[numpy.zeros((40, 50), "i4")]), ValueError, "expected 2 arrays"),
    (lambda f: f.read(["id", "depth"], out={"id": numpy.zeros((40, 50), "i4")}), ValueError, "expected 2 arrays"),
    (lambda f: f.read(["id"], out=3), TypeError, "out: expected a sequence or a mapping"),
    (lambda f: f.read(["depth", "depth"], out=[MEMORY[1:], MEMORY[:-1]]), ValueError, "without a value in common"),
    (lambda f: f[rawimage.Channel("other")], KeyError, 'no channel "other"'),
    (lambda f: rawimage.open("a\0b"), ValueError, "NUL"),
    (copy.copy, TypeError, "cannot be copied or pickled"),
    (pickle.dumps, TypeError, "cannot be copied or pickled"),
    (lambda f: f.read("id", progress=3), TypeError, "progress must be a function"),
]


@pytest.mark.parametrize("call, kind, text", BAD_READS)
def test_wrong_arguments_say_what_was_expected(frame, call, kind, text):
    with pytest.raises(kind, match=text):
        call(rawimage.open(frame[0]))


def test_a_closed_file_is_an_error(frame):
    with rawimage.open(frame[0]) as file:
        buckets = file.buckets("id")
    for call in (lambda: file["id"], lambda: file.width, lambda: file.note, file.refresh, lambda: next(buckets)):
        with pytest.raises(ValueError, match="the file is closed"):
            call()


def test_a_file_that_cannot_be_opened_is_an_error(tmp_path):
    with pytest.raises(OSError, match="No such file") as caught:
        rawimage.open(tmp_path / "none")
    assert caught.value.path == str(tmp_path / "none") and caught.value.state == "cannot open"
    assert (caught.value.errno, caught.value.filename) == (errno.ENOENT, str(tmp_path / "none"))
    (tmp_path / "text").write_text("no image" * 10)
    with pytest.raises(rawimage.FormatError, match="text: not a raw image"):
        rawimage.open(tmp_path / "text")
