"""The exceptions of the package."""

from __future__ import annotations

import errno
import os
from typing import Any, Sequence

from . import _rawimage


# The system's codes by their texts, which are what is known of a file that cannot be opened.
_CODES = {os.strerror(code): code for code in errno.errorcode}


def _restored(kind: type[Error], state: dict[str, Any]) -> Error:
    error = kind.__new__(kind, state["text"])
    error.__dict__.update(state)
    error._fill_os_error()
    return error


class Error(Exception):
    """Something is wrong with a file, in the words of rimg.

    path     the file, or None
    offset   where it lies in the file, in bytes, or None
    channel  the name of the channel that it is about, or None
    box      the Box of the pixels that it is about, or None
    state    the state that the file or the work is in, such as "damaged"
    faults   all that was met: a list of Fault
    result   what could be made of the sound parts all the same, or None: what the function returns else

    Where an exception is pickled, as on the way from another process, it loses its result.
    """

    def __init__(
        self,
        cause: str,
        *,
        path: str | None = None,
        offset: int | None = None,
        state: str | None = None,
        code: int = 0,
        faults: Sequence[_rawimage.Fault] = (),
        result: Any = None,
    ) -> None:
        parts = [path] if path else []
        if offset is not None and not faults:
            parts.append(f"offset {offset}")
        text = _rawimage.safe_text(": ".join([*parts, cause.rstrip("\r\n")]))
        super().__init__(text)
        first = faults[0] if faults else None
        self.text = text
        self.path = path
        self.offset = first.offset if first else offset
        self.channel = first.name if first and first.channel >= 0 else None
        self.box = first.box if first else None
        self.state = state or getattr(self, "state", None)
        self.code = code
        self.faults = list(faults)
        self.result = result

        self._fill_os_error()

    def _fill_os_error(self) -> None:
        """What programs look for in an OSError."""
        if isinstance(self, OSError):
            self.errno, self.filename = self.code or _CODES.get(self.text.rpartition(": ")[2]), self.path

    def __reduce__(self) -> tuple[Any, ...]:
        return _restored, (type(self), {**self.__dict__, "result": None})

    def __str__(self) -> str:
        return self.text


class CannotOpenError(Error, OSError):
    """A file cannot be opened."""

    state = "cannot open"


class FormatError(Error):
    """A file is no raw image."""

    state = "not this format"


class DamagedError(Error):
    """Part of a file is lost. `result` has what is sound."""

    state = "damaged"


class IncompleteError(Error):
    """A file lacks what it is asked for, as its render was not finished."""

    state = "incomplete"


class ChannelError(Error, KeyError):
    """A file does not have the channel."""

    state = "no channel"


class MismatchError(Error):
    """Files do not fit together, or a conversion would lose what it must not."""

    state = "mismatch"


class StoppedError(Error):
    """The progress function has stopped the work. There is no output."""

    state = "stopped"


class WriteError(Error, OSError):
    """A file cannot be written."""

    state = "write failed"


_OF_STATE = {
    kind.state: kind
    for kind in (CannotOpenError, FormatError, DamagedError, IncompleteError, MismatchError, StoppedError, WriteError)
}
_OF_STATE["unfinished"] = IncompleteError
_OF_STATE["not in place"] = DamagedError
_OF_STATE["locked"] = CannotOpenError
_OF_STATE["holes"] = _OF_STATE["overlap"] = MismatchError
_OF_STATE["overscan"] = _OF_STATE["outside the frame"] = MismatchError


def error_of(state: str, cause: str, **facts: Any) -> Error:
    """The exception for work that ended in that state."""
    return _OF_STATE.get(state, Error)(cause or state, state=state, **facts)


def damage(path: str, faults: Sequence[_rawimage.Fault], cause: str, offset: int | None, result: Any) -> DamagedError:
    """The exception for what could be read in part."""
    if not faults:
        return DamagedError(cause or "is damaged", path=path, offset=offset, result=result)
    more = f"; and {len(faults) - 1} more" if len(faults) > 1 else ""
    return DamagedError(f"damaged {faults[0]}{more}", path=path, faults=faults, result=result)
