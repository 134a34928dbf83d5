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
from vxkit.archive import _cluster, _operations  # noqa: E402


def make_archive(folder, recordings, frames):
    """Writes recordings of 160x120 counts: a drifting texture with stripes and noise."""
    folder.mkdir()
    rows, columns = np.indices((120, 160))
    for index in range(recordings):
        noise = np.random.default_rng(index)
        texture = 8000 + 300 * np.sin(rows / 7) * np.cos(columns / 9) + noise.normal(0, 10, 160)
        values = [np.roll(texture, frame // 10, 1) + noise.normal(0, 4, texture.shape) for frame in range(frames)]
        np.save(folder / f"recording-{index:03}.npy", np.stack(values).astype(np.uint16))


def write_each(folder, output, made):
    """Makes and writes one recording after the other, without cluster, manifest, checksums or waiting for the disk."""
    output.mkdir()
    for path in sorted(folder.iterdir()):
        vxkit.write(output / path.name, made(vxkit.read(path)))


def enhance(folder, output):
    write_each(folder, output, vxkit.enhance_frames)


def copy(folder, output):
    write_each(folder, output, lambda recording: recording)


def copy_in_place_of_computing(copies=True):
    """Run on a worker: lets it do all that the archive adds, and nothing else."""
    if not hasattr(_operations, "computed"):
        _operations.computed = _operations.whole
    _operations.whole = (
        (lambda operation, settings, opened: _operations.Frames(opened.shape, opened.dtype, iter(opened), []))
        if copies
        else _operations.computed
    )


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
        rounds = [measured(one, two, place) for _ in range(given.rounds + 1)]
    report(given, rounds[1:])  # the first one loads and warms


class Round(NamedTuple):
    """What all recordings took."""

    enhanced: Took  # without an archive
    copied: Took
    one: Took  # by one worker
    one_copied: Took
    two: Took  # by two


def measured(one, two, place):
    def timed_run(run):
        with tempfile.TemporaryDirectory(dir=place) as folder:
            return run(place / "in", Path(folder, "out"))

    def archived(client):
        return timed_run(lambda folder, output: archive_time(client, folder, output))

    enhanced = timed_run(lambda folder, output: timed(lambda: enhance(folder, output)))
    single = archived(one)
    double = archived(two)
    copied = timed_run(lambda folder, output: timed(lambda: copy(folder, output)))
    one.run(copy_in_place_of_computing)
    single_copied = archived(one)
    one.run(copy_in_place_of_computing, False)
    return Round(enhanced, copied, single, single_copied, double)


def report(given, rounds):
    def median(ratio):
        return statistics.median(ratio(one) for one in rounds)

    each = median(lambda took: took.enhanced.clock) / given.recordings
    # Times of computing vary by more than what is added to them, so that this is measured apart.
    added = [(took.one_copied.processor - took.copied.processor) / took.enhanced.processor for took in rounds]
    print(f"{given.recordings} recordings of {given.frames} frames of 160x120, medians of {given.rounds} rounds")
    print(f"reading, enhancing and writing one recording without an archive: {each * 1e3:.0f} ms")
    print(f"what the archive adds, processor time of worker, scheduler and client over that: {statistics.median(added):.3f}")
    print(f"  least {min(added):.3f}, most {max(added):.3f}")
    print(f"1 worker, time over that of no archive: {median(lambda took: took.one.clock / took.enhanced.clock):.3f}")
    print(f"2 workers, throughput over 1: {median(lambda took: took.one.clock / took.two.clock):.2f}")


if __name__ == "__main__":
    main()
