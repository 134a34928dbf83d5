# SPDX-License-Identifier: Apache-2.0
"""A cluster of processes for the tests, and recordings to work on."""

import contextlib
import os
import subprocess
import sys
import time

import numpy as np
from distributed import Client

LIMIT = 60.0  # seconds after which a test gives up waiting


def wait_for(condition, what):
    end = time.monotonic() + LIMIT
    while not (found := condition()):
        assert time.monotonic() < end, f"waited in vain for {what}"
        time.sleep(0.01)
    return found


class Cluster:
    """A scheduler and workers, each a process of its own without anybody who would start it again."""

    def __init__(self, folder, workers, preload=None, nanny=False, allowed_failures=3):
        self._folder = folder
        self._environment = {
            **os.environ,
            "PYTHONPATH": os.pathsep.join(part for part in sys.path if part),
            "OMP_NUM_THREADS": "1",
            "DASK_DISTRIBUTED__SCHEDULER__ALLOWED_FAILURES": str(allowed_failures),
        }
        place = folder / "scheduler.json"
        self._processes = []
        self._start("dask_scheduler", "--port", "0", "--dashboard-address", ":0", "--scheduler-file", place)
        wait_for(place.exists, "the scheduler")
        options = ["--scheduler-file", place, "--nthreads", "2", "--dashboard-address", ":0"]
        options += ["--nanny" if nanny else "--no-nanny", *(["--preload", preload] if preload else [])]
        for _ in range(workers):
            self._start("dask_worker", *options, "--local-directory", folder)
        self.client = Client(scheduler_file=str(place), set_as_default=False)
        self.address = self.client.scheduler.address
        self.client.wait_for_workers(workers, timeout=LIMIT)

    def _start(self, module, *options):
        command = [sys.executable, "-m", f"distributed.cli.{module}", *map(str, options)]
        with open(self._folder / "cluster.log", "a", encoding="utf-8") as log:
            self._processes.append(
                subprocess.Popen(command, env=self._environment, cwd=self._folder, stdout=log, stderr=log)
            )

    def kill_worker(self):
        """Ends the worker that was started last, without notice."""
        self._processes.pop().kill()

    def close(self):
        self.client.close()
        for process in reversed(self._processes):
            process.terminate()
        for process in self._processes:
            with contextlib.suppress(subprocess.TimeoutExpired):
                process.wait(10)
            process.kill()
            process.wait()


def make_recordings(folder, count, frames=120, size=(60, 80)):
    """Writes recordings of a drifting ramp with stripes and noise; returns their arrays by name."""
    made = {}
    rows, columns = np.indices(size)
    for index in range(count):
        noise = np.random.default_rng(index)
        stripes = noise.normal(0, 8, size[1])
        scene = [9000 + 6 * rows + 5 * ((columns + frame // 4) % 40) + stripes for frame in range(frames)]
        values = (np.stack(scene) + noise.normal(0, 3, (frames, *size))).astype(np.uint16)
        name = f"day{index % 2}/recording-{index:03}.npy"
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        np.save(folder / name, values)
        made[name] = values
    return made


def records(output):
    return sorted((output / "manifest" / "records").rglob("*.json"))


def files_of(output):
    """What each result and record is: content and identity."""
    found = [path for path in output.rglob("*") if path.is_file() and path.suffix in (".npy", ".json")]
    return {path.relative_to(output): (path.stat().st_ino, path.read_bytes()) for path in found}
