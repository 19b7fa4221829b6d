"""Raw images, the render-output files of a renderer, as numpy arrays.

    import rawimage

    with rawimage.open("frame.rimg") as file:
        color = file["color"]                                   # float32 [y][x][component]
        tile = file.read("depth", window=(0, 0, 64, 64))

    channels = [rawimage.Channel("color", "color", rawimage.COLOR), rawimage.Channel("depth", "float", rawimage.DEPTH)]
    with rawimage.Writer("new.rimg", 640, 480, channels) as out:
        out.write(0, 0, {"color": color, "depth": depth})       # a bucket of any size, as often as there are buckets

Files: open (File), Writer, ExrWriter, append. Jobs on whole files: verify, missing, recover, merge, convert, stats,
hash, diff, preview, replace_note. What is wrong with a file is a rawimage.Error; wrong arguments are ValueError or
TypeError.

Arrays of pixels are [y][x][component], rows from the top: float32, or int32 of channels of type "int". A Box, here and
in all arguments, is (x0, y0, x1, y1), x1 and y1 not among its pixels.

All work runs without the interpreter's lock, on as many threads as `threads` says. Ctrl-C stops it. The function
`progress` is called now and then with what is done and all; what it raises, or False, stops the work, too.
"""

from ._errors import (
    CannotOpenError,
    ChannelError,
    DamagedError,
    Error,
    FormatError,
    IncompleteError,
    MismatchError,
    StoppedError,
    WriteError,
)
from ._rawimage import (
    Boxes,
    Camera,
    Channel,
    ChannelDiff,
    ChannelHash,
    ChannelStats,
    ConvertNote,
    ConvertReport,
    DiffNumbers,
    DiffPlace,
    DiffReport,
    Fault,
    HashReport,
    MergeRepeat,
    MergeReport,
    MergeSetAside,
    Missing,
    RecordDiff,
    RecoverReport,
    StatsReport,
    ValueCount,
    ValueStats,
    VerifyReport,
    __version__,
)
from ._reading import File
from ._tools import convert, diff, hash, merge, missing, preview, recover, replace_note, stats, verify
from ._types import ALPHA, COLOR, DEPTH, IMAGE, Box, Bucket, Change, Scene
from ._writing import ExrWriter, Writer, append

# Behind the tools, one of which opens files of its own.
open = File

__all__ = [
    "ALPHA",
    "Box",
    "Boxes",
    "Bucket",
    "COLOR",
    "Camera",
    "CannotOpenError",
    "Change",
    "Channel",
    "ChannelDiff",
    "ChannelError",
    "ChannelHash",
    "ChannelStats",
    "ConvertNote",
    "ConvertReport",
    "DEPTH",
    "DamagedError",
    "DiffNumbers",
    "DiffPlace",
    "DiffReport",
    "Error",
    "ExrWriter",
    "Fault",
    "File",
    "FormatError",
    "HashReport",
    "IMAGE",
    "IncompleteError",
    "MergeRepeat",
    "MergeReport",
    "MergeSetAside",
    "MismatchError",
    "Missing",
    "RecordDiff",
    "RecoverReport",
    "Scene",
    "StatsReport",
    "StoppedError",
    "ValueCount",
    "ValueStats",
    "VerifyReport",
    "WriteError",
    "Writer",
    "append",
    "convert",
    "diff",
    "hash",
    "merge",
    "missing",
    "open",
    "preview",
    "recover",
    "replace_note",
    "stats",
    "verify",
    "__version__",
]

# Messages and help name what is here, not the modules that it comes from.
for _name in __all__:
    if getattr(globals()[_name], "__module__", None) != __name__ and callable(globals()[_name]):
        globals()[_name].__module__ = __name__
del _name
