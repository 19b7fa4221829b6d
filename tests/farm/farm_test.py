#!/usr/bin/env python3
"""Runs the commands that rimg-farm prints, without an engine, and breaks pieces in between.

Usage: farm_test.py BUILD_DIR
"""
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

from shot import Shot
from slurm_cluster import wait_for


class Farm(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="farm")
        self.addCleanup(shutil.rmtree, self.folder)
        self.shot = Shot(self.build, self.folder)

    def run_lines(self, lines):
        return [subprocess.run(line, shell=True, check=False).returncode for line in lines.splitlines()]

    def submit(self, *options):
        lines = self.shot.submit("1-3x2", 3, "--engine", "print", *options)
        self.assertEqual(len(lines.splitlines()), 2 * 3 + 2)
        return lines

    def rewrite(self, path, change):
        with open(path, "rb") as file:
            content = bytearray(file.read())
        change(content)
        with open(path, "wb") as file:
            file.write(content)

    def cut(self, content):
        del content[len(content) * 2 // 3:]
        content[12:20] = bytes(8)

    def flip(self, path, index):
        offset = self.shot.pixel_tags(path)[index][0] + 60
        self.rewrite(path, lambda content: content.__setitem__(offset, content[offset] ^ 255))

    def test_retry_redoes_what_is_missing_or_damaged(self):
        shot = self.shot
        self.assertEqual(self.run_lines(self.submit("--delete-pieces").split("\n", 1)[0]), [0])
        self.assertEqual([row["waiting"] for row in shot.status(3)], [2, 3])
        lines = shot.farm("retry", shot.folder)
        self.assertEqual(self.run_lines("\n".join(lines.splitlines()[:5])), [0] * 5)

        names = [shot.piece(1, name) for name in ("000.rimg", "001.rimg", "002.rimg")]
        self.rewrite(names[0], self.cut)
        self.flip(names[1], 5)
        os.remove(names[2])
        self.rewrite(shot.piece(3, "001.rimg"), lambda content: content.__delitem__(slice(20, None)))
        rows = shot.status(4)
        self.assertEqual([rows[0][key] for key in ("unfinished", "damaged", "waiting")], [1, 1, 1])
        self.assertEqual([rows[1][key] for key in ("done", "state")], [2, "rendering"])
        self.assertEqual(self.run_lines("%s/jobs/merge.sh 1" % shot.folder), [1], "a merge of what is not whole")

        lines = shot.farm("retry", shot.folder).splitlines()
        self.assertEqual([line.split()[1:3] for line in lines[:-2]],
                         [["1", "000"], ["1", "001"], ["1", "002"], ["3", "001"]])
        self.assertEqual(self.run_lines("\n".join(lines)), [0] * 6)
        self.assertEqual({row["state"] for row in shot.status(0)}, {"merged"})
        self.assertFalse(os.path.exists(names[0]), "the pieces are deleted")
        self.assertEqual(shot.attempts(3), {"000": 1, "001": 2, "002": 1})
        shot.check([1, 3])
        # Whatever runs once more, late, changes nothing.
        self.assertEqual(self.run_lines("\n".join(lines)), [0] * 6)
        self.assertEqual(shot.farm("retry", shot.folder), "")

        self.flip(shot.merged(3), 5)
        self.assertEqual(shot.status(4)[1]["state"], "damaged")
        self.run_lines(shot.farm("retry", shot.folder))
        shot.check([3])

    # A job that was killed at once, and a power cut.
    def test_pieces_without_a_bucket(self):
        shot = self.shot
        self.run_lines("\n".join(self.submit().splitlines()[:3]))
        self.rewrite(shot.piece(1, "000.rimg"), bytearray.clear)
        self.rewrite(shot.piece(1, "001.rimg"), lambda content: (self.cut(content), content.__delitem__(slice(32, None))))
        self.rewrite(shot.piece(1, "002.rimg"), lambda content: content.__setitem__(slice(None), bytes(len(content))))
        [row, _] = shot.status(4)
        self.assertEqual([row[key] for key in ("unfinished", "damaged", "missingPixels")], [2, 1, 160 * 96])
        self.assertEqual(self.run_lines("%s/jobs/merge.sh 1" % shot.folder), [1])
        self.assertEqual(self.run_lines(shot.farm("retry", shot.folder)), [0] * 8)
        shot.check([1, 3])

    # SIGTERM reaches the script while another program than the renderer runs.
    def test_a_signal_without_a_renderer(self):
        shot = self.shot
        rimg, begun = shot.rimg, os.path.join(self.folder, "begun")
        shot.rimg = os.path.join(self.folder, "rimg")
        with open(shot.rimg, "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\n[ $1 = pieces ] || { touch '%s'; sleep 0.3; }\nexec '%s' \"$@\"\n" % (begun, rimg))
        os.chmod(shot.rimg, 0o755)
        lines = self.submit().splitlines()
        self.assertEqual(self.run_lines("\n".join(lines[:3])), [0] * 3)
        for line in (lines[0], lines[6]):
            job = subprocess.Popen(shlex.split(line))
            wait_for("rimg", lambda: os.path.exists(begun), 20)
            job.terminate()
            self.assertEqual(job.wait(), 75, line)
            os.remove(begun)

    def test_a_piece_that_has_lost_more_than_pixels_is_rendered_anew(self):
        shot = self.shot
        self.run_lines("\n".join(self.submit().splitlines()[:3]))
        shutil.copy(shot.piece(1, "000.rimg"), shot.piece(1, "002.rimg"))
        self.assertEqual([row["foreign"] for row in shot.status(4)], [1, 0])
        path = shot.piece(1, "001.rimg")
        tags = shot.report("info", path, "--tags")["tags"]
        settings = next(tag["offset"] for tag in tags if tag["name"] == "channel info") + 44
        self.rewrite(path, lambda content: content.__setitem__(slice(settings, settings + 8), b"\xff" * 8))
        self.run_lines(shot.farm("retry", shot.folder, stderr=subprocess.DEVNULL))
        shot.check([1, 3])

    # Two attempts at a piece at a time, one of which stops: without locks each has a file of its own.
    def test_attempts_without_locks(self):
        shot = self.shot
        lines = self.submit("--no-locks").splitlines()
        attempts = [subprocess.Popen(lines[0], shell=True) for _ in range(2)]
        self.assertEqual([attempt.wait() for attempt in attempts], [0, 0])
        files = [name for name in os.listdir(shot.piece(1, "")) if name.endswith(".rimg")]
        self.assertEqual(len(files), 2, files)
        self.rewrite(shot.piece(1, files[0]), self.cut)
        self.run_lines(lines[1])
        late = next(name for name in os.listdir(shot.piece(1, "")) if name.startswith("001."))
        self.rewrite(shot.piece(1, late), self.cut)
        with open(shot.piece(1, "002.late.rimg"), "wb"):
            pass
        before = shot.pixel_tags(shot.piece(1, late))
        self.assertEqual(self.run_lines("\n".join(lines[1:])), [0] * 7)
        after = max((shot.pixel_tags(shot.piece(1, name)) for name in os.listdir(shot.piece(1, ""))
                     if name.startswith("001.") and name.endswith(".rimg")), key=len)
        self.assertEqual(after[:len(before)], before, "it goes on from the earlier attempt")
        self.assertEqual({row["state"] for row in shot.status(0)}, {"merged"})
        shot.check([1, 3])

    # Two pieces have failed while the third is still rendered: the new merge waits for that one, too.
    def test_retry_beside_jobs_in_the_queue(self):
        shot = self.shot
        jobs, queue = (os.path.join(self.folder, name) for name in ("jobs", "queue"))
        for name, script in (("scontrol", "echo 'MaxArraySize = 1001'"), ("squeue", "cat '%s'" % queue),
                             ("sbatch", "echo \"$@\" >>'%s'; grep -c . '%s'" % (jobs, jobs))):
            path = os.path.join(self.folder, "bin", name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="utf-8") as file:
                file.write("#!/bin/sh\n%s\n" % script)
            os.chmod(path, 0o755)
        def waits():
            with open(jobs, encoding="utf-8") as file:
                return re.findall("--array ([^ ]*)|afterok:([^ ]*)", file.read())
        with unittest.mock.patch.dict(os.environ, PATH=os.path.join(self.folder, "bin") + ":" + os.environ["PATH"]):
            shot.submit("1", 3)
            self.assertEqual(waits(), [("0-2", ""), ("", "1_0:1_1:1_2")])
            for queued, array in (("1_1 RUNNING\n", 3), ("1_1 RUNNING\n4 PENDING\n", 5)):
                with open(queue, "w", encoding="utf-8") as file:
                    file.write(queued)
                shot.farm("retry", shot.folder, stderr=subprocess.DEVNULL)
                self.assertEqual(waits()[array - 1:], [("0-1", ""), ("", "1_1:%d_0:%d_1" % (array, array))])

    def test_refuses_what_cannot_work(self):
        shot = self.shot
        for options, command in ((("--frames", "1-x"), ("{frame}{box}{out}",)), (("--frames", "1"), ("{box}{out}",)),
                                 (("--frames", "1", "--rimg", "no/rimg"), ("{frame}{box}{out}",)),
                                 (("--frames", "1", "--bucket", "0x0"), ("{frame}{box}{out}",))):
            shot.farm("submit", "--pieces", "2", "--size", "9x9", "--out", shot.folder, "--engine", "print", "--rimg",
                      shot.rimg, *options, "--", *command, code=2, stderr=subprocess.DEVNULL)
            self.assertFalse(os.path.exists(shot.folder))
        self.submit()
        shot.submit("1", 2, code=2)
        shot.farm("status", self.folder, code=1, stderr=subprocess.DEVNULL)


if __name__ == "__main__":
    Farm.build = os.path.abspath(sys.argv[1])
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
