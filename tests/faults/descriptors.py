# SPDX-License-Identifier: Apache-2.0
"""Standard descriptors that are closed, and too few of the others."""

from jobs import BY_NAME, JOBS, QUICK
from runner import case, rounds, snapshot

COMBINATIONS = ("0", "1", "2", "01", "02", "12", "012")


@case("closed-descriptors", 1)
def closed_descriptors(bench):
    """A file that gets the number of a closed standard descriptor would take messages in."""
    for job in [BY_NAME["raw"], BY_NAME["h5"], *bench.some(JOBS)]:
        all_of_them = job.name == "raw"
        for closed in COMBINATIONS if all_of_them else ("2" if job.name in ("tif", "h5") else "12",):
            folder = bench.folder()
            before = bench.jobs.prepare(job, folder)
            run = bench.run(bench.jobs.words(job), folder, closed=closed)
            after = snapshot(folder)
            whole = {**before, **bench.jobs.undisturbed(job)}
            bench.expect(after == whole, f"{job.name} with {closed} closed: not the result", run)
            statuses = (0,) if closed == "0" else (0, 1)  # a report may have been lost
            bench.expect(run.status in statuses, f"{job.name} with {closed} closed", run)


@case("closed-report", 1, 4)
def closed_report(bench):
    """Success would tell that a report arrived."""
    inputs = bench.jobs.inputs["a"]
    for words in (["info", "burst.tif"], ["info", "burst.tif", "--json"],
                  ["compare", "truth.tif", "other.tif"], ["convert", "burst.tif", "--to", "npy", "-o", "-"]):
        run = bench.run(["vxkit", *words], inputs, closed="1")
        bench.expect(run.status == 1, f"{words[0]}: the report can't have been written", run)


@rounds("few-descriptors", 10)
def few_descriptors(bench):
    """Libraries, programs and files all want descriptors."""
    job = bench.random.choice(QUICK)
    folder = bench.folder()
    before = bench.jobs.prepare(job, folder, earlier="b")
    limits = {"nofile": bench.random.randint(3, 14)}
    run = bench.run(bench.jobs.words(job), folder, limits=limits)
    if run.status == 127:  # the loader itself had too few
        bench.expect(snapshot(folder) == before, f"{job.name}: changed something without having begun", run)
        return
    bench.jobs.judge(bench, job, before, snapshot(folder), run, named=False)
