"""Frames for the tests of the Python package. PYTHONPATH leads to the package, RAWIMAGE_BUILD to its build directory."""

import os
import pathlib
import sys

import hypothesis
import numpy
import pytest

import rawimage

sys.path.append(str(pathlib.Path(__file__).parents[1] / "testing"))
hypothesis.settings.register_profile("quiet", database=None, deadline=None, derandomize=True)
hypothesis.settings.load_profile("quiet")

# A channel of each type.
CHANNELS = [
    rawimage.Channel("color", "color", rawimage.COLOR),
    rawimage.Channel("depth", "float", rawimage.DEPTH),
    rawimage.Channel("id", "int", 7, 1),
    rawimage.Channel("motion", "float2"),
    rawimage.Channel("normal", "vector"),
    rawimage.Channel("crypto", "float4"),
]


def values_of(channel, width, height, seed=1):
    numbers = numpy.random.default_rng([seed, *channel.name.encode()])
    shape = (height, width, channel.components)
    if channel.dtype == numpy.int32:
        return numbers.integers(-(2**31), 2**31, shape, numpy.int32)
    return numbers.standard_normal(shape, numpy.float32)


def write_frame(path, width, height, channels=CHANNELS, bucket=(16, 16), writer=rawimage.Writer, **options):
    """Writes a frame in buckets. Returns its values by channel."""
    frame = {channel.name: values_of(channel, width, height) for channel in channels}
    metadata = options.pop("metadata", {})
    with writer(path, width, height, channels, bucket, **options) as out:
        out.metadata(**metadata)
        for y in range(0, height, bucket[1]):
            for x in range(0, width, bucket[0]):
                window = (slice(y, y + bucket[1]), slice(x, x + bucket[0]))
                out.write(x, y, {name: values[window] for name, values in frame.items()})
    return frame


@pytest.fixture(scope="session")
def build():
    return pathlib.Path(os.environ["RAWIMAGE_BUILD"])


@pytest.fixture(scope="session")
def frame(tmp_path_factory):
    """The path of a sound frame of 50 x 40, and its values."""
    path = tmp_path_factory.mktemp("frame") / "frame.rimg"
    return path, write_frame(path, 50, 40)
