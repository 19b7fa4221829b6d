#!/usr/bin/env python3
"""Measures `oiiotool -i:ch=R,G,B IN -o OUT.exr` on a frame of 40 channels: a raw image against the OpenEXR file (ZIPS) that
is made of it. Both run in turn; the shortest time of each counts. What both have in common, the start of oiiotool and
the compression of what it writes, is measured beside it: the second row is without compression, the third only starts.

Usage: oiio_channels.py BUILD_DIR [SIZE]      a build with RAWIMAGE_BUILD_OIIO and the examples; SIZE is WxH
"""
import os
import resource
import subprocess
import sys
import tempfile
import time

ROUNDS = 5
COLOURS = 13  # with alpha 40 channels


def processor_time():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def main():
    build = os.path.abspath(sys.argv[1])
    size = sys.argv[2] if len(sys.argv) > 2 else "1920x1080"
    os.environ["OIIO_LIBRARY_PATH"] = os.environ["OPENIMAGEIO_PLUGIN_PATH"] = os.path.join(build, "oiio")
    import numpy as np
    import OpenImageIO as oiio

    with tempfile.TemporaryDirectory() as folder:
        def at(name):
            return os.path.join(folder, name)

        render = os.path.join(build, "examples", "render_frame")
        subprocess.run([render, "--size", size, "--samples", "1", "--output", at("frame.rimg")], check=True,
                       stdout=subprocess.DEVNULL)
        pixels = oiio.ImageBuf(at("frame.rimg")).get_pixels(oiio.FLOAT, oiio.ROI(0, int(size.split("x")[0]), 0,
                                                                                int(size.split("x")[1]), 0, 1, 0, 8))
        # The frame's colour and diffuse light by turns, moved, so that each channel has noise of its own.
        names, planes = ["R", "G", "B", "A"], [pixels[..., :4]]
        for i in range(1, COLOURS):
            names += ["light%d.%s" % (i, letter) for letter in "RGB"]
            planes.append(np.roll(pixels[..., 5:8] if i % 2 else pixels[..., :3], 37 * i, axis=0))
        content = np.concatenate(planes, axis=2)
        spec = oiio.ImageSpec(content.shape[1], content.shape[0], len(names), "float")
        spec.channelnames = tuple(names)
        spec.attribute("rawimage:compression", "fast")
        output = oiio.ImageOutput.create(at("in.rimg"))
        assert output.open(at("in.rimg"), spec) and output.write_image(content) and output.close(), output.geterror()
        subprocess.run([os.path.join(build, "cli", "rimg"), "convert", at("in.rimg"), at("in.exr")], check=True)
        print("%s, %d channels: raw image %.0f MB, OpenEXR %.0f MB" % (
            size, len(names), *(os.path.getsize(at(name)) / 1e6 for name in ("in.rimg", "in.exr"))))
        for row, command in (("-i:ch=R,G,B IN -o OUT.exr", ["-i:ch=R,G,B", "IN", "-o", at("out.exr")]),
                             ("likewise, --compression none",
                              ["-i:ch=R,G,B", "IN", "--compression", "none", "-o", at("out.exr")]),
                             ("--version", ["--version"])):
            best = {}
            for _ in range(ROUNDS):
                for name in ("in.rimg", "in.exr"):
                    begin, cpu = time.perf_counter(), processor_time()
                    subprocess.run(["oiiotool", *(at(name) if word == "IN" else word for word in command)], check=True,
                                   stdout=subprocess.DEVNULL)
                    for kind, spent in (("time", time.perf_counter() - begin), ("cpu", processor_time() - cpu)):
                        best[name, kind] = min(best.get((name, kind), 1e9), spent)
            for kind in ("time", "cpu"):
                ours, theirs = best["in.rimg", kind], best["in.exr", kind]
                print("%-30s %-4s %6.2f s  %6.2f s  1/%.1f" % (row, kind, ours, theirs, theirs / ours))


if __name__ == "__main__":
    main()
