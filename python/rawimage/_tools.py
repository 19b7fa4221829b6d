"""Jobs on whole files."""

from __future__ import annotations

import os
from typing import Any, Iterable, Sequence

import numpy

from . import _rawimage
from ._errors import ChannelError, DamagedError, IncompleteError, StoppedError, WriteError, damage, error_of
from ._reading import Progress
from ._types import AnyPath, box_of, choice, path_of, patterns_of, size_of, text_of, threads_of, whole, wholes
from ._writing import COMPRESSIONS, EXR_COMPRESSIONS, LONGEST_NOTE

_INFINITE = float("inf")
_LARGEST_PICTURE = 32768
_OVERLAPS = {"refuse": 0, "first": 1, "last": 2}
_VIEWS = {"guess": 0, "id": 1, "colour": 2, "vector": 3, "depth": 4}
_FRAMES = {"display": 0, "data": 1, "union": 2}
_KINDS = {"scanline": 0, "tiled": 1, "multipart": 2}


def verify(
    path: AnyPath, *, quick: bool = False, threads: int = 0, progress: Progress | None = None
) -> _rawimage.VerifyReport:
    """Checks whether a raw image is sound and whole. Whatever its state is, it is in the report.

    quick      headers, table, lists and texts only: pixels are not decompressed
    threads    that decompress; 0 for one each processor
    progress   function of the bytes done and all; what it raises, or False, stops
    """
    name = path_of(path)
    return _judged(name, _rawimage.verify(name, quick, threads_of(threads), progress))


def missing(
    path: AnyPath, *, deep: bool = False, threads: int = 0, progress: Progress | None = None
) -> _rawimage.VerifyReport:
    """Finds what is left to render: `missing_in_any.boxes` of the report, `missing` by channel.

    deep   buckets whose values are damaged are missing, too; else headers count
    """
    name = path_of(path)
    return _judged(name, _rawimage.missing(name, deep, threads_of(threads), progress))


def _judged(path: str, report: _rawimage.VerifyReport) -> _rawimage.VerifyReport:
    if report._stopped:
        raise StoppedError("stopped", path=path)
    if report.state == "cannot open":
        raise error_of(report.state, report.cause, path=path)
    return report


def recover(
    path: AnyPath,
    output: AnyPath | None = None,
    *,
    in_place: bool = False,
    like: AnyPath | None = None,
    size: tuple[int, int] = (0, 0),
    threads: int = 0,
    progress: Progress | None = None,
) -> _rawimage.RecoverReport:
    """Saves what is sound of a damaged or unfinished raw image to the file `output`, and reports what is lost.

    in_place   instead: cut a torn end off the file and add its table; a DamagedError when that is not enough
    like       another file of the same render, for the resolution and the channels that the file has lost
    size       (width, height), the resolution alone
    """
    name = path_of(path)
    if in_place == (output is not None):
        raise ValueError("recover: name an output, or set in_place")
    sibling = "" if like is None else path_of(like)
    size = size_of(size, "size", 0)
    if in_place:
        report = _rawimage.recover(name, "", sibling, size, threads_of(threads), progress)
        if report.state != "good":
            raise error_of(report.state, report.cause, path=name, result=report)
        return report
    target = path_of(output)
    with _rawimage.NewFile(target, [name]) as made:
        report = _rawimage.recover(name, made.path, sibling, size, threads_of(threads), progress)
        if report.state != "good":
            file = target if report.state == "write failed" else name
            raise error_of(report.state, made.named(report.cause), path=file, result=report)
        made.commit()
    return report


def merge(
    inputs: Iterable[AnyPath],
    output: AnyPath,
    *,
    overlap: str = "refuse",
    allow_holes: bool = False,
    verify: bool = False,
    threads: int = 0,
    progress: Progress | None = None,
) -> _rawimage.MergeReport:
    """Makes one raw image out of pieces of the same frame, by copying.

    overlap       where several pieces have a pixel, the "first" or the "last" of them counts, or "refuse"
    allow_holes   merge even if pixels are missing afterwards
    verify        read the output again and compare it with the inputs
    """
    if isinstance(inputs, (str, bytes, os.PathLike)):
        raise TypeError("inputs: expected a list of paths, not one")
    names = [path_of(path) for path in inputs]
    target = path_of(output)
    if not names:
        raise ValueError("inputs: expected at least one")
    which = choice(_OVERLAPS, overlap, "overlap")
    with _rawimage.NewFile(target, names) as made:
        made.lock_name()
        report = _rawimage.merge(names, made.path, which, allow_holes, verify, threads_of(threads), progress)
        if report.state != "good":
            file = made.named(report.file) or target
            raise error_of(report.state, made.named(report.cause), path=file, result=report)
        made.commit()
    return report


def stats(
    path: AnyPath, *, channels: Sequence[str] = (), threads: int = 0, progress: Progress | None = None
) -> _rawimage.StatsReport:
    """Numbers about the values of each channel. A damaged file is a DamagedError, whose `result` is of what is sound.

    channels   patterns for names, with * ? and [...]; none for all
    """
    name = path_of(path)
    return _complete(name, _rawimage.stats(name, patterns_of(channels), threads_of(threads), progress))


def hash(
    path: AnyPath,
    *,
    channels: Sequence[str] = (),
    metadata: bool = False,
    threads: int = 0,
    progress: Progress | None = None,
) -> _rawimage.HashReport:
    """One hash of what a frame shows, whatever its file is like: files of equal pixels have the same.

    metadata   the records count, too
    """
    name = path_of(path)
    return _complete(name, _rawimage.hash(name, patterns_of(channels), metadata, threads_of(threads), progress))


def _complete(path: str, report: Any) -> Any:
    if report._stopped:
        raise StoppedError("stopped", path=path)
    if report._unmatched:
        raise ChannelError(f'"{report._unmatched}" fits no channel', path=path)
    if report.state == "damaged":
        raise damage(path, report.damaged, report.cause, report.offset, report)
    if report.state in ("cannot open", "not this format"):
        raise error_of(report.state, report.cause, path=path)
    if not report._done:
        raise IncompleteError(report.cause or "has no resolution", path=path, result=report)
    return report


def diff(
    a: AnyPath,
    b: AnyPath,
    *,
    fail: float = 1e-6,
    fail_percent: float = 0.0,
    hard_fail: float = _INFINITE,
    warn: float = 1e-6,
    warn_percent: float = 0.0,
    hard_warn: float = _INFINITE,
    channels: Sequence[str] = (),
    records: bool = False,
    through_exr: bool = False,
    threads: int = 0,
    progress: Progress | None = None,
) -> _rawimage.DiffReport:
    """How two files differ, each a raw image or an OpenEXR file. The report's state is "good", "warnings", "failures"
    or "mismatch" (of sizes or channels).

    fail, fail_percent, hard_fail   a pixel counts that differs by more than `fail`; so many per cent of them may; and
                                    none by more than `hard_fail`
    warn, warn_percent, hard_warn   the same for warnings
    channels                        patterns for names; none for all
    records                         compare them, too
    through_exr                     one of two raw images was converted from OpenEXR, which does not keep everything
    """
    names = [path_of(a), path_of(b)]
    limits = {"fail": fail, "fail_percent": fail_percent, "hard_fail": hard_fail}
    limits.update(warn=warn, warn_percent=warn_percent, hard_warn=hard_warn)
    for name, limit in limits.items():
        if not limit >= 0:  # not a number is none
            raise ValueError(f"{name}: expected a number from 0 up, not {limit}")
    report = _rawimage.diff(
        *names,
        patterns_of(channels),
        (fail, fail_percent, hard_fail),
        (warn, warn_percent, hard_warn),
        records,
        through_exr,
        threads_of(threads),
        progress,
    )
    path = names[report.side] if report.side >= 0 else None
    if report.state in ("good", "warnings", "failures", "mismatch"):
        return report
    if report.state == "no channel":
        raise ChannelError(report.cause, path=path)
    if report.state == "damaged":
        raise damage(path or "", report.damaged, report.cause, report.offset, report)
    if report.state == "unreadable" and report.side >= 0:
        raise error_of(report.file_states[report.side], report.cause, path=path, offset=report.offset, result=report)
    raise error_of(report.state, report.cause, path=path, offset=report.offset, result=report)


def preview(
    path: AnyPath,
    output: AnyPath | None = None,
    *,
    size: int | tuple[int, int] = (0, 0),
    stretch: bool = False,
    channel: str = "",
    view: str = "guess",
    exposure: float = 0.0,
    background: tuple[int, int, int] = (0, 0, 0),
    stored: bool = True,
    threads: int = 0,
    progress: Progress | None = None,
) -> numpy.ndarray:
    """A picture of a raw image, finished or not: a uint8 array [y][x][3] in display values, and the PNG file `output`
    if it is named.

    size         (width, height), or one number: the frame's aspect, and at most as many pixels in each direction.
                 Without it the stored thumbnail's size or the frame's, at most 1024
    stretch      fill the picture instead of keeping the frame's aspect
    channel      the name of the channel to show; "" for the main colour
    view         "guess", "id", "colour", "vector" or "depth"
    exposure     stops, for colours
    background   red, green and blue where there are no pixels
    stored       take the stored thumbnail where it fits

    Of a damaged file, a DamagedError has the array as its `result`, and the PNG file is written.
    """
    name = path_of(path)
    colour = wholes(background, "background", ("red", "green", "blue"), 0, 255)
    wanted = choice(_VIEWS, view, "view")
    if not -100 <= exposure <= 100:
        raise ValueError(f"exposure: expected -100 to 100, not {exposure}")
    fit = 0
    if not isinstance(size, Iterable):
        size, fit = (0, 0), whole(size, "size", 1, _LARGEST_PICTURE)
    sides = size_of(size, "size", 0, _LARGEST_PICTURE)
    count = threads_of(threads)
    state, pixels, file_state, cause, offset, faults, names = _rawimage.preview(
        name, sides, fit, not stretch, channel, wanted, exposure, colour, stored, count, progress
    )
    where = offset if offset >= 0 else None
    if state != "good":
        raise _no_picture(name, state, file_state, cause, where, channel, names)
    if output is not None:
        target = path_of(output)
        with _rawimage.NewFile(target, [name], stream=True) as made:
            _write_png(made.path, target, pixels)
            made.commit()
    if faults or file_state == "damaged":
        raise damage(name, faults, cause, where, pixels)
    return pixels


def _write_png(path: str, name: str, pixels: numpy.ndarray) -> None:
    from PIL import Image, PngImagePlugin  # here, as it takes long and few have a use for it

    chunks = PngImagePlugin.PngInfo()
    chunks.add(b"sRGB", b"\0")
    try:
        with open(path, "wb") as file:
            Image.fromarray(pixels).save(file, "PNG", pnginfo=chunks)
    except OSError as error:
        raise WriteError(f"cannot be written: {error.strerror}", path=name, code=error.errno or 0) from error


def _no_picture(
    path: str, state: str, file_state: str, cause: str, offset: int | None, channel: str, names: list[str]
) -> Exception:
    if state == "bad request":
        return ValueError("size: expected 1 to 32768 pixels in each direction, or 0 for both")
    if state == "no channel" and names:
        return ChannelError(f'has no channel "{channel}"; it has {", ".join(names)}', path=path)
    if file_state == "damaged":
        return DamagedError(cause, path=path, offset=offset)
    if state in ("no channel", "no frame"):
        what = "channel list" if state == "no channel" else "resolution"
        return IncompleteError(f"has no {what} that can be drawn", path=path)
    return error_of(state, cause, path=path)


def convert(
    input: AnyPath,
    output: AnyPath,
    *,
    compression: str | None = None,
    bucket: tuple[int, int] | None = None,
    level: int | None = None,
    frame: str | None = None,
    crop_overscan: bool | None = None,
    kind: str | None = None,
    bits: int | None = None,
    auto_data_window: bool | None = None,
    origin: tuple[int, int] | None = None,
    attributes: str | None = None,
    attributes_from: AnyPath | None = None,
    crop: Sequence[int] | None = None,
    channels: Sequence[str] = (),
    strict: bool = False,
    threads: int = 0,
    progress: Progress | None = None,
) -> _rawimage.ConvertReport:
    """Turns a raw image into an OpenEXR file, or any OpenEXR file into a raw image.

    To a raw image:
    compression     "small", "balanced" or "fast"
    bucket          (width, height) of buckets, (64, 64)
    level           of "small", 1 to 9
    frame           the window that becomes the frame: "display", "data" or "union"
    crop_overscan   leave out pixels outside the frame

    To OpenEXR:
    compression        "zips", or another name that ExrWriter takes
    kind               "scanline", "multipart" or "tiled"
    bits               of a float: 32 or 16
    auto_data_window   data window around the pixels whose alpha is not 0
    origin             (x, y) where the display window begins
    attributes         more header attributes, "name=value; name=value"
    attributes_from    an OpenEXR file whose attributes are copied

    Both:
    crop       (x0, y0, x1, y1), the pixels of the frame that are taken
    channels   patterns for names; none for all
    strict     losses are a MismatchError, before anything is written

    `losses` of the report has what the output lacks.
    """
    source, target = path_of(input), path_of(output)
    threads = threads_of(threads)
    is_raw = _rawimage.is_raw_image(source)
    to_raw = {"bucket": bucket, "level": level, "frame": frame, "crop_overscan": crop_overscan}
    to_exr = {"kind": kind, "bits": bits, "auto_data_window": auto_data_window, "origin": origin}
    to_exr.update(attributes=attributes, attributes_from=attributes_from)
    for name, value in (to_raw if is_raw else to_exr).items():
        if value is not None:
            raise ValueError(f"{name} is for {'OpenEXR files' if is_raw else 'raw images'} as input")
    options: dict[str, Any] = {"channels": patterns_of(channels)}
    if crop is not None:
        options["crop"] = box_of(crop, "crop")
    if is_raw:
        options.update({name: value for name, value in to_exr.items() if value is not None})
        options["compression"] = choice(EXR_COMPRESSIONS, compression or "zips", "compression")
        options["kind"] = choice(_KINDS, kind or "scanline", "kind")
        options["origin_x"], options["origin_y"] = wholes(origin or (0, 0), "origin", ("x", "y"))
        options["attributes_from"] = "" if attributes_from is None else path_of(attributes_from)
        if options.get("bits", 32) not in (16, 32):
            raise ValueError(f"bits: expected 16 or 32, not {bits}")
        _rawimage.start_exr_threads(threads)
    else:
        options.update({name: value for name, value in to_raw.items() if value is not None})
        options["compression"] = choice(COMPRESSIONS, compression or "small", "compression")
        options["frame"] = choice(_FRAMES, frame or "display", "frame")
        options["bucket_width"], options["bucket_height"] = size_of(bucket or (64, 64), "bucket")
    return _convert(source, target, is_raw, options, strict, threads, progress)


def _convert(
    source: str, target: str, is_raw: bool, options: dict[str, Any], strict: bool, threads: int, progress: Any
) -> _rawimage.ConvertReport:
    with _rawimage.NewFile(target, [source, options.get("attributes_from", "")]) as made:

        def begin(report: _rawimage.ConvertReport) -> str | None:
            return None if strict and report.losses else made.path

        report = _rawimage.convert(source, is_raw, options, threads, progress, begin)
        if not report.written and not report.cause:
            losses = "; ".join(loss.text for loss in report.losses)
            raise error_of("mismatch", f"strict does not allow these losses: {losses}", path=source, result=report)
        if report.state == "bad option":
            raise ValueError(report.cause)
        if not report.written:
            file = made.named(report.file) or target
            facts = {"path": file, "offset": report.offset, "result": report}
            raise error_of(report.state, made.named(report.cause), **facts)
        made.commit()
    return report


def replace_note(path: AnyPath, note: str) -> None:
    """Replaces the note of a raw image, in place, or adds one to a finished file: at most 1023 bytes."""
    name = path_of(path)
    cause, code = _rawimage.replace_note(name, text_of(note, "note", LONGEST_NOTE))
    if code == 0:
        return
    states = {-2: "not this format", -3: "damaged", -4: "unfinished"}
    raise error_of(states.get(code, "write failed"), cause, path=name, code=code)
