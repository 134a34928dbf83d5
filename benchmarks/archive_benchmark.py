#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""What an archive costs over its computing, and how it grows with workers; ratios within one run.

Needs the Python package on its path: PYTHONPATH=build/release/python benchmarks/archive_benchmark.py
"""

import argparse
import os
import shutil
import statistics
import tempfile
import time
from pathlib import Path
from typing import NamedTuple

# Each process computes on one processor, here and in the workers.
os.environ.update(OMP_NUM_THREADS="1", OMP_WAIT_POLICY="passive")

import numpy as np  # noqa: E402
import vxkit  # noqa: E402
import vxkit.archive  # noqa: E402
from vxkit.archive import _cluster  # noqa: E402


def make_archive(folder, recordings, frames):
    """Writes recordings of 160x120 counts: a drifting texture with stripes and noise."""
    folder.mkdir()
    rows, columns = np.indices((120, 160))
    for index in range(recordings):
        noise = np.random.default_rng(index)
        texture = 8000 + 300 * np.sin(rows / 7) * np.cos(columns / 9) + noise.normal(0, 10, 160)
        values = [np.roll(texture, frame // 10, 1) + noise.normal(0, 4, texture.shape) for frame in range(frames)]
        np.save(folder / f"recording-{index:03}.npy", np.stack(values).astype(np.uint16))


def compute(folder, output):
    """Enhances one recording after the other, without cluster, manifest, checksums or waiting for the disk."""
    output.mkdir()
    for path in sorted(folder.iterdir()):
        recording = vxkit.read(path)
        result = np.lib.format.open_memmap(output / path.name, "w+", np.uint16, recording.shape)
        for index, frame in enumerate(vxkit.enhance_frames(recording)):
            result[index] = frame


class Took(NamedTuple):
    """How long something took, in seconds of the clock and of the processors."""

    clock: float
    processor: float


def processor_time(client=None):
    workers = client.run(time.process_time).values() if client else []
    return time.process_time() + sum(workers)


def timed(work, client=None):
    clock, processor = time.perf_counter(), processor_time(client)
    work()
    return Took(time.perf_counter() - clock, processor_time(client) - processor)


def archive_time(client, folder, output):
    summaries = []
    took = timed(lambda: summaries.append(vxkit.archive.run(folder, output, client=client)), client)
    if summaries[0].failed:
        raise SystemExit(str(summaries[0]))
    return took


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--recordings", type=int, default=24)
    options.add_argument("--frames", type=int, default=300)
    options.add_argument("--rounds", type=int, default=5)
    given = options.parse_args()
    with tempfile.TemporaryDirectory() as scratch, _cluster.local(1, "2GB") as one, _cluster.local(2, "2GB") as two:
        place = Path(scratch)
        make_archive(place / "in", given.recordings, given.frames)
        rounds = []
        for index in range(given.rounds + 1):
            serial = timed(lambda: compute(place / "in", place / f"serial-{index}"))
            single = archive_time(one, place / "in", place / f"one-{index}")
            double = archive_time(two, place / "in", place / f"two-{index}")
            rounds.append((serial, single, double))
            for name in ("serial", "one", "two"):
                shutil.rmtree(place / f"{name}-{index}")
    report(given, rounds[1:])  # the first one loads and warms


def report(given, rounds):
    def median(ratio):
        return statistics.median(ratio(*times) for times in rounds)

    each = median(lambda serial, one, two: serial.clock) / given.recordings
    print(f"{given.recordings} recordings of {given.frames} frames of 160x120, medians of {given.rounds} rounds")
    print(f"computing one recording alone: {each * 1e3:.0f} ms")
    print(f"1 worker, time over computing alone: {median(lambda serial, one, two: one.clock / serial.clock):.3f}")
    print(f"1 worker, processor time over the same: {median(lambda serial, one, two: one.processor / serial.processor):.3f}")
    print(f"2 workers, throughput over 1: {median(lambda serial, one, two: one.clock / two.clock):.2f}")


if __name__ == "__main__":
    main()
