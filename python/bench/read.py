"""Measures the Python package: reads against the C++ call, two threads against one, and the time to import it.

Usage: read.py PROGRAM          the program of bench_python_read; PYTHONPATH leads to the package

Prints medians, taken turn by turn in one run, with the limits that they must keep; exits with 1 when one is beyond.
Reads and imports are of the processor's time, and of two threads the time counts that they run or wait for each other,
not for a processor: other programs of the machine hardly change these. What processors take from each other, as two of
one core do, shows in the row of numpy's threads, and no more is asked of the package.
"""

import os
import resource
import statistics
import subprocess
import sys
import tempfile
import threading
import time

import numpy

import rawimage

SIZE = 2048
ROUNDS = 9


def seconds(job, clock=time.perf_counter):
    start = clock()
    job()
    return clock() - start


def write_frame(path):
    y, x = numpy.mgrid[0:64, 0:64].astype(numpy.float32)
    bucket = numpy.stack([numpy.sin(x * y), numpy.cos(x), y / 64], axis=2)
    with rawimage.Writer(path, SIZE, SIZE, ["color"], compression="balanced", sync=False) as out:
        for top in range(0, SIZE, 64):
            for left in range(0, SIZE, 64):
                out.write(left, top, {"color": bucket + numpy.float32(top + left / SIZE)})


def times_of_program(program, path, times):
    found = subprocess.run([program, path, "color", str(times)], capture_output=True, check=True, text=True)
    return [float(line) for line in found.stdout.split()]


def compare_with_cpp(program, path):
    ours, theirs = [], []
    with rawimage.open(path) as file:
        file["color"]
        for _ in range(ROUNDS):
            ours += [seconds(lambda: file["color"], time.process_time) for _ in range(3)]
            theirs += times_of_program(program, path, 4)[1:]
    return statistics.median(ours) / statistics.median(theirs)


def seconds_for_a_processor():
    """How long this thread was ready to run and had no processor."""
    with open("/proc/thread-self/schedstat") as file:
        return int(file.read().split()[1]) / 1e9


def ratio_of_threads(work):
    """How much faster work(0) and work(1) are at the same time than one after the other."""

    def measure(i, times):
        times.append(seconds(lambda: work(i), lambda: time.perf_counter() - seconds_for_a_processor()))

    def both(times):
        threads = [threading.Thread(target=measure, args=[i, times]) for i in range(2)]
        [thread.start() for thread in threads]
        [thread.join() for thread in threads]

    ones, twos = [], []
    for _ in range(ROUNDS):
        one, two = [], []
        measure(0, one)
        measure(1, one)
        both(two)
        ones.append(sum(one))
        twos.append(max(two))
    return statistics.median(ones) / statistics.median(twos)


def compare_threads(path):
    """The ratios of reads of different windows of one file, and of numpy's sort."""
    half = SIZE // 2
    windows = [(0, 0, SIZE, half), (0, half, SIZE, SIZE)]
    out = [numpy.zeros((half, SIZE, 3), numpy.float32) for _ in windows]
    numbers = [numpy.random.default_rng(i).random(1500000) for i in range(2)]
    with rawimage.open(path) as file:
        reads = ratio_of_threads(lambda i: [file.read("color", windows[i], out=out[i]) for _ in range(3)])
    return reads, ratio_of_threads(lambda i: numpy.sort(numbers[i]))


def import_milliseconds():
    def run(code):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run([sys.executable, "-c", code], check=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime

    pairs = [(run("import numpy, rawimage"), run("import numpy")) for _ in range(ROUNDS)]
    return 1000 * statistics.median(ours - theirs for ours, theirs in pairs)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "frame.rimg")
        write_frame(path)
        threads, control = compare_threads(path)
        rows = [
            ("read of a channel, of the C++ call", compare_with_cpp(sys.argv[1], path), 1.1, False),
            ("two threads, of one", threads, min(1.8, 0.9 * control), True),
            ("two threads of numpy, of one", control, 0, True),
            ("import beyond numpy's, ms", import_milliseconds(), 60, False),
        ]
    good = True
    for name, value, limit, least in rows:
        kept = value >= limit if least else value <= limit
        good = good and kept
        print(f"{name:36} {value:7.2f}   {'at least' if least else 'at most'} {limit:.2f}{'' if kept else '   BEYOND'}")
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
