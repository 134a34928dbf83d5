# SPDX-License-Identifier: Apache-2.0
"""Inputs that shrink, vanish or are replaced while they are read."""

import os
import shutil
import signal
import time

from jobs import SIZE
from runner import case, rounds, snapshot

ENDINGS = ("raw", "npy", "tif", "fits", "h5", "csv", "mkv")
FRAMES = 200


def shorten(path):
    os.truncate(path, path.stat().st_size // 2)


def empty(path):
    os.truncate(path, 0)


def remove(path):
    path.unlink()


def replace(path):
    (path.parent / "other").write_bytes(b"something else")
    os.replace(path.parent / "other", path)


CHANGES = (shorten, empty, remove, replace)


def recording(bench, ending):
    """A recording in a folder of its own, and what its frames are as .npy."""
    folder = bench.folder()
    make = ["vxkit", "simulate", "s", "--stream", "--size", SIZE, "--frames", str(FRAMES), "--format", "raw"]
    runs = [bench.run(make, folder)]
    if ending == "raw":
        shutil.copy(folder / "s/frame.raw", folder / "in.raw")
    else:
        runs.append(bench.run(["vxkit", "convert", "s/frame.raw", "--size", SIZE, "-o", "in." + ending], folder))
    shutil.rmtree(folder / "s")
    bench.expect(all(run.status == 0 for run in runs), "the recording could not be made", runs[-1])
    return folder / ("in." + ending)


def words(path, kind):
    size = ["--size", SIZE] if path.suffix == ".raw" else []
    options = {"convert": ["-o", "out.npy"], "enhance": ["-o", "out.npy"], "video": ["-o", "out.avi"]}[kind]
    return ["vxkit", "convert" if kind == "video" else kind, path.name, *size, *options]


def judge(bench, what, whole, folder, run):
    after = snapshot(folder)
    outputs = {name: text for name, text in after.items() if not name.startswith("in.")}
    bench.expect(run.status in (0, 2), f"{what}: unexpected end", run)
    if run.status == 0:
        bench.expect(outputs in whole, f"{what}: success, but not the result", run)
    else:
        bench.expect(not outputs, f"{what}: left {list(outputs)[:3]}", run)
        bench.expect("in." in run.error, f"{what}: the input is not named", run)


@case("inputs-change-at-work", 3)
def inputs_change_at_work(bench):
    """The program holds still at a write, its input changes, and it goes on."""
    for ending in ENDINGS:
        original = recording(bench, ending)
        whole = {}
        for kind in ("convert", "enhance"):
            run = bench.run(words(original, kind), original.parent)
            bench.expect(run.status == 0, f"{kind} of {ending}", run)
            found = snapshot(original.parent)
            whole[kind] = {name: text for name, text in found.items() if not name.startswith("in.")}
            for name in whole[kind]:
                (original.parent / name).unlink()
        for change in bench.some(CHANGES):
            kind = bench.random.choice(("convert", "enhance"))
            folder = bench.folder()
            path = folder / original.name
            shutil.copy(original, path)
            process = bench.workshop.start(words(path, kind), folder, shim={"FAULTS_AT": f"write:1:s{signal.SIGSTOP:d}"})
            os.waitid(os.P_PID, process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
            change(path)
            os.kill(process.pid, signal.SIGCONT)
            run = bench.workshop.finish(process)
            judge(bench, f"{kind} of {ending}, {change.__name__}", [whole[kind]], folder, run)


@rounds("inputs-change-any-time", 3)
def inputs_change_any_time(bench):
    """A shortened file may have been short from the start: then its own frames are a result, too."""
    original = recording(bench, bench.random.choice(ENDINGS))
    change = bench.random.choice(CHANGES)
    kind = bench.random.choice(("convert", "enhance"))
    folder = bench.folder()
    results = []
    for changed in (False, True):
        trial = bench.folder()
        path = trial / original.name
        shutil.copy(original, path)
        if changed:
            change(path)
        run = bench.run(words(path, kind), trial)
        if run.status == 0:
            results.append({name: text for name, text in snapshot(trial).items() if not name.startswith("in.")})
    path = folder / original.name
    shutil.copy(original, path)
    process = bench.workshop.start(words(path, kind), folder)
    time.sleep(bench.random.uniform(0.0, 0.3))
    change(path)
    run = bench.workshop.finish(process)
    judge(bench, f"{kind} of {original.suffix}, {change.__name__}", results, folder, run)
