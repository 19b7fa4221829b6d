import fcntl
import json
import os
import resource
import signal
import subprocess
import threading
import time

import numpy
import pytest
from PIL import Image

import rawimage
from conftest import CHANNELS, values_of, write_frame


@pytest.fixture(scope="module")
def large(tmp_path_factory):
    """A frame that takes every tool some time."""
    path = tmp_path_factory.mktemp("large") / "large.rimg"
    channel = rawimage.Channel("a", "color", rawimage.COLOR)
    values = values_of(channel, 256, 256)
    with rawimage.Writer(path, 2048, 2048, [channel], compression="fast", sync=False) as out:
        for y in range(0, 2048, 256):
            for x in range(0, 2048, 256):
                out.write(x, y, {"a": values})
    return path


def jobs(path, folder):
    return {
        "verify": lambda **options: rawimage.verify(path, **options),
        "missing": lambda **options: rawimage.missing(path, deep=True, **options),
        "recover": lambda **options: rawimage.recover(path, folder / "new", **options),
        "merge": lambda **options: rawimage.merge([path], folder / "new", verify=True, **options),
        "convert": lambda **options: rawimage.convert(path, folder / "new", **options),
        "stats": lambda **options: rawimage.stats(path, **options),
        "hash": lambda **options: rawimage.hash(path, **options),
        "diff": lambda **options: rawimage.diff(path, path, **options),
        "preview": lambda **options: rawimage.preview(path, folder / "new", **options),
        "read": lambda **options: rawimage.open(path).read("a", **options),
    }


@pytest.mark.parametrize("name", jobs("", ""))
def test_progress_may_stop_the_work(large, tmp_path, name):
    job = jobs(large, tmp_path)[name]
    calls = []
    job(progress=lambda done, total: calls.append((done, total)))
    assert calls and all(0 <= done <= total for done, total in calls)
    (tmp_path / "new").write_bytes(b"older")
    with pytest.raises(rawimage.StoppedError):
        job(progress=lambda done, total: False)

    def fail(done, total):
        raise ZeroDivisionError

    with pytest.raises(ZeroDivisionError):
        job(progress=fail)
    # Neither has left anything, or touched what was there.
    assert [file.name for file in tmp_path.iterdir()] == ["new"] and (tmp_path / "new").read_bytes() == b"older"


@pytest.mark.parametrize("name", jobs("", ""))
def test_an_interrupt_ends_the_work(large, tmp_path, name):
    job = jobs(large, tmp_path)[name]
    start = time.perf_counter()
    job(threads=1)
    whole = time.perf_counter() - start
    for _ in range(20):  # some are done before it comes
        signal.signal(signal.SIGALRM, signal.default_int_handler)
        signal.setitimer(signal.ITIMER_REAL, whole / 4)
        try:
            job(threads=1)
        except KeyboardInterrupt:
            return
        finally:
            signal.setitimer(signal.ITIMER_REAL, 0)
    pytest.fail("never interrupted")


@pytest.mark.parametrize("name", ["recover", "merge", "convert", "preview"])
def test_an_output_replaces_an_older_one_when_it_is_whole(frame, tmp_path, name):
    path, _ = frame
    job, new = jobs(path, tmp_path)[name], tmp_path / "new"
    new.write_bytes(b"older")
    new.chmod(0o640)
    if os.geteuid() == 0:
        os.chown(new, 12345, 12346)
    before = new.stat()
    with open(new, "rb") as other:
        fcntl.flock(other, fcntl.LOCK_EX)
        with pytest.raises(rawimage.WriteError, match="new: cannot be written: another writer has the file open"):
            job()
    limits = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (10, limits[1]))
    try:
        with pytest.raises(rawimage.WriteError, match="new: .*File too large"):
            job()
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, limits)
    assert new.read_bytes() == b"older"
    job()
    after = new.stat()
    assert (after.st_mode, after.st_uid, after.st_gid) == (before.st_mode, before.st_uid, before.st_gid)
    assert after.st_size > 10 and [file.name for file in tmp_path.iterdir()] == ["new"]
    new.unlink()
    new.symlink_to(path)
    with pytest.raises(ValueError, match="new: input and output are the same file"):
        job()
    new.unlink()
    os.mkfifo(new)
    if name == "preview":  # written in one go
        reader = subprocess.Popen(["cat", new], stdout=subprocess.PIPE)
        job()
        assert reader.communicate()[0].startswith(b"\x89PNG")
    else:
        with pytest.raises(ValueError, match="new: must be a file"):
            job()


def test_merges_of_one_output_exclude_each_other(frame, tmp_path):
    path, _ = frame
    with open(tmp_path / "new.lock", "w") as other:
        fcntl.flock(other, fcntl.LOCK_EX)
        with pytest.raises(rawimage.WriteError, match="new: cannot be written: another writer"):
            rawimage.merge([path], tmp_path / "new")
    rawimage.merge([path], tmp_path / "new")
    assert [file.name for file in tmp_path.iterdir()] == ["new"]


def test_reports_are_those_of_rimg(frame, build):
    path, values = frame
    rimg = [build / "cli/rimg"]
    stats = json.loads(subprocess.run([*rimg, "stats", "--json", path], capture_output=True, check=True).stdout)
    found = rawimage.stats(path)
    assert [c.channel.name for c in found.channels] == [c["name"] for c in stats["channels"]]
    red = found.channels[0].components[0]
    assert (red.name, red.finite) == ("R", 2000)
    assert red.min == values["color"][:, :, 0].min() and red.mean == pytest.approx(values["color"][:, :, 0].mean())
    printed = subprocess.run([*rimg, "hash", path], capture_output=True, check=True, text=True).stdout
    assert printed.startswith(str(rawimage.hash(path)))
    assert len(rawimage.hash(path, channels=["d*"]).channels) == len(rawimage.stats(path, channels="d*").channels) == 1
    with pytest.raises(rawimage.ChannelError, match='"x" fits no channel'):
        rawimage.hash(path, channels=["x"])


def test_pieces_merge_and_convert_there_and_back(frame, tmp_path):
    path, values = frame
    halves = []
    for x in (0, 32):
        halves.append(tmp_path / f"{x}.rimg")
        box = (x, 0, min(x + 32, 50), 40)
        with rawimage.Writer(halves[-1], 50, 40, CHANNELS, region=box) as out:
            out.metadata(settings=b"no OpenEXR file has them")
            out.write(x, 0, {name: pixels[:, x : x + 32] for name, pixels in values.items()})
    whole, exr, back = tmp_path / "whole.rimg", tmp_path / "f.exr", tmp_path / "back.rimg"
    with pytest.raises(rawimage.MismatchError, match="frame.rimg: overlaps") as caught:
        rawimage.merge([*halves, path], whole)
    assert caught.value.state == "overlap" and not whole.exists()
    report = rawimage.merge(halves, whole, verify=True)
    assert len(report.contained) == 2 and report.holes.boxes == []
    assert rawimage.diff(whole, path).state == "good"
    assert rawimage.convert(whole, exr, kind="tiled", compression="zip").written
    assert [loss.kind for loss in rawimage.convert(exr, back, compression="fast").losses] == []
    assert rawimage.diff(back, path, through_exr=True).state == rawimage.diff(exr, path).state == "good"
    with pytest.raises(rawimage.MismatchError, match="strict does not allow"):
        rawimage.convert(whole, tmp_path / "no.exr", strict=True)
    with pytest.raises(ValueError, match="level is for OpenEXR files as input"):
        rawimage.convert(whole, exr, level=3)
    wrong = [
        (lambda: rawimage.merge(str(path), whole), TypeError, "inputs: expected a list of paths"),
        (lambda: rawimage.diff(path, path, fail=float("nan")), ValueError, "fail: expected a number from 0 up"),
        (lambda: rawimage.stats(path, channels=[1]), TypeError, "channels: expected patterns"),
        (lambda: rawimage.convert(path, exr, crop=(0, 0)), ValueError, "crop: expected"),
    ]
    for call, kind, text in wrong:
        with pytest.raises(kind, match=text):
            call()
    with pytest.raises(ValueError, match="input and output are the same file"):
        rawimage.merge(halves, halves[0])


def test_differences_are_found(frame, tmp_path):
    path, values = frame
    other = tmp_path / "other.rimg"
    changed = {name: pixels.copy() for name, pixels in values.items()}
    changed["depth"][7, 9] += 1
    with rawimage.Writer(other, 50, 40, CHANNELS) as out:
        out.metadata(note="other")
        out.write(0, 0, changed)
    (tmp_path / "text").write_text("neither")
    for wrong, kind in ("none", rawimage.CannotOpenError), ("text", rawimage.FormatError):
        with pytest.raises(kind, match=f"{wrong}: "):
            rawimage.diff(path, tmp_path / wrong)
    report = rawimage.diff(path, other, records=True)
    depth = next(channel for channel in report.channels if channel.channels[0].name == "depth")
    assert (report.state, depth.failures, depth.largest.x, depth.largest.y) == ("failures", 1, 9, 7)
    assert "note" in [record.name for record in report.records]
    assert rawimage.diff(path, other, fail=2, warn=2).state == "good"


def test_previews_are_arrays_and_png_files(frame, tmp_path):
    path, _ = frame
    sizes = [({}, (40, 50, 3)), ({"size": 25}, (20, 25, 3)), ({"channel": "depth", "size": (20, 10)}, (10, 20, 3))]
    for options, shape in sizes:
        pixels = rawimage.preview(path, tmp_path / "a.png", **options)
        assert pixels.dtype == numpy.uint8 and pixels.shape == shape and pixels.any()
        with Image.open(tmp_path / "a.png") as picture:
            assert (picture.format, picture.mode, picture.info["srgb"]) == ("PNG", "RGB", 0)
            numpy.testing.assert_array_equal(numpy.asarray(picture), pixels)
    with pytest.raises(rawimage.ChannelError, match='has no channel "x"; it has color'):
        rawimage.preview(path, channel="x")
    for size in (0, (0, 5), (-1, 5), 40000):
        with pytest.raises(ValueError, match="size: expected [01] to 32768"):
            rawimage.preview(path, size=size)


def test_notes_and_recoveries(tmp_path):
    path, saved = tmp_path / "f.rimg", tmp_path / "saved.rimg"
    write_frame(path, 50, 40)
    rawimage.replace_note(path, "new")
    assert rawimage.open(path).note == "new" and rawimage.verify(path).state == "good"
    with pytest.raises(ValueError, match="note: expected at most 1023 bytes, not 2000"):
        rawimage.replace_note(path, "x" * 2000)
    data = path.read_bytes()
    path.write_bytes(data[: len(data) * 2 // 3])
    report = rawimage.verify(path)
    assert report.state == "unfinished" and report.missing
    kept = rawimage.recover(path, saved)
    assert kept.lacks_pixels and rawimage.open(saved).state == "incomplete"
    assert rawimage.recover(path, in_place=True).changed and not rawimage.recover(path, in_place=True).changed
    with pytest.raises(ValueError, match="name an output, or set in_place"):
        rawimage.recover(path)
    with pytest.raises(rawimage.CannotOpenError):
        rawimage.recover(tmp_path / "none", saved)


def test_other_threads_run_during_work(large):
    thread = threading.Thread(target=rawimage.open(large).read, args=["a"])
    thread.start()
    turns = 0
    while thread.is_alive():
        time.sleep(0.001)
        turns += 1
    assert turns > 10  # with the interpreter's lock held there would be one or two
