# SPDX-License-Identifier: Apache-2.0
"""A full disk: a small file system of our own where we may mount one, else a limit of files' sizes."""

import os
import subprocess

from jobs import JOBS, QUICK
from runner import case, rounds, snapshot

PAGE = 4096


def may_mount():
    return bool(os.environ.get("FAULTS_MOUNTS"))


def means():
    return "a small tmpfs of its own" if may_mount() else "a limit of files' sizes (mounting is not allowed here)"


class FullDisk:
    """A folder with results of before and little room."""

    def __init__(self, bench, job):
        self.folder = bench.folder()
        if may_mount():
            subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64m", "none", self.folder], check=True)
        self.before = bench.jobs.prepare(job, self.folder, earlier="b")

    def leave(self, room):
        """Options for a run with `room` bytes left."""
        if not may_mount():
            return {"limits": {"fsize": room}, "ignored": "XFSZ"}
        free = os.statvfs(self.folder)
        used = (free.f_blocks - free.f_bfree) * free.f_bsize
        subprocess.run(["mount", "-o", f"remount,size={used + room}", self.folder], check=True)
        return {}

    def close(self):
        if may_mount():
            subprocess.run(["umount", "--lazy", self.folder], check=True)


def fill(bench, job, room):
    disk = FullDisk(bench, job)
    try:
        run = bench.run(bench.jobs.words(job), disk.folder, **disk.leave(room))
        bench.jobs.judge(bench, job, disk.before, snapshot(disk.folder), run, named=True)
    finally:
        disk.close()
    return run


def size_of(bench, job):
    """Bytes of the results; where only each file by itself is limited, those of the largest."""
    sizes = [int(text.split()[0]) for text in bench.jobs.undisturbed(job).values() if text[0].isdigit()]
    return sum(sizes) if may_mount() else max(sizes)


@case("full-disk", 3)
def full_disk(bench):
    """Every kind of output: room for a part of it, and for all but its end, which libraries write last."""
    for job in JOBS:
        size = size_of(bench, job)
        step = PAGE if may_mount() else 1
        rooms = {max(size // 2 // step, 1) * step, max((size - 1) // step, 1) * step}
        for room in bench.some(sorted(rooms, reverse=True)) if job.name not in ("sheet", "fits") else rooms:
            run = fill(bench, job, room)
            if size > room and not job.parts:
                bench.expect(run.status != 0, f"{job.name}: success with room for {room} of {size} bytes", run)


@rounds("disk-fills-up", 3)
def disk_fills_up(bench):
    job = bench.random.choice(QUICK)
    fill(bench, job, bench.random.randrange(0, size_of(bench, job) + 8 * PAGE, PAGE) or 1)


@rounds("write-fails", 3)
def write_fails(bench):
    """From some write on none succeeds: no space, quota used up, a disk that is gone."""
    job = bench.random.choice(QUICK)
    folder = bench.folder()
    before = bench.jobs.prepare(job, folder, earlier="b")
    place = bench.random.choice((1, 2, bench.random.randint(1, 60)))
    error = bench.random.choice((28, 122, 5))  # ENOSPC, EDQUOT, EIO
    run = bench.run(bench.jobs.words(job), folder, shim={"FAULTS_AT": f"write:{place}:e{error}"})
    bench.jobs.judge(bench, job, before, snapshot(folder), run)
