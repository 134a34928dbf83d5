# SPDX-License-Identifier: Apache-2.0
"""Standard outputs that take nothing: pipes without a reader, a device that is full."""

import os
import subprocess

from jobs import JOBS, QUICK
from runner import case, rounds, snapshot


def pipe_without_reader():
    reading, writing = os.pipe()
    os.close(reading)
    return os.fdopen(writing, "wb")


@case("closed-pipe", 4)
def closed_pipe(bench):
    """Nobody reads the report: the result is in place, and status 1 tells that the report is not."""
    for number, job in enumerate(bench.some(JOBS)):
        folder = bench.folder()
        before = bench.jobs.prepare(job, folder, earlier="b")
        with open("/dev/full", "wb") if number % 3 == 0 else pipe_without_reader() as stdout:
            run = bench.run(bench.jobs.words(job), folder, stdout=stdout)
        whole = {**before, **bench.jobs.undisturbed(job)}
        bench.expect(snapshot(folder) == whole, f"{job.name}: not the result", run)
        bench.expect(run.status == 1, f"{job.name}: the report was lost", run)


@case("closed-pipe-of-reports", 4)
def closed_pipe_of_reports(bench):
    inputs = bench.jobs.inputs["a"]
    for words in (["info", "burst.tif"], ["info", "burst.tif", "--json"],
                  ["compare", "truth.tif", "other.tif"], ["diff", "truth.tif", "truth.tif", "--json"],
                  ["convert", "burst.tif", "--to", "npy", "-o", "-"], ["--version"], ["help", "superres"],
                  ["psf", "other.tif", "--json"], ["selfcheck", "--seeds", "1", "--size", "32x32"]):
        with pipe_without_reader() as stdout:
            run = bench.run(["vxkit", *words], inputs, stdout=stdout)
        bench.expect(run.status in (1, 2), f"{' '.join(words)}: its report was lost", run)
    with pipe_without_reader() as stdout:
        run = bench.run(["halvor", "--help"], inputs, stdout=stdout)
    bench.expect(run.status == 1, "halvor --help: its report was lost", run)


@rounds("head", 4)
def head(bench):
    """A reader that goes after the first line, or errors that nobody reads."""
    job = bench.random.choice(QUICK)
    folder = bench.folder()
    before = bench.jobs.prepare(job, folder, earlier="b")
    reading, writing = os.pipe()
    stream = bench.random.choice(("stdout", "stderr"))
    with os.fdopen(writing, "wb") as pipe:
        process = bench.workshop.start(bench.jobs.words(job), folder, **{stream: pipe})
    reader = subprocess.run(["head", "-n", "1"], stdin=reading, stdout=subprocess.DEVNULL)
    os.close(reading)
    run = bench.workshop.finish(process)
    bench.expect(reader.returncode == 0, "head failed")
    bench.expect(run.status in (0, 1), f"{job.name} | head -n 1", run)
    bench.expect(snapshot(folder) == {**before, **bench.jobs.undisturbed(job)}, f"{job.name}: not the result", run)
