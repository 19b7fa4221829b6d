"""Small values."""

from __future__ import annotations

from typing import NamedTuple

import numpy


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
