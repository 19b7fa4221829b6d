"""Reading frames."""

from __future__ import annotations

from itertools import combinations
from types import MappingProxyType, TracebackType
from typing import Any, Callable, Iterable, Iterator, Mapping, NoReturn, Sequence, Union

import numpy

from . import _rawimage
from ._errors import ChannelError, DamagedError, Error, IncompleteError, StoppedError, damage, error_of
from ._types import AnyPath, Box, Bucket, Change, Scene, box_of, path_of, threads_of, whole

Key = Union[str, int, _rawimage.Channel]
Progress = Callable[[int, int], Any]

_EVERYWHERE = Box(-(2**31), -(2**31), 2**31, 2**31)
# Of the records that are read when they are asked for.
_STAMP, _OVERLAY_TEXTS, _SETTINGS = range(3)
_SCENE_NAME, _NOTE, _STAMP_TEXT = range(3)


def _may_share(a: numpy.ndarray, b: numpy.ndarray) -> bool:
    """True when two arrays have a value in common, as far as that is found out soon."""
    try:
        return numpy.shares_memory(a, b, max_work=1000)
    except numpy.TooHardError:
        return False


class File:
    """A raw image that is open for reading: finished, unfinished or damaged. rawimage.open() makes it.

    Any number of threads may use one object at a time; no lock of the interpreter is held during work. It is a context
    manager, and a container of its channels: `"depth" in file`, `for name in file`, `file["depth"]`.

    Where pixels are damaged, reads raise DamagedError, whose `result` has what is sound. Pixels that were never
    rendered have the fill value.
    """

    def __init__(self, path: AnyPath, *, progress: Progress | None = None) -> None:
        self.path: str = path_of(path)
        self._frame = _rawimage.Frame(self.path, progress)
        if self._frame.stopped():
            raise StoppedError("stopped", path=self.path)
        # The state of a file with many buckets takes time.
        if not self._info.channels and (state := self._frame.state()) in ("cannot open", "not this format"):
            raise error_of(state, self._frame.cause(), path=self.path)

    def __enter__(self) -> File:
        return self

    def __exit__(self, kind: type | None, value: BaseException | None, trace: TracebackType | None) -> None:
        self.close()

    def close(self) -> None:
        """Closes the file. Reads that are under way in other threads go on."""
        self._frame.close()

    def __repr__(self) -> str:
        if self._frame.closed():
            return f"<rawimage.File {self.path!r}, closed>"
        return f"<rawimage.File {self.path!r}, {self.width} x {self.height}, {len(self)} channels>"

    def __reduce__(self) -> NoReturn:
        raise TypeError("a rawimage.File cannot be copied or pickled: open its path once more")

    def __getitem__(self, channel: Key) -> numpy.ndarray:
        """All pixels of a channel: read(channel)."""
        return self.read(channel)

    def __iter__(self) -> Iterator[Key]:
        return iter(self.channels)

    def __contains__(self, channel: object) -> bool:
        return channel in self.channels

    def __len__(self) -> int:
        return len(self._info.channels)

    # What is known without pixels.

    @property
    def _info(self) -> _rawimage.FrameInfo:
        return self._frame.info()

    @property
    def width(self) -> int:
        """Pixels of the frame from left to right; 0 without a resolution."""
        return self._info.frame.width

    @property
    def height(self) -> int:
        """Pixels of the frame from top to bottom; 0 without a resolution."""
        return self._info.frame.height

    @property
    def area(self) -> Box:
        """The Box of the pixels to render: the render region, else the frame."""
        return self._info.area

    @property
    def region(self) -> Box | None:
        """The Box of the render region that is stored, or None."""
        return self._info.region

    @property
    def pixel_aspect(self) -> float:
        """The width of a pixel over its height."""
        return self._info.pixel_aspect

    @property
    def bucket(self) -> tuple[int, int] | None:
        """The announced (width, height) of buckets, or None."""
        return self._info.bucket

    @property
    def finished(self) -> bool:
        """The writer has closed the file."""
        return self._info.finished

    @property
    def channels(self) -> Mapping[Key, _rawimage.Channel]:
        """The channels by name, in the order of the file.

        Of several with one name the last one has it. The others, and those that only pixels have, go by their index.
        """
        channels = self._info.channels
        owner = {channel.name: channel.index for channel in channels if channel.name}
        return MappingProxyType({c.name if owner.get(c.name) == c.index else c.index: c for c in channels})

    # How the file is.

    @property
    def state(self) -> str:
        """"good", "unfinished", "incomplete" or "damaged", as far as headers show it; verify() looks at pixels, too."""
        return self._frame.state()

    @property
    def cause(self) -> str:
        """Why the state is not "good"; "" when it is."""
        return self._frame.cause()

    def missing(self) -> list[_rawimage.Missing]:
        """The channels that lack pixels of the area, with the boxes of these."""
        return self._frame.missing()

    def faults(self) -> list[_rawimage.Fault]:
        """What is lost of a damaged file, as far as headers show it."""
        return self._frame.faults()

    def refresh(self) -> Change:
        """Takes in what has been written to the file since, while the writer runs or behind it."""
        return Change(*self._frame.refresh())

    # Pixels.

    def read(
        self,
        channels: Key | Iterable[Key],
        window: Sequence[int] | None = None,
        out: Any = None,
        fill: float | None = 0.0,
        dtype: Any = None,
        *,
        threads: int = 1,
        progress: Progress | None = None,
    ) -> Any:
        """Reads pixels of one channel, or of several at once.

        channels   a name (an index, a Channel), or several
        window     (x0, y0, x1, y1), the pixels to read, x1 and y1 not among them; the whole frame without it. It may
                   reach beyond the frame
        out        array to read into, of shape (y1 - y0, x1 - x0, components); strides of any size and sign will do.
                   Of several channels a sequence or a mapping of arrays
        fill       value of pixels that were never rendered; with None they are an IncompleteError
        dtype      float32 (int32 for type "int"), which is what the file has, or float16
        threads    that decode; 0 for one each processor
        progress   function of done and total; what it raises, or False, stops

        Returns an array [y][x][component], or a dictionary of arrays. Damaged pixels are a DamagedError.
        """
        several = not isinstance(channels, (str, int, numpy.integer, _rawimage.Channel))
        keys = list(channels) if several else [channels]
        wanted = [self.channel(key) for key in keys]
        box = self._box(window)
        fill = None if fill is None else float(fill)
        arrays = self._arrays(keys, wanted, box, out if several or out is None else [out], fill, dtype)
        targets = [(channel.index, array) for channel, array in zip(wanted, arrays)]
        filled = out is None and not fill
        found = self._frame.read(box, targets, fill or 0.0, filled, threads_of(threads), progress)
        result = dict(zip(keys, arrays)) if several else arrays[0]
        self._check(found, fill is None, result)
        return result

    def buckets(self, channel: Key, window: Sequence[int] | None = None) -> Iterator[Bucket]:
        """Decodes the buckets of a channel one by one, in the order of the file.

        Buckets may overlap, the later one counts, and reach beyond the frame. `window` leaves out those without a
        pixel in it.
        """
        wanted = self.channel(channel)
        tags = self._frame.tags(_EVERYWHERE if window is None else box_of(window), wanted.index)
        return self._decode(wanted, tags)

    def _decode(self, channel: _rawimage.Channel, tags: list[tuple[int, Box]]) -> Iterator[Bucket]:
        for offset, box in tags:
            values, found = self._frame.bucket(channel, offset, box, None)
            if found.damaged:
                raise damage(self.path, found.damaged, "", None, None)
            if values is None:
                raise Error("has changed since it was opened: refresh()", path=self.path, offset=offset)
            yield Bucket(box, values)
        if self.state == "damaged" and any(lack.channel == channel.index for lack in self.missing()):
            raise self._damaged(None)

    def channel(self, key: Key) -> _rawimage.Channel:
        """The channel of that name or index. ChannelError, a KeyError, when there is none."""
        asked = key
        if isinstance(key, _rawimage.Channel):
            key = key.index
        if not isinstance(key, (str, int, numpy.integer)):
            raise TypeError(f"channel: expected a name, an index or a Channel, not {type(key).__name__}")
        info = self._info
        found = info.named(key) if isinstance(key, str) else info.indexed(whole(key, "channel"))
        # A Channel of another file may have the index of one that is not the same here.
        if isinstance(asked, _rawimage.Channel):
            key = asked.name
            found = found if found is not None and found.name == key else None
        if found is None:
            names = ", ".join(channel.name or str(channel.index) for channel in info.channels)
            raise ChannelError(f'has no channel "{key}"; it has {names or "none"}', path=self.path)
        if found.components == 0:
            raise ChannelError(f'channel "{key}" has no values', path=self.path)
        return found

    def _box(self, window: Sequence[int] | None) -> Box:
        if window is not None:
            return box_of(window)
        box = self._info.frame
        if box.width <= 0 or box.height <= 0:
            if self.state == "damaged":
                raise self._damaged(None)
            raise IncompleteError("has no resolution: name a window", path=self.path)
        return box

    def _arrays(
        self, keys: list[Any], wanted: list[_rawimage.Channel], box: Box, out: Any, fill: float | None, dtype: Any
    ) -> list[numpy.ndarray]:
        if out is None:
            make = numpy.empty if fill else numpy.zeros  # zeros cost nothing where nothing is written
            return [make((box.height, box.width, c.components), c.dtype if dtype is None else dtype) for c in wanted]
        if isinstance(out, Mapping):
            out = [out[key] for key in keys if key in out]
        elif not isinstance(out, Iterable):
            raise TypeError(f"out: expected a sequence or a mapping of arrays, not {type(out).__name__}")
        arrays = list(out)
        if len(arrays) != len(keys):
            raise ValueError(f"out: expected {len(keys)} arrays, one for each channel, not {len(arrays)}")
        for array in arrays:
            if not isinstance(array, numpy.ndarray):
                raise TypeError(f"out: expected a numpy array, not {type(array).__name__}")
            if dtype is not None and array.dtype != dtype:
                raise TypeError(f"out: expected values of dtype {numpy.dtype(dtype)}, not {array.dtype}")
        if any(_may_share(a, b) for a, b in combinations(arrays, 2)):
            raise ValueError("out: expected arrays without a value in common")
        return arrays

    def _check(self, found: _rawimage.Read, complete: bool, result: Any) -> None:
        if found.stopped:
            raise StoppedError("stopped", path=self.path)
        if found.damaged:
            raise damage(self.path, found.damaged, "", None, result)
        if found.missing and self.state == "damaged":
            raise self._damaged(result)
        if found.missing and complete:
            names = ", ".join(lack.name or str(lack.channel) for lack in found.missing)
            raise IncompleteError(f"pixels are missing of {names}", path=self.path, result=result)

    def _damaged(self, result: Any) -> DamagedError:
        offset = self._frame.cause_offset()
        return damage(self.path, (), self.cause, offset if offset >= 0 else None, result)

    # Records.

    @property
    def camera(self) -> _rawimage.Camera | None:
        """The camera, or None. Records that the file has and that cannot be read are a DamagedError."""
        return self._record("camera", self._frame.records().camera)

    @property
    def scene(self) -> Scene | None:
        """The scene, or None."""
        value = self._record("scene", self._frame.records().scene_value)
        return None if value is None else Scene(value, self._text(_SCENE_NAME) or "")

    @property
    def note(self) -> str | None:
        """The note, or None."""
        return self._text(_NOTE)

    @property
    def stamp_text(self) -> str | None:
        """The stamp's text, or None."""
        return self._text(_STAMP_TEXT)

    @property
    def settings(self) -> bytes | None:
        """The render settings as they are stored, or None."""
        return self._blob(_SETTINGS)

    @property
    def stamp(self) -> bytes | None:
        """The stamp's data as it is stored, or None."""
        return self._blob(_STAMP)

    @property
    def overlay_texts(self) -> bytes | None:
        """The overlay texts as they are stored, or None."""
        return self._blob(_OVERLAY_TEXTS)

    @property
    def thumbnail(self) -> numpy.ndarray | None:
        """The stored thumbnail, uint8 [y][x][3] in display values, or None."""
        return self._sound(self._frame.thumbnail())

    def _record(self, kind: str, value: Any) -> Any:
        if value is None:
            for fault in self._frame.records().damaged:
                if fault.tag and fault.tag.startswith(kind):
                    raise damage(self.path, [fault], "", None, None)
        return value

    def _text(self, which: int) -> str | None:
        return self._sound(self._frame.text(which))

    def _blob(self, which: int) -> bytes | None:
        return self._sound(self._frame.blob(which))

    def _sound(self, record: tuple[Any, _rawimage.Fault | None]) -> Any:
        value, fault = record
        if fault is not None:
            raise damage(self.path, [fault], "", None, None)
        return value
