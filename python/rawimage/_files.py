"""Files that are made by the tools."""

from __future__ import annotations

import os
import struct
import zlib
from types import TracebackType
from typing import Sequence

import numpy

from . import _rawimage
from ._errors import WriteError


class NewFile:
    """A file that is written beside its name and takes it when it is whole: under the name there is always a whole
    file, the older or the new one. Leaving the context without commit() removes it."""

    def __init__(self, name: str, inputs: Sequence[str] = ()) -> None:
        if any(_rawimage.is_same_file(name, path) for path in inputs):
            raise ValueError(f"{name}: input and output are the same file")
        self.name = name
        self._target = os.path.realpath(name)
        self.part = ""

    def __enter__(self) -> NewFile:
        try:
            if os.path.isdir(self._target):
                raise IsADirectoryError(21, os.strerror(21))
            for number in range(1000):
                part = f"{self._target}.part-{os.getpid()}-{number}"
                try:
                    os.close(os.open(part, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, self._mode()))
                except FileExistsError:
                    continue
                self.part = part
                return self
            raise FileExistsError(17, os.strerror(17))
        except OSError as error:
            raise self._failure(error) from error

    def __exit__(self, kind: type | None, value: BaseException | None, trace: TracebackType | None) -> None:
        if self.part:
            os.unlink(self.part)
            self.part = ""

    def commit(self) -> None:
        try:
            os.replace(self.part, self._target)
        except OSError as error:
            raise self._failure(error) from error
        self.part = ""

    def named(self, text: str) -> str:
        """A message about the file beside as one about the output."""
        return text.replace(self.part, self.name) if self.part else text

    def _mode(self) -> int:
        try:
            return os.stat(self._target).st_mode & 0o777 | 0o600
        except OSError:
            return 0o666

    def _failure(self, error: OSError) -> WriteError:
        return WriteError(f"cannot be written: {error.strerror}", path=self.name, code=error.errno or 0)


def png_of(pixels: numpy.ndarray) -> bytes:
    """A PNG file of uint8 pixels [y][x][3]."""
    height, width, _ = pixels.shape
    # Each row begins with the number of its filter: none.
    rows = numpy.zeros((height, 1 + 3 * width), numpy.uint8)
    rows[:, 1:] = pixels.reshape(height, 3 * width)

    def chunk(kind: bytes, data: bytes) -> bytes:
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    body = chunk(b"IHDR", header) + chunk(b"sRGB", b"\0") + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b"")
    return b"\x89PNG\r\n\x1a\n" + body
