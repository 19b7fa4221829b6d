"""The native part of rawimage. help() has a line for each of these. Only a Camera can be changed."""

from typing import Any, Callable, Sequence

import numpy as np

from ._types import Box

__version__: str

_Progress = Callable[[int, int], Any] | None
_Limits = tuple[float, float, float]

class Channel:
    name: str
    type: str
    alias: int
    flags: int
    index: int
    components: int
    dtype: np.dtype
    def __init__(self, name: str, type: str = "color", alias: int = 0, flags: int = 0) -> None: ...

class Fault:
    offset: int
    end: int
    tag: str | None
    box: Box | None
    channel: int
    name: str
    cause: str
    count: int

class Boxes:
    boxes: list[Box]
    truncated: bool

class Missing:
    channel: int
    name: str
    boxes: list[Box]
    truncated: bool

class FrameInfo:
    file_bytes: int
    finished: bool
    frame: Box
    area: Box
    pixel_aspect: float
    bucket: tuple[int, int] | None
    region: Box | None
    channels: list[Channel]
    def named(self, name: str) -> Channel | None: ...
    def indexed(self, index: int) -> Channel | None: ...

class Records:
    camera: Camera | None
    scene_value: int | None
    damaged: list[Fault]

class Read:
    damaged: list[Fault]
    missing: list[Missing]
    stopped: bool

class VerifyReport:
    state: str
    cause: str
    offset: int | None
    faults: list[Fault]
    further_faults: int
    repaired: list[Fault]
    area: Box
    missing: list[Missing]
    missing_in_any: Boxes
    lacks_channels: bool
    tags: int
    file_bytes: int
    being_written: bool
    _stopped: bool

class RecoverReport:
    state: str
    cause: str
    tags_kept: int
    tags_of_pixels: int
    bytes_kept: int
    lost: list[Fault]
    cut_from: int | None
    repaired: list[Fault]
    doubts: list[Fault]
    lacks: bool
    lacks_resolution: bool
    lacks_channels: bool
    lacks_pixels: bool
    changed: bool

class MergeRepeat:
    file: str
    taken_from: str
    tags: int
    damaged: int

class MergeSetAside:
    file: str
    cause: str

class MergeReport:
    state: str
    file: str
    cause: str
    tags: int
    unfinished: list[str]
    repeats: list[MergeRepeat]
    set_aside: list[MergeSetAside]
    contained: list[str]
    frame: Box
    area: Box
    holes: Boxes

class ConvertNote:
    kind: str
    file: str
    text: str
    names: list[str]
    count: int | None
    offset: int | None

class ConvertReport:
    state: str
    cause: str
    file: str
    offset: int | None
    written: bool
    losses: list[ConvertNote]
    remarks: list[ConvertNote]
    frame: Box
    origin: tuple[int, int]
    window: Box
    channels: int
    regions: int

class ValueCount:
    count: int
    first: tuple[int, int] | None

class ValueStats:
    name: str
    min: float
    max: float
    mean: float
    deviation: float
    finite: int
    nan: ValueCount
    plus_inf: ValueCount
    minus_inf: ValueCount
    negative: ValueCount
    zero: int

class ChannelStats:
    channel: Channel
    pixels: int
    components: list[ValueStats]
    ids: int | None
    more_ids: bool

class StatsReport:
    state: str
    cause: str
    offset: int | None
    frame: Box
    area: Box
    damaged: list[Fault]
    channels: list[ChannelStats]
    _stopped: bool
    _unmatched: str
    _done: bool

class ChannelHash:
    channel: Channel
    hash: str

class HashReport:
    state: str
    cause: str
    offset: int | None
    frame: Box
    area: Box
    damaged: list[Fault]
    hash: str
    channels: list[ChannelHash]
    _stopped: bool
    _unmatched: str
    _done: bool

class DiffNumbers:
    maximum: float
    mean: float
    rms: float
    psnr: float

class DiffPlace:
    x: int
    y: int
    component: int
    values: list[float]

class ChannelDiff:
    channels: list[Channel]
    differs: list[str]
    comparable: bool
    pixels: int
    differing: int
    warnings: int
    failures: int
    numbers: DiffNumbers | None
    largest: DiffPlace | None
    lacks: list[Boxes]
    lacks_pixels: list[int]

class RecordDiff:
    name: str
    present: list[bool]

class DiffReport:
    state: str
    cause: str
    offset: int | None
    side: int
    incomplete: list[str]
    file_states: list[str]
    damaged: list[Fault]
    frames: list[Box]
    channels: list[ChannelDiff]
    only_in: list[list[Channel]]
    records: list[RecordDiff]
    pixels: int
    warnings: int
    failures: int

class Camera:
    transform: np.ndarray
    projection: int
    aperture: float
    fov: float
    target_distance: float
    near_range: float
    far_range: float
    near_clip: float
    far_clip: float
    focal_length: float
    f_number: float
    def __init__(self, **fields: Any) -> None: ...

class Frame:
    def __init__(self, path: str, progress: _Progress) -> None: ...
    def close(self) -> None: ...
    def closed(self) -> bool: ...
    def stopped(self) -> bool: ...
    def info(self) -> FrameInfo: ...
    def state(self) -> str: ...
    def cause(self) -> str: ...
    def cause_offset(self) -> int: ...
    def missing(self) -> list[Missing]: ...
    def faults(self) -> list[Fault]: ...
    def records(self) -> Records: ...
    def blob(self, which: int) -> tuple[bytes | None, Fault | None]: ...
    def text(self, which: int) -> tuple[str | None, Fault | None]: ...
    def thumbnail(self) -> tuple[np.ndarray | None, Fault | None]: ...
    def tags(self, box: Box, channel: int) -> list[tuple[int, Box]]: ...
    def read(
        self,
        box: Box,
        targets: Sequence[tuple[int, np.ndarray]],
        fill: float,
        filled: bool,
        threads: int,
        progress: _Progress,
    ) -> Read: ...
    def bucket(
        self, channel: Channel, offset: int, box: Box, progress: _Progress
    ) -> tuple[np.ndarray | None, Read]: ...
    def refresh(self) -> tuple[str, Box]: ...

class Layout:
    def __init__(
        self, width: int, height: int, aspect: float, bucket: tuple[int, int], region: Box | None
    ) -> None: ...

class Output:
    def write(self, x: int, y: int, values: Sequence[tuple[int, np.ndarray]]) -> None: ...
    def flush(self) -> None: ...
    def close(self) -> None: ...
    def abandon(self) -> None: ...
    def closed(self) -> bool: ...
    def channels(self) -> list[Channel]: ...
    def set_camera(self, camera: Camera) -> None: ...
    def set_scene(self, value: int, name: str) -> None: ...
    def set_stamp_text(self, text: str) -> None: ...
    def set_attributes(self, text: str) -> None: ...
    def set_note(self, text: str) -> bool: ...
    def set_stamp(self, data: bytes) -> bool: ...
    def set_overlay_texts(self, data: bytes) -> bool: ...
    def set_settings(self, data: bytes) -> bool: ...
    def set_thumbnail(self, pixels: np.ndarray) -> bool: ...

class NewFile:
    path: str
    def __init__(self, name: str, inputs: list[str], stream: bool = False) -> None: ...
    def __enter__(self) -> NewFile: ...
    def __exit__(self, *raised: object) -> None: ...
    def lock_name(self) -> None: ...
    def commit(self) -> None: ...
    def named(self, message: str) -> str: ...

def create_raw(
    path: str, layout: Layout, channels: list[Channel], compression: int, threads: int, sync: bool
) -> Output: ...
def append_raw(path: str, channels: list[Channel], compression: int, threads: int, sync: bool) -> Output: ...
def create_exr(
    path: str,
    layout: Layout,
    channels: list[Channel],
    kind: int,
    bits: int,
    compression: int,
    auto_data_window: bool,
    origin: tuple[int, int],
) -> Output: ...
def verify(path: str, quick: bool, threads: int, progress: _Progress) -> VerifyReport: ...
def missing(path: str, deep: bool, threads: int, progress: _Progress) -> VerifyReport: ...
def recover(
    path: str, output: str, like: str, size: tuple[int, int], threads: int, progress: _Progress
) -> RecoverReport: ...
def merge(
    inputs: list[str],
    output: str,
    overlap: int,
    allow_holes: bool,
    verified: bool,
    threads: int,
    progress: _Progress,
) -> MergeReport: ...
def stats(path: str, channels: list[str], threads: int, progress: _Progress) -> StatsReport: ...
def hash(path: str, channels: list[str], metadata: bool, threads: int, progress: _Progress) -> HashReport: ...
def diff(
    a: str,
    b: str,
    channels: list[str],
    fail: _Limits,
    warn: _Limits,
    records: bool,
    through_exr: bool,
    threads: int,
    progress: _Progress,
) -> DiffReport: ...
def preview(
    path: str,
    size: tuple[int, int],
    fit: int,
    keep_aspect: bool,
    channel: str,
    view: int,
    exposure: float,
    background: tuple[int, ...],
    stored: bool,
    threads: int,
    progress: _Progress,
) -> tuple[str, np.ndarray, str, str, int, list[Fault], list[str]]: ...
def convert(
    input: str,
    is_raw: bool,
    options: dict[str, Any],
    threads: int,
    progress: _Progress,
    output: Callable[[ConvertReport], str | None],
) -> ConvertReport: ...
def start_exr_threads(threads: int) -> None: ...
def replace_note(path: str, note: str) -> tuple[str, int]: ...
def prepare_resume(path: str) -> RecoverReport: ...
def is_raw_image(path: str) -> bool: ...
def safe_text(text: str) -> str: ...
