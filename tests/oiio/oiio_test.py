#!/usr/bin/env python3
"""Runs OpenImageIO's own programs and Python module on raw images, sound and broken.

Usage: oiio_test.py BUILD_DIR [TEST...]
"""
import json
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import unittest

BUILD = os.path.abspath(sys.argv.pop(1))
ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
# Read when OpenImageIO looks for its plugins, in this process and in those it starts.
os.environ["OIIO_LIBRARY_PATH"] = os.environ["OPENIMAGEIO_PLUGIN_PATH"] = os.path.join(BUILD, "oiio")

sys.path.append(os.path.join(ROOT, "tests", "testing"))
import broken_files  # noqa: E402
import numpy as np  # noqa: E402
import OpenImageIO as oiio  # noqa: E402

RIMG = os.path.join(BUILD, "cli", "rimg")
SECONDS = 60  # that a program may take for a broken file
MEMORY = 4 << 30


def run(*command, code=0):
    """Runs a program, whose exit code must be `code` (None: any, but not a signal), and returns what it prints."""
    limited = ["prlimit", "--as=%d" % MEMORY, *command]
    done = subprocess.run(limited, capture_output=True, text=True, errors="replace", timeout=SECONDS, check=False)
    if done.returncode != code and (code is not None or done.returncode < 0 or done.returncode > 127):
        shown = " ".join(command[:8])
        raise AssertionError("%s: code %d\n%s%s" % (shown, done.returncode, done.stdout[-4000:], done.stderr[-4000:]))
    return done.stdout + done.stderr


def hash_of(path):
    """The hash of an image's pixels, or the error that iinfo prints in its place."""
    text = run("iinfo", "--hash", path, code=None)
    found = re.search(r"SHA-1: ([0-9A-F]{40})", text)
    return (found[1], "") if found else (None, text)


def read(path, begin=0, end=None, config=None, kind="float"):
    source = oiio.ImageInput.open(path, config or oiio.ImageSpec())
    if source is None:
        raise AssertionError(oiio.geterror())
    pixels = source.read_image(0, 0, begin, end or source.spec().nchannels, kind)
    error = source.geterror()
    source.close()
    return pixels, error


def spec_of(path):
    source = oiio.ImageInput.open(path)
    return source.spec() if source else None


def by_name(path):
    """The channels of an image, in their own types."""
    spec = spec_of(path)
    result = {}
    for index, name in enumerate(spec.channelnames):
        kind = str(spec.channelformat(index))
        result[name] = (kind, read(path, index, index + 1, kind=kind)[0][..., 0])
    return result


def make_image(path, size, names, kinds, origin=(0, 0), full=None, tile=0):
    spec = oiio.ImageSpec(*size, len(names), kinds[0])
    spec.x, spec.y = origin
    spec.full_x, spec.full_y, spec.full_width, spec.full_height = full or (0, 0, *size)
    spec.channelnames = tuple(names)
    if len(set(kinds)) > 1:
        spec.channelformats = tuple(oiio.TypeDesc(kind) for kind in kinds)
    spec.tile_width = spec.tile_height = tile
    spec.attribute("ImageDescription", "a \"quoted\" text\nof two lines")
    spec.attribute("third", 1 / 3)
    spec.attribute("places", "int[3]", (1, -2, 3))
    output = oiio.ImageOutput.create(path)
    if not output.open(path, spec) or not output.write_image(
            np.random.default_rng(1).random((size[1], size[0], len(names)), dtype=np.float32)) or not output.close():
        raise AssertionError(output.geterror())


class Oiio(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="oiio")
        cls.frame = cls.at("frame.rimg")
        render = os.path.join(BUILD, "examples", "render_frame")
        run(render, "--size", "200x150", "--samples", "1", "-j2", "--thumbnail", "--output", cls.frame)
        cls.part = cls.at("part.rimg")
        run(render, "--size", "200x150", "--samples", "1", "--region", "64,64,180,128", "--output", cls.part)
        with open(cls.frame, "rb") as file:
            cls.bytes = file.read()

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    @classmethod
    def at(cls, name):
        return os.path.join(cls.folder, name)

    def store(self, content, name="broken.rimg"):
        with open(self.at(name), "wb") as file:
            file.write(content)
        return self.at(name)

    def pixel_tag(self, channel, x, y, path=None):
        """Offset and size of a bucket's payload."""
        info = json.loads(run(RIMG, "info", "--json", "--tags", path or self.frame))
        index = [row["name"] for row in info["channels"]].index(channel)
        for tag in info["tags"]:
            if tag["parameters"][1:3] == [x, y] and tag["parameters"][7] == index and tag["parameters"][3] > 0:
                return tag["offset"] + 40, tag["size"] - 40
        raise AssertionError("no such bucket")

    def test_the_image_is_what_the_conversion_makes_of_it(self):
        for path, window, tile in [(self.frame, (0, 0, 200, 150), 64), (self.part, (64, 64, 116, 64), 64)]:
            spec = spec_of(path)
            self.assertEqual((spec.x, spec.y, spec.width, spec.height), window)
            self.assertEqual((spec.full_x, spec.full_y, spec.full_width, spec.full_height), (0, 0, 200, 150))
            self.assertEqual((spec.tile_width, spec.tile_height), (tile, tile))
            self.assertEqual(spec.channelnames[:5], ("R", "G", "B", "A", "Z"))
            self.assertEqual((spec.alpha_channel, spec.z_channel), (3, 4))
            exr, copy = self.at("converted.exr"), self.at("copied.exr")
            run(RIMG, "convert", path, exr, "--crop", "%d,%d,%d,%d" % window)
            ours, theirs = by_name(path), by_name(exr)
            self.assertEqual(set(ours), set(theirs))
            for name, (kind, pixels) in ours.items():
                self.assertEqual(kind, theirs[name][0], name)
                self.assertTrue(np.array_equal(pixels, theirs[name][1]), name)
            run("oiiotool", path, "-o", copy)
            self.assertIn("PASS", run("idiff", exr, copy))
            self.assertEqual((spec_of(copy).x, spec_of(copy).full_height), (window[0], 150))
            # Formats with one window only get the whole display window.
            pictures = [self.at("ours.tif"), self.at("theirs.tif")]
            for image, picture in zip((path, exr), pictures):
                run("oiiotool", image, "--ch", "R,G,B", "-o", picture)
            self.assertEqual(spec_of(pictures[0]).width, 200)
            self.assertIn("PASS", run("idiff", *pictures))
            self.assertTrue(np.any(read(pictures[0])[0]))

    def test_attributes_are_the_records(self):
        info = json.loads(run(RIMG, "info", "--json", self.frame))
        spec = spec_of(self.frame)
        for name, value in [("ImageDescription", info["note"]["text"]), ("stampText", info["stampText"]["text"]),
                            ("scene", info["scene"]["name"]), ("sceneValue", info["scene"]["value"]),
                            ("rawimage:settings_bytes", info["settingsBytes"]), ("rawimage:state", "good"),
                            ("rawimage:missing_pixels", 0), ("PixelAspectRatio", 1.0)]:
            self.assertEqual(spec.getattribute(name), value, name)
        matrices = [np.array(spec.getattribute(name)).reshape(4, 4) for name in ("cameraTransform", "worldtocamera")]
        self.assertTrue(np.allclose(matrices[0] @ matrices[1], np.eye(4), atol=1e-5))
        thumbnail = oiio.ImageInput.open(self.frame).get_thumbnail(0)
        picture = self.at("picture.png")
        run(RIMG, "preview", self.frame, "-o", picture)
        self.assertTrue(np.array_equal(thumbnail.get_pixels(oiio.UINT8), read(picture, kind="uint8")[0][..., :3]))
        # Another name is no hindrance.
        shutil.copy(self.frame, self.at("frame.tmp"))
        self.assertIn("rimg", run("iinfo", self.at("frame.tmp")))

    def test_ranges_and_boxes_are_those_of_the_whole_on_many_threads(self):
        whole, _ = read(self.frame)
        source = oiio.ImageInput.open(self.frame)
        wrong = []

        def work(seed):
            choice = random.Random(seed)
            for _ in range(25):
                begin = choice.randrange(25)
                end = choice.randrange(begin, 25) + 1
                x, y = 64 * choice.randrange(3), 64 * choice.randrange(2)
                x1, y1 = min(x + 128, 200), min(y + 128, 150)
                box = source.read_tiles(x, x1, y, y1, 0, 1, begin, end, "float")
                if box is None or not np.array_equal(box, whole[y:y1, x:x1, begin:end]):
                    wrong.append((x, y, begin, end))

        threads = [threading.Thread(target=work, args=(seed,)) for seed in range(3)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(wrong, [])

    def test_few_lines_at_a_time_are_those_of_the_whole(self):
        odd = self.at("odd.rimg")  # its buckets are no tiles of the data window
        run(os.path.join(BUILD, "examples", "render_frame"), "--size", "200x150", "--samples", "1", "--region",
            "50,30,190,140", "--output", odd)
        spec = spec_of(odd)
        self.assertEqual((spec.tile_width, spec.y, spec.height), (0, 30, 110))
        whole, _ = read(odd)
        source = oiio.ImageInput.open(odd)
        for begin, end in ((0, spec.nchannels), (2, 6)):
            for y in [*range(0, 110, 7), 3, 109]:
                last = min(y + 7, 110)
                lines = source.read_scanlines(0, 0, 30 + y, 30 + last, 0, begin, end, "float")
                self.assertTrue(np.array_equal(lines, whole[y:last, :, begin:end]), (y, begin))
        offset, size = self.pixel_tag("diffuse", 64, 64, odd)
        with open(odd, "rb") as file:
            broken = bytearray(file.read())
        broken[offset + size // 2] ^= 0x55
        source = oiio.ImageInput.open(self.store(broken))
        sound = [y for y in range(30, 140) if source.read_scanline(y, 0, "float") is not None]
        self.assertEqual(sound, [*range(30, 64), *range(128, 140)])
        self.assertIn('64x64+64+64, channel "diffuse"', source.geterror())

    def test_channels_types_and_windows_come_back(self):
        images = {
            "half": ((100, 70), ["R", "G", "B", "A", "n.X", "n.Y", "n.Z"], ["half"] * 7),
            "over": ((130, 90), ["R", "G", "B"], ["float"] * 3, (-10, -7), (0, 0, 100, 70)),
            "mixed": ((50, 40), ["R", "G", "B", "id"], ["half"] * 3 + ["uint"], (25, 35), (20, 30, 100, 70)),
            "tiles": ((150, 90), ["R", "G", "B", "Y", "u.R"], ["half"] * 5, (5, 6), (0, 0, 200, 100), 32),
        }
        for name, image in images.items():
            first, raw, last = (self.at(name + end) for end in (".exr", ".rimg", ".back.exr"))
            make_image(first, *image)
            # oiiotool makes one type of all channels, in files of any format; iconvert does not.
            for tool in ["iconvert"] + ["oiiotool"] * (name != "mixed"):
                output = ["-o"] * (tool == "oiiotool")
                run(tool, first, *output, raw)
                run(tool, raw, *output, last)
                self.assertEqual(run(RIMG, "verify", raw).strip(), raw + ": good")
                before, after = by_name(first), by_name(last)
                self.assertEqual(list(before), list(after))
                for channel, (kind, pixels) in before.items():
                    self.assertEqual(kind, after[channel][0], name + channel)
                    self.assertTrue(np.array_equal(pixels, after[channel][1]), name + channel)
                old, new = spec_of(first), spec_of(last)
                for field in ("x", "y", "width", "height", "full_x", "full_y", "full_width", "full_height"):
                    self.assertEqual(getattr(old, field), getattr(new, field), name + field)
                for attribute in ("ImageDescription", "third", "places"):
                    self.assertEqual(old.getattribute(attribute), new.getattribute(attribute), attribute)
        # Grouped as the conversion does it, and with the camera of its files.
        run(RIMG, "convert", self.frame, self.at("groups.exr"))
        run(RIMG, "convert", self.at("groups.exr"), self.at("converted.rimg"))
        run("iconvert", self.at("groups.exr"), self.at("groups.rimg"))
        rows = [json.loads(run(RIMG, "info", "--json", self.at(name))) for name in ("converted.rimg", "groups.rimg")]
        kinds = [{(c["name"], c["type"], c["alias"]) for c in row["channels"]} for row in rows]
        self.assertEqual(*kinds)
        for key in ("camera", "note", "scene", "stampText"):
            self.assertEqual(rows[0][key], rows[1][key], key)

    def test_lines_in_any_order_and_pixels_that_never_came(self):
        spec = oiio.ImageSpec(70, 130, 3, "float")
        lines = np.random.default_rng(2).random((130, 70, 3), dtype=np.float32)
        path = self.at("lines.rimg")
        output = oiio.ImageOutput.create(path)
        self.assertTrue(output.open(path, spec))
        for y in random.Random(1).sample(range(130), 130):
            if y not in (10, 129):
                self.assertTrue(output.write_scanline(y, 0, lines[y]))
        self.assertFalse(output.write_scanline(130, 0, lines[0]))
        picture = oiio.ImageBuf(oiio.ImageSpec(20, 10, 3, "uint8"))
        oiio.ImageBufAlgo.fill(picture, (1.0, 0.5, 0.0))
        self.assertTrue(output.set_thumbnail(picture))
        self.assertTrue(output.close())
        lines[[10, 129]] = 0
        self.assertTrue(np.array_equal(read(path)[0], lines))
        self.assertEqual(spec_of(path).getattribute("rawimage:missing_pixels"), 140)
        self.assertEqual(oiio.ImageInput.open(path).get_thumbnail(0).getpixel(3, 3)[0], 1.0)

    def test_missing_pixels_are_zero_and_damaged_ones_an_error(self):
        whole, _ = read(self.frame)
        offset, size = self.pixel_tag("diffuse", 64, 64)
        unfinished = self.store(broken_files.unfinished(self.bytes[:len(self.bytes) * 2 // 3]), "unfinished.rimg")
        pixels, error = read(unfinished)
        self.assertEqual(error, "")
        self.assertEqual(spec_of(unfinished).getattribute("rawimage:state"), "unfinished")
        # Buckets spiral out, so that some of each channel are there, and those that are not are zero.
        there = pixels == whole
        self.assertTrue(0 < spec_of(unfinished).getattribute("rawimage:missing_pixels") < 200 * 150)
        self.assertTrue(np.all(pixels[~there] == 0))
        color = oiio.ImageSpec()
        color.attribute("oiio:missingcolor", "0.25,0.5,0.75")
        filled, _ = read(unfinished, 0, 3, color)
        lacking = np.any(filled != whole[..., :3], axis=2)
        self.assertTrue(lacking.any() and np.all(filled[lacking] == (0.25, 0.5, 0.75)))

        broken = bytearray(self.bytes)
        broken[offset + size // 2] ^= 0x55
        damaged = self.store(broken)
        first = spec_of(damaged).channelnames.index("diffuse.R")
        for begin, end in ((0, None), (first, first + 3), (first + 1, first + 2)):
            pixels, error = read(damaged, begin, end)
            self.assertIsNone(pixels)
            for part in ("offset %d" % (offset - 40), "64x64+64+64", '"diffuse"'):
                self.assertIn(part, error)
        self.assertTrue(np.array_equal(read(damaged, 0, first)[0], whole[..., :first]))
        color.attribute("oiio:missingcolor", "float[2]", (-0.5, 0.25))
        filled, error = read(damaged, first, first + 3, color)
        self.assertEqual(error, "")
        wrong = filled != whole[..., first:first + 3]
        self.assertTrue(wrong[64:128, 64:128].any() and not wrong[:64].any() and not wrong[:, 128:].any())
        self.assertEqual(set(np.unique(filled[64:128, 64:128])), {0.0, 0.25})
        # A header that is lost takes its bucket along; zeros in its place would be silent.
        broken = bytearray(self.bytes)
        broken[offset - 40:offset] = bytes(40)
        text = hash_of(self.store(broken))
        self.assertTrue(text[0] == hash_of(self.frame)[0] or "damaged at offset" in text[1], text)

    def write_sample(self):
        """A small file of every kind of record that the plugin writes. Returns its bytes."""
        spec = oiio.ImageSpec(6, 4, 4, "float")
        spec.channelnames = ("R", "G", "B", "id")
        spec.channelformats = tuple(oiio.TypeDesc(kind) for kind in ["float"] * 3 + ["uint"])
        spec.tile_width, spec.tile_height = 3, 4
        for name in ("ImageDescription", "stampText", "scene", "other"):
            spec.attribute(name, "text")
        path = self.at("sample.rimg")
        output = oiio.ImageOutput.create(path)
        self.assertTrue(output.open(path, spec), output.geterror())
        self.assertTrue(output.write_image(np.random.default_rng(1).random((4, 6, 4), dtype=np.float32)))
        self.assertTrue(output.close())
        with open(path, "rb") as file:
            return file.read()

    def images_of(self, contents):
        """What `iinfo -v --hash` has for each file: the image's size and channels, its state, and its hash or error."""
        with tempfile.TemporaryDirectory(dir=broken_files.FOLDER) as folder:
            paths = [os.path.join(folder, "%d.rimg" % number) for number in range(len(contents))]
            for path, content in zip(paths, contents):
                with open(path, "wb") as file:
                    file.write(content)
            # Most sizes that damage makes up are refused then, and take no time.
            limit = "OPENIMAGEIO_OPTIONS=limits:imagesize_MB=64"
            text = "".join(run("env", limit, "iinfo", "-v", "--hash", *paths[first:first + 1000], code=None)
                           for first in range(0, len(paths), 1000))
        images = {path: ("", "", error) for path, error in re.findall(r'^iinfo ERROR: "(.+)" : (.+)$', text, re.M)}
        for path, shown in re.findall(r"^(/\S+) *:( .*\n(?:    .*\n)*)", text, re.M):
            head = re.match(r"(.*\n)(?:    SHA-1: .*\n)?(    channel list: .*)", shown)
            state = re.search(r'rawimage:state: "(.*)"', shown)
            images[path] = (head[1] + head[2], state[1], re.search(r"SHA-1: (.*)", shown)[1])
        return [images.get(path, ("", "", "")) for path in paths]

    def test_broken_files_give_errors(self):
        data = self.write_sample()
        head, state, sound = self.images_of([data])[0]
        self.assertRegex(sound, "^[0-9A-F]{40}$")
        self.assertEqual(state, "good")
        files = [*broken_files.lengths(data, 7), *broken_files.lengths(broken_files.unfinished(data), 7)]
        files += [broken for first in range(4) for broken in broken_files.flips(data, first, 29)]
        counts = {}
        for number, image in enumerate(self.images_of(files)):
            self.assertTrue(image[2], number)
            if not re.fullmatch("[0-9A-F]{40}", image[2]):
                kind = "error"
                self.assertRegex(image[2], "offset|no resolution|no channels|raw image|too large", number)
            elif image[0] != head:
                kind = "other image"  # other sizes or names, which have no checksum
            else:
                kind = image[1]
                # Where all pixels are to be had they are right, and where some are not, the state says so.
                self.assertTrue(image[2] == sound or kind in ("unfinished", "incomplete"), number)
            counts[kind] = counts.get(kind, 0) + 1
        for kind in ("error", "good", "unfinished", "damaged"):
            self.assertGreater(counts.get(kind, 0), 20, counts)

    def test_hostile_files_end_soon(self):
        names, contents = zip(*broken_files.hostile())
        for name, image in zip(names, self.images_of(contents)):
            self.assertTrue(image[2], name)

    def test_proxies_and_what_the_writer_refuses(self):
        run(os.path.join(BUILD, "oiio", "oiio_check"), self.frame, self.folder)

    def test_an_installed_plugin_is_found_where_it_was_moved_to(self):
        prefix, moved = self.at("first"), self.at("a place")
        run("cmake", "--install", BUILD, "--prefix", prefix)
        os.rename(prefix, moved)
        script = ('PATH="$1/bin:$PATH"; OIIO_LIBRARY_PATH=/nowhere; . "$1/share/rawimage/oiio.sh"; '
                  'rimg config --prefix; echo "$OIIO_LIBRARY_PATH"; iinfo "$2"')
        lines = run("sh", "-c", script, "sh", moved, self.frame).splitlines()
        self.assertEqual(lines[0], moved)
        self.assertRegex(lines[1], "^/nowhere:" + re.escape(moved) + "/.*oiio$")
        self.assertIn("rimg", lines[2])


if __name__ == "__main__":
    unittest.main()
