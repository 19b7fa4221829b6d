"""Small values, and the checks of arguments."""

import operator
import os
from typing import Any, NamedTuple, Sequence, Union

import numpy

AnyPath = Union[str, bytes, "os.PathLike[Any]"]

_LEAST, _MOST = -(2**31), 2**31 - 1


class Box(NamedTuple):
    """The pixels from (x0, y0) up to (x1, y1), which are not among them. Any four numbers do where one is asked for."""

    x0: int
    y0: int
    x1: int
    y1: int

    @property
    def width(self) -> int:
        """Pixels from left to right."""
        return self.x1 - self.x0

    @property
    def height(self) -> int:
        """Pixels from top to bottom."""
        return self.y1 - self.y0


class Scene(NamedTuple):
    """The scene of a frame: a number whose meaning is the renderer's, and a name."""

    value: int
    name: str


class Bucket(NamedTuple):
    """The pixels of one bucket: its Box, and its values as an array [y][x][component]."""

    box: Box
    values: numpy.ndarray


class Change(NamedTuple):
    """What a refresh has found: "none", "grown" or "restarted" (another file), and the Box around the new pixels."""

    kind: str
    box: Box


# What a channel is to the renderer. Other numbers are allowed.
IMAGE = 1  # accepted as the colour of a preview
DEPTH = 117
ALPHA = 125
COLOR = 126  # the main colour


def path_of(path: AnyPath) -> str:
    """The name of a file as text. One that no file can have is a ValueError."""
    name = os.fsdecode(path)
    os.fsencode(name)
    if "\0" in name:
        raise ValueError(f"a path cannot hold NUL bytes: {name!r}")
    return name


def whole(value: Any, what: str, least: int = _LEAST, most: int = _MOST) -> int:
    """An integer within limits; TypeError or ValueError when it is none."""
    try:
        number = operator.index(value)
    except TypeError:
        raise TypeError(f"{what}: expected an integer, not {value!r}") from None
    if not least <= number <= most:
        raise ValueError(f"{what}: expected {least} to {most}, not {number}")
    return number


def wholes(values: Any, what: str, form: Sequence[str], least: int = _LEAST, most: int = _MOST) -> tuple[int, ...]:
    """As many integers as `form` has names."""
    expected = f"{what}: expected ({', '.join(form)}), not {values!r}"
    try:
        listed = list(values)
    except TypeError:
        raise TypeError(expected) from None
    if len(listed) != len(form):
        raise ValueError(expected)
    return tuple(whole(value, what, least, most) for value in listed)


def size_of(size: Any, what: str, least: int = 1, most: int = _MOST) -> tuple[int, ...]:
    """A width and a height."""
    return wholes(size, what, ("width", "height"), least, most)


def box_of(window: Any, what: str = "window") -> Box:
    """The Box of four numbers; x1 and y1 may be 2**31."""
    box = Box(*wholes(window, what, Box._fields, _LEAST, 2**31))
    if box.x1 < box.x0 or box.y1 < box.y0:
        raise ValueError(f"{what}: expected x0 <= x1 and y0 <= y1 in (x0, y0, x1, y1), not {tuple(box)}")
    return box


def threads_of(threads: Any) -> int:
    """A number of threads; 0 for one each processor."""
    return whole(threads, "threads", 0)


def text_of(text: Any, what: str, most: int | None = None) -> str:
    """A text as a file can have it: of at most `most` bytes, and without NUL."""
    if not isinstance(text, str):
        raise TypeError(f"{what}: expected a str, not {type(text).__name__}")
    if "\0" in text:
        raise ValueError(f"{what}: a text cannot hold NUL bytes")
    size = len(text.encode("utf-8", "surrogateescape"))
    if most is not None and size > most:
        raise ValueError(f"{what}: expected at most {most} bytes, not {size}")
    return text


def patterns_of(channels: Any) -> list[str]:
    """Patterns for names of channels: one text, or several."""
    listed = [channels] if isinstance(channels, str) else list(channels)
    if not all(isinstance(pattern, str) for pattern in listed):
        raise TypeError(f"channels: expected patterns for names, not {channels!r}")
    return listed


def choice(options: Any, value: Any, what: str) -> int:
    """The number of a word in a table of words."""
    if not isinstance(value, str) or value not in options:
        raise ValueError(f"{what} is one of {', '.join(options)}, not {value!r}")
    return options[value]
