#!/usr/bin/env python3
"""Runs frames on a Slurm cluster of two nodes and breaks what can break: each frame comes out whole and equal.

Usage: slurm_test.py BUILD_DIR [TEST...], a TEST is the name of a test of this file: all of them by default. Needs root,
for the cluster and a small file system.
"""
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from shot import CHANNELS, Shot
from slurm_cluster import SlurmCluster, command, kill, wait_for

LONG = 2000  # samples, for pieces of some seconds


def job_state(job):
    words = command("scontrol", "--oneliner", "show", "job", job).split()
    return next(word.split("=")[1] for word in words if word.startswith("JobState="))


class Farm(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.top = tempfile.mkdtemp(prefix="farm")
        os.chmod(cls.top, 0o755)
        cls.cluster = SlurmCluster(os.path.join(cls.top, "cluster"))
        cls.addClassCleanup(shutil.rmtree, cls.top, ignore_errors=True)
        cls.addClassCleanup(cls.cluster.stop)
        cls.cluster.start()

    def setUp(self):
        self.began = time.monotonic()
        self.folder = tempfile.mkdtemp(dir=self.top)

    def tearDown(self):
        command("scancel", "--me")
        wait_for("an empty queue", lambda: not command("squeue", "-h"), 60)
        print("%s: %.0f s" % (self.id(), time.monotonic() - self.began), flush=True)

    def wait_until_idle(self):
        wait_for("the end of all jobs", lambda: not command("squeue", "-h"), 300)

    def wait_for_buckets(self, shot, path):
        """Until a piece has some buckets, and the rest is still to come."""
        def some():
            buckets = os.path.exists(path) and shot.report("verify", path)["buckets"]
            return buckets and 1 < buckets["sound"] < buckets["all"] - 2 and buckets
        return wait_for("buckets of " + path, some, 120)

    def renderer_of(self, path):
        """The process that renders a piece, and its node."""
        for pid, node in self.cluster.jobs():
            with open("/proc/%d/cmdline" % pid, "rb") as file:
                words = file.read().decode().split("\0")
            if words[0].endswith("render_frame") and path in words:
                return pid, node
        raise AssertionError("nothing renders " + path)

    # Part 1: more pieces than an array of this cluster may have.
    def test_frames_in_pieces(self):
        shot = Shot(self.build, self.folder)
        shot.submit("1-6", 4)
        self.wait_until_idle()
        self.assertEqual({row["state"] for row in shot.status(0)}, {"merged"})
        shot.check(range(1, 7))

    # Part 2.
    def test_a_node_dies(self):
        shot = Shot(self.build, self.folder, LONG)
        shot.submit("1", 2)
        path = shot.piece(1, "000.rimg")
        self.wait_for_buckets(shot, path)
        _, node = self.renderer_of(path)
        self.cluster.kill_node(node)
        kept = shot.pixel_tags(path)
        self.assertGreater(len(kept), CHANNELS)
        try:
            self.wait_until_idle()
        finally:
            self.cluster.start_node(node)
        self.assertGreaterEqual(shot.attempts(1)["000"], 2)
        after = shot.pixel_tags(path)
        self.assertEqual(after[:len(kept)], kept, "what was finished is as it was")
        self.assertEqual(len(after), len({place for _, place in after}), "nothing was rendered twice")
        shot.check([1])
        wait_for("the node", lambda: command("sinfo", "-h", "-o", "%T %D") == "idle 2", 60)

    # Part 3.
    def test_pieces_fail_and_are_mended(self):
        shot = Shot(self.build, self.folder, LONG)
        disk = os.path.join(self.folder, "disk")
        os.makedirs(disk)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=24k", "none", disk], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", disk], check=True)
        os.makedirs(shot.piece(1, ""))
        os.symlink(os.path.join(disk, "002.rimg"), shot.piece(1, "002.rimg"))
        shot.submit("1", 4)
        for name, number in (("000", signal.SIGKILL), ("001", signal.SIGTERM)):
            path = shot.piece(1, name + ".rimg")
            self.wait_for_buckets(shot, path)
            pid, _ = self.renderer_of(path)
            if number == signal.SIGKILL:
                kill(pid, number)
            else:
                task = command("squeue", "-h", "-r", "-t", "R", "-o", "%i").split()
                task = next(one for one in task if one.endswith("_1"))
                command("scancel", "--full", "--signal=TERM", task)
        self.wait_until_idle()
        self.damage(shot, shot.piece(1, "003.rimg"))
        [row] = shot.status(4)
        self.assertEqual([row[key] for key in ("done", "unfinished", "damaged")], [1, 2, 1])
        self.assertGreaterEqual(row["resumed"], 1)
        attempts = shot.attempts(1)
        places = {name: shot.pixel_tags(shot.piece(1, name + ".rimg")) for name in ("000", "002", "003")}
        del places["003"][-3]  # the damaged one comes again, behind the others

        subprocess.run(["mount", "-o", "remount,size=10m", disk], check=True)
        shot.farm("retry", shot.folder)
        shot.farm("retry", shot.folder)  # once more, while the jobs are in the queue: there is nothing to add
        self.wait_until_idle()
        redone = {name: number + (name != "001") for name, number in attempts.items()}
        self.assertEqual(shot.attempts(1), redone, "what was whole is not redone")
        for name, before in places.items():
            after = [place for _, place in shot.pixel_tags(shot.piece(1, name + ".rimg"))]
            self.assertEqual(after[:len(before)], [place for _, place in before], name)
            self.assertEqual(len(after), len(set(after)), "nothing was rendered twice")
        shot.check([1])
        shot.status(0)

    def damage(self, shot, path):
        """Changes a byte in the pixels of one tag, the last but two."""
        offset = shot.pixel_tags(path)[-3][0] + 60
        with open(path, "r+b") as file:
            file.seek(offset)
            byte = file.read(1)
            file.seek(offset)
            file.write(bytes([byte[0] ^ 255]))

    # Part 4.
    def test_two_jobs_on_one_piece(self):
        shot = Shot(self.build, self.folder, LONG)
        line = shot.submit("1", 2, "--engine", "print").splitlines()[0]
        jobs = [command("sbatch", "--parsable", "--requeue", "--output=/dev/null", "--wrap", "exec " + line)
                for _ in range(2)]
        log = os.path.join(shot.folder, "log", "0001.000.log")
        def refused():
            with open(log, encoding="utf-8") as file:
                return "another process renders" in file.read()
        wait_for("the second job to give up", lambda: os.path.exists(log) and refused(), 60)
        wait_for("both jobs", lambda: {job_state(job) for job in jobs} == {"COMPLETED"}, 180)
        path = shot.piece(1, "000.rimg")
        self.assertEqual(shot.report("verify", path)["verdict"], "good")
        self.assertEqual(len(shot.pixel_tags(path)), len({place for _, place in shot.pixel_tags(path)}))


if __name__ == "__main__":
    Farm.build = os.path.abspath(sys.argv[1])
    unittest.main(argv=sys.argv[:1] + ["Farm." + name for name in sys.argv[2:]], verbosity=0, failfast=False)
