"""A shot of a few small frames on the farm, and what the tests ask of it."""
import json
import os
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SIZE, BUCKET, CHANNELS = "160x96", "16x16", 11


class Shot:
    """Files go to a folder of its own; programs come from a build directory."""

    hashes = {}  # of frames that were rendered in one go, by samples and frame

    def __init__(self, build, folder, samples=2):
        self.rimg = os.path.join(build, "cli", "rimg")
        self.renderer = [os.path.join(build, "examples", "render_frame"), "--size", SIZE, "--bucket", BUCKET,
                         "--samples", str(samples)]
        self.samples = samples
        self.folder = os.path.join(folder, "shot")
        self.scratch = folder

    def farm(self, *words, code=0, **more):
        """Runs rimg-farm, which must end with the code; what it prints."""
        program = [sys.executable, "-B", os.path.join(ROOT, "farm", "rimg-farm")]
        result = subprocess.run(program + list(words), check=False, stdout=subprocess.PIPE, universal_newlines=True,
                                **more)
        assert result.returncode == code, "rimg-farm %s: code %d, not %d" % (" ".join(words), result.returncode, code)
        return result.stdout

    def submit(self, frames, pieces, *options, code=0):
        return self.farm("submit", "--frames", frames, "--pieces", str(pieces), "--size", SIZE, "--bucket", BUCKET,
                         "--out", self.folder, "--rimg", self.rimg, *options, "--", *self.renderer, "-j", "1",
                         "--frame", "{frame}", "--region", "{box}", "--resume-or-start", "{out}", code=code)

    def status(self, code=None):
        program = [sys.executable, "-B", os.path.join(ROOT, "farm", "rimg-farm"), "status", "--json", self.folder]
        result = subprocess.run(program, check=False, stdout=subprocess.PIPE, universal_newlines=True)
        assert code in (None, result.returncode), "status: code %d, not %s" % (result.returncode, code)
        return json.loads(result.stdout)["frames"]

    def merged(self, frame):
        return os.path.join(self.folder, "frames", "%04d.rimg" % frame)

    def piece(self, frame, name):
        return os.path.join(self.folder, "pieces", "%04d" % frame, name)

    def attempts(self, frame):
        """How often each piece was begun."""
        with open(self.piece(frame, "attempts"), encoding="utf-8") as file:
            names = [line.split()[1] for line in file]
        return {name: names.count(name) for name in names}

    def report(self, verb, path, *options):
        """What a verb of rimg prints as JSON."""
        result = subprocess.run([self.rimg, verb, "--json", *options, path], check=False, stdout=subprocess.PIPE)
        return json.loads(result.stdout)

    def pixel_tags(self, path):
        """The pixel tags of a file in their order: offset, and place and channel."""
        tags = self.report("info", path, "--tags")["tags"]
        return [(tag["offset"], tuple(tag["parameters"][1:3] + tag["parameters"][7:])) for tag in tags
                if "pixels" in tag["name"]]

    def hash_of_whole(self, frame):
        """Of the frame rendered in one go."""
        key = self.samples, frame
        if key not in self.hashes:
            whole = os.path.join(self.scratch, "whole.rimg")
            subprocess.run(self.renderer + ["--frame", str(frame), "--output", whole], check=True,
                           stdout=subprocess.DEVNULL)
            self.hashes[key] = self.report("hash", whole)["hash"]
        return self.hashes[key]

    def check(self, frames):
        """Each merged frame shows what a frame that is rendered in one go does."""
        for frame in frames:
            hashes = [self.hash_of_whole(frame), self.report("hash", self.merged(frame))["hash"]]
            assert hashes[0] == hashes[1], "frame %d: %s" % (frame, hashes)
            assert self.report("verify", self.merged(frame))["verdict"] == "good"
