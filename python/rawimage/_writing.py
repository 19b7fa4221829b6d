"""Writing frames."""

from __future__ import annotations

from types import TracebackType
from typing import Any, Iterable, Mapping, NoReturn, Sequence, Union

import numpy

from . import _rawimage
from ._errors import error_of
from ._types import AnyPath, Scene, box_of, choice, path_of, size_of, text_of, threads_of, whole, wholes

ChannelSpec = Union[str, _rawimage.Channel, Sequence[Any]]

_LONGEST_NAME = 63
LONGEST_NOTE = 1023
COMPRESSIONS = {"small": 0, "balanced": 1, "fast": 2}
_EXR_KINDS = {"scanline": 0, "tiled": 1, "multipart": 2}
EXR_COMPRESSIONS = {
    name: number + 1
    for number, name in enumerate(["none", "rle", "zips", "zip", "piz", "pxr24", "b44", "b44a", "dwaa", "dwab"])
}


def _channel_of(spec: ChannelSpec) -> _rawimage.Channel:
    if isinstance(spec, _rawimage.Channel):
        return _rawimage.Channel(spec.name, spec.type, spec.alias, spec.flags)
    if isinstance(spec, str):
        return _rawimage.Channel(spec)
    if not isinstance(spec, Sequence):
        raise TypeError(f"channels: expected a name, a Channel or (name, type, alias), not {spec!r}")
    return _rawimage.Channel(*spec)


def _layout(
    width: int, height: int, pixel_aspect: float, bucket: Sequence[int], region: Sequence[int] | None
) -> _rawimage.Layout:
    if not 1e-37 < pixel_aspect < 1e37:
        raise ValueError(f"pixel_aspect: expected a positive number, not {pixel_aspect}")
    box = None if region is None else box_of(region, "region")
    if box is not None and not (0 < box.width < 2**31 and 0 < box.height < 2**31):
        raise ValueError(f"region: expected 1 to {2**31 - 1} pixels in each direction, not {tuple(box)}")
    return _rawimage.Layout(width, height, pixel_aspect, size_of(bucket, "bucket"), box)


def _blob_of(data: Any, what: str) -> bytes:
    if not isinstance(data, (bytes, bytearray, memoryview)):
        raise TypeError(f"{what}: expected bytes, not {type(data).__name__}")
    return bytes(data)


def _camera_of(camera: Any, what: str) -> _rawimage.Camera:
    if not isinstance(camera, _rawimage.Camera):
        raise TypeError(f"{what}: expected a Camera, not {type(camera).__name__}")
    return camera


def _scene_of(scene: Any, what: str) -> Scene:
    if not isinstance(scene, tuple) or len(scene) != 2:
        raise TypeError(f"{what}: expected (number, name), not {scene!r}")
    return Scene(whole(scene[0], what), text_of(scene[1], what))


def _picture_of(pixels: Any, what: str) -> numpy.ndarray:
    array = numpy.asanyarray(pixels)
    if array.dtype != numpy.uint8:
        raise TypeError(f"{what}: expected values of dtype uint8, not {array.dtype}")
    if array.ndim != 3 or array.shape[2] != 3 or array.size == 0:
        raise ValueError(f"{what}: expected the shape (height, width, 3), not {array.shape}")
    return array


class _Output:
    """What both kinds of files have."""

    _output: _rawimage.Output
    path: str
    width: int
    height: int

    def _begin(self, output: _rawimage.Output) -> None:
        self._output = output
        self._places: dict[str, int] = {}
        for place, channel in enumerate(output.channels()):
            if channel.name in self._places:
                raise ValueError(f"channels: {channel.name!r} comes twice")
            self._places[channel.name] = place

    def __enter__(self) -> Any:
        return self

    def __reduce__(self) -> NoReturn:
        raise TypeError("a file that is being written cannot be copied or pickled")

    def __repr__(self) -> str:
        name = "ExrWriter" if isinstance(self, ExrWriter) else "Writer"
        return f"<rawimage.{name} {self.path!r}{', closed' if self.closed else ''}>"

    def __exit__(self, kind: type | None, value: BaseException | None, trace: TracebackType | None) -> None:
        if kind is None:
            self.close()
        else:
            self._output.abandon()

    @property
    def channels(self) -> list[_rawimage.Channel]:
        """The channels of the file, in their order."""
        return self._output.channels()

    @property
    def closed(self) -> bool:
        """The file is closed, or was left by an exception."""
        return self._output.closed()

    def write(self, x: int, y: int, values: Mapping[str, Any]) -> None:
        """Writes a bucket whose first pixel is (x, y).

        values   array for each channel by name, [y][x][component] ([y][x] will do for one component), all of one
                 size: float32, or int32 for type "int". Strides are of any size and sign. Channels may be left out

        Copies the values and returns; threads of the file compress and write them. What fails there is the
        WriteError of a later call. Any number of threads may write buckets at a time.
        """
        x, y = whole(x, "x"), whole(y, "y")
        if not isinstance(values, Mapping):
            raise TypeError(f"values: expected a mapping of names to arrays, not {type(values).__name__}")
        arrays = []
        for name, array in values.items():
            if name not in self._places:
                raise ValueError(f"values: no channel {name!r}; expected some of {', '.join(self._places)}")
            arrays.append((self._places[name], numpy.asanyarray(array)))
        if not arrays:
            raise ValueError("values: expected an array for at least one channel")
        self._check_size(x, y, arrays[0][1])
        self._output.write(x, y, arrays)

    def _check_size(self, x: int, y: int, array: numpy.ndarray) -> None:
        pass

    def metadata(
        self,
        *,
        camera: _rawimage.Camera | None = None,
        scene: Scene | tuple[int, str] | None = None,
        note: str | None = None,
        stamp_text: str | None = None,
        settings: bytes | None = None,
        stamp: bytes | None = None,
        overlay_texts: bytes | None = None,
        thumbnail: Any = None,
        attributes: str | None = None,
    ) -> None:
        """Writes records of the frame, in the given order of time: of several of a kind the last one counts.

        camera         a Camera
        scene          (number, name)
        note           text of at most 1023 bytes
        stamp_text     text
        settings, stamp, overlay_texts   bytes
        thumbnail      uint8 array [y][x][3] in display values
        attributes     "name=value; name=value", of OpenEXR files only

        OpenEXR files have camera, stamp text (tiled ones) and attributes; the others are a ValueError there.
        """
        output = self._output
        # What each becomes once it is checked: all of them are before the first is written.
        setters = {
            "camera": (camera, _camera_of, output.set_camera),
            "scene": (scene, _scene_of, lambda value: output.set_scene(*value)),
            "note": (note, lambda text, what: text_of(text, what, LONGEST_NOTE), output.set_note),
            "stamp_text": (stamp_text, text_of, output.set_stamp_text),
            "settings": (settings, _blob_of, output.set_settings),
            "stamp": (stamp, _blob_of, output.set_stamp),
            "overlay_texts": (overlay_texts, _blob_of, output.set_overlay_texts),
            "thumbnail": (thumbnail, _picture_of, output.set_thumbnail),
            "attributes": (attributes, text_of, output.set_attributes),
        }
        checked = []
        for name, (value, check, setter) in setters.items():
            if value is None:
                continue
            if name in self._NOT_CARRIED:
                raise ValueError(f"{name}: files of this kind have none")
            checked.append((setter, check(value, name)))
        for setter, value in checked:
            setter(value)

    _NOT_CARRIED: tuple[str, ...] = ()

    def flush(self) -> None:
        """Waits until all buckets are written: what is in a raw image then outlives this process."""
        self._output.flush()

    def close(self) -> None:
        """Finishes the file. Closing it twice does nothing."""
        self._output.close()


class Writer(_Output):
    """Writes a raw image, bucket by bucket.

    width, height   pixels of the frame
    channels        their list: Channel(name, type, alias), tuples of the same, or names of color channels
    bucket          announced (width, height) of buckets
    compression     "small" (zlib), "balanced" or "fast"
    threads         that compress; 0 for one each processor
    region          (x0, y0, x1, y1), the pixels that are rendered; the whole frame without it
    pixel_aspect    width of a pixel over its height
    sync            close() waits for the disk

    A context manager: leaving it by an exception leaves an unfinished file with all buckets that were written, as a
    crash would. append() continues such a file. An existing file is replaced.
    """

    _NOT_CARRIED = ("attributes",)

    def __init__(
        self,
        path: AnyPath,
        width: int,
        height: int,
        channels: Iterable[ChannelSpec],
        bucket: Sequence[int] = (64, 64),
        compression: str = "small",
        threads: int = 0,
        *,
        region: Sequence[int] | None = None,
        pixel_aspect: float = 1.0,
        sync: bool = True,
    ) -> None:
        self.path = path_of(path)
        self.width, self.height = whole(width, "width", 1), whole(height, "height", 1)
        layout = _layout(self.width, self.height, pixel_aspect, bucket, region)
        listed = _listed(channels)
        packing = choice(COMPRESSIONS, compression, "compression")
        self._begin(_rawimage.create_raw(self.path, layout, listed, packing, threads_of(threads), sync))


class ExrWriter(_Output):
    """Writes an OpenEXR file, with the same calls as Writer.

    kind               "scanline" and "multipart" take the whole frame in one write(), "tiled" takes buckets, each
                       exactly one tile
    bits               of a float: 32 or 16
    compression        "none", "rle", "zips", "zip", "piz", "pxr24", "b44", "b44a", "dwaa" or "dwab"
    auto_data_window   data window around the pixels whose alpha is not 0; not for tiled files
    origin             (x, y) where the display window begins

    Nothing is on the disk before the first write().
    """

    _NOT_CARRIED = ("scene", "note", "settings", "stamp", "overlay_texts", "thumbnail")

    def __init__(
        self,
        path: AnyPath,
        width: int,
        height: int,
        channels: Iterable[ChannelSpec],
        bucket: Sequence[int] = (64, 64),
        compression: str = "zips",
        threads: int = 0,
        *,
        kind: str = "scanline",
        bits: int = 32,
        region: Sequence[int] | None = None,
        pixel_aspect: float = 1.0,
        auto_data_window: bool = False,
        origin: tuple[int, int] = (0, 0),
    ) -> None:
        if bits not in (16, 32):
            raise ValueError(f"bits: expected 16 or 32, not {bits}")
        number = choice(_EXR_KINDS, kind, "kind")
        packing = choice(EXR_COMPRESSIONS, compression, "compression")
        self.path = path_of(path)
        self.width, self.height = whole(width, "width", 1), whole(height, "height", 1)
        self._tiled = kind == "tiled"
        if not self._tiled:
            self._NOT_CARRIED = (*self._NOT_CARRIED, "stamp_text")
        layout = _layout(self.width, self.height, pixel_aspect, bucket, region)
        _rawimage.start_exr_threads(threads_of(threads))
        listed = _listed(channels)
        place = wholes(origin, "origin", ("x", "y"))
        output = _rawimage.create_exr(self.path, layout, listed, number, bits, packing, auto_data_window, place)
        self._begin(output)

    def _check_size(self, x: int, y: int, array: numpy.ndarray) -> None:
        if self._tiled or ((x, y) == (0, 0) and array.shape[:2] == (self.height, self.width)):
            return
        raise ValueError(
            f"values: this file takes the whole frame at once, ({self.height}, {self.width}) values at (0, 0), not "
            f"{array.shape[:2]} at ({x}, {y})"
        )


def _listed(channels: Iterable[ChannelSpec]) -> list[_rawimage.Channel]:
    if isinstance(channels, str):
        raise TypeError("channels: expected a list of channels, not a str")
    if not isinstance(channels, Iterable):
        raise TypeError(f"channels: expected a list of channels, not {channels!r}")
    listed = [_channel_of(spec) for spec in channels]
    for channel in listed:
        text_of(channel.name, "channels", _LONGEST_NAME)
    names = [channel.name for channel in listed]
    if len(set(names)) != len(names):
        raise ValueError("channels: two have the same name")
    if not listed:
        raise ValueError("channels: expected at least one")
    return listed


class _Appended(Writer):
    def __init__(self, path: str, compression: int, threads: int, sync: bool) -> None:
        report = _rawimage.prepare_resume(path)
        if report.state != "good":
            raise error_of(report.state, report.cause, path=path, offset=report.cut_from)
        info = _rawimage.Frame(path, None).info()
        self.path = path
        self.width, self.height = info.frame.width, info.frame.height
        channels = sorted(info.channels, key=lambda channel: channel.index)
        if [channel.index for channel in channels] != list(range(len(channels))) or not channels:
            raise error_of("unsupported", "its channel list is missing or has gaps", path=path)
        self._begin(_rawimage.append_raw(path, channels, compression, threads, sync))


def append(path: AnyPath, *, compression: str = "small", threads: int = 0, sync: bool = True) -> Writer:
    """Continues a raw image: a Writer of its channels, whose buckets go behind those that it has.

    Cuts the torn end off a file whose writer died; a damaged file is a DamagedError. missing() lists what is left to
    write. Arguments are those of Writer.
    """
    return _Appended(path_of(path), choice(COMPRESSIONS, compression, "compression"), threads_of(threads), sync)
