# SPDX-License-Identifier: Apache-2.0
"""Temporary files beside the outputs: other processes, planted links, long names, order of sync and rename."""

import os
import pathlib

from jobs import BY_NAME, JOBS, QUICK, SEQUENCES, TEMPORARY
from runner import case, changes, rounds, snapshot

LONGEST = 255  # bytes of a file's name
PROCESS = "4711"


@case("planted-links", 2)
def planted_links(bench):
    """Nobody may have the program write where a link points that stands at the name of a temporary file."""
    for job in (BY_NAME["raw"], BY_NAME["tif"], BY_NAME["avi"], BY_NAME["sheet"], BY_NAME["h5"], BY_NAME["halvor"]):
        folder = bench.folder()
        victim = bench.folder() / "victim"
        victim.write_text("precious")
        output = next(iter(bench.jobs.undisturbed(job)))
        stem, dot, ending = output.rpartition(".")
        names = [f".{stem}.partial-{PROCESS}.{ending}", f"{output}.tmp", f".{output}.tmp", f".vxkit-{PROCESS}",
                 f"{output}.partial", f".{output}.partial-{PROCESS}"]
        for name in names:
            os.symlink(victim, folder / name)
        bench.jobs.prepare(job, folder)
        run = bench.run(bench.jobs.words(job), folder, shim={"FAULTS_PID": PROCESS})
        bench.expect(victim.read_bytes() == b"precious", f"{job.name}: wrote through a planted link", run)
        bench.expect(all((folder / name).is_symlink() for name in names), f"{job.name}: moved a planted link", run)
        result = snapshot(folder)
        bench.expect(run.status == 0 and result[output] == bench.jobs.undisturbed(job)[output],
                     f"{job.name}: not the result beside planted links", run)


@case("same-number-twins", 2)
def same_number_twins(bench):
    """In containers two processes have the same number; temporary files of a shared folder stay apart."""
    for job in (BY_NAME["raw"], BY_NAME["csv"], BY_NAME["avi"], BY_NAME["png"], BY_NAME["halvor"]):
        for _ in range(3):
            twins(bench, job, {"FAULTS_PID": PROCESS})


@rounds("twins", 2)
def any_twins(bench):
    """Two processes write the same output at once: in the end it is one's or the other's."""
    twins(bench, bench.random.choice([job for job in QUICK if not job.parts]), None)


def twins(bench, job, shim):
    folder = bench.folder()
    before = bench.jobs.prepare(job, folder)
    versions = ("a", "a") if job.streams else ("a", "b")  # a stream stands in the folder for both
    processes = [bench.workshop.start(bench.jobs.words(job, version), folder, shim=shim) for version in versions]
    runs = [bench.workshop.finish(process) for process in processes]
    after = snapshot(folder)
    wholes = [{**before, **bench.jobs.undisturbed(job, version)} for version in versions]
    for run in runs:
        bench.expect(run.status in (0, 1, 2), f"{job.name}: two at once", run)
    if all(run.status != 0 for run in runs):
        bench.expect(after == before, f"{job.name}: two at once failed and left {changes(before, after)}", runs[0])
    elif job.name in SEQUENCES:
        torn = [name for name in after if after[name] not in [whole.get(name) for whole in wholes]]
        bench.expect(not torn, f"{job.name}: two at once: torn or left behind: {torn[:3]}", runs[0])
    else:
        bench.expect(after in wholes, f"{job.name}: two at once: " + changes(wholes[0], after), runs[0])


@case("long-names", 2)
def long_names(bench):
    """Whatever the file system takes as a name can be written; what it doesn't is refused before the work."""
    for job in (BY_NAME["raw"], BY_NAME["tif"], BY_NAME["mkv"], BY_NAME["png"], BY_NAME["sheet"], BY_NAME["picture"]):
        output = next(word for word in job.line.split() if word in ("r." + job.name, "sheet.png", "s.png"))
        ending = "." + output.rpartition(".")[2]
        numbers = 5 if job.name in SEQUENCES else 0
        for length in (244, 250, LONGEST, LONGEST + 1):
            name = "n" * (length - numbers - len(ending)) + ending
            words = [name if word == output else word for word in bench.jobs.words(job)]
            folder = bench.folder()
            run = bench.run(words, folder)
            if length <= LONGEST and numbers == 0:
                found = snapshot(folder)
                expected = bench.jobs.undisturbed(job)[output]
                bench.expect(run.status == 0 and found == {name: expected}, f"{job.name}: {length} bytes", run)
            elif length <= LONGEST:  # the list of a sequence may have a longer name than its frames
                bench.expect(run.status in (0, 2), f"{job.name}: {length} bytes", run)
                bench.expect(run.status == 0 or not snapshot(folder), f"{job.name}: left something", run)
            else:
                bench.expect(run.status == 2 and not snapshot(folder), f"{job.name}: {length} bytes", run)
                bench.expect("nnn" in run.error, f"{job.name}: the name is not told", run)


@case("no-file-opened-in-place", 2)
def no_file_opened_in_place(bench):
    """What is opened for writing was made by the program alone: exclusively, or in a private folder of its own."""
    for job in JOBS:
        log, folder, run = bench.jobs.logged(bench, job)
        private = []
        for line in log:
            kind, _, path = line.partition(" ")
            how, _, path = path.partition(" ") if kind in ("open", "mkdir") else ("", "", path)
            if kind == "mkdir" and how == "700":
                private.append(os.path.realpath(path) if os.path.isabs(path) else str(folder / path))
            if kind == "open" and "x" not in how and "t" not in how and not path.startswith("/dev/"):
                owner = [parent for parent in private if path.startswith(os.path.normpath(parent) + "/")]
                bench.expect(owner, f"{job.name}: {path} was opened where others may have put it", run)


@case("synced-before-rename", 12)
def synced_before_rename(bench):
    """A power loss may not leave a name whose contents never reached the disk."""
    for job in JOBS:
        log, _, run = bench.jobs.logged(bench, job)
        synced = set()
        renamed = 0
        for line in log:
            kind, _, path = line.partition(" ")
            if kind == "sync":
                synced.add(path)
            elif kind == "write":
                synced.discard(path)
            elif kind == "rename":
                source, target = (os.path.normpath(name) for name in path.split("\t"))
                renamed += 1
                kept = any(TEMPORARY.match(part) for part in pathlib.PurePath(target).parts)
                bench.expect(kept or source in synced, f"{job.name}: {target} took its name unsynced", run)
        bench.expect(renamed > 0, f"{job.name}: no rename at all", run)


@rounds("sync-fails", 12, 3)
def sync_fails(bench):
    """Some disks tell of a loss with the last call alone."""
    job = bench.random.choice(QUICK)
    folder = bench.folder()
    before = bench.jobs.prepare(job, folder, earlier="b")
    fault = f"sync:{bench.random.randint(1, 3)}:e5"
    run = bench.run(bench.jobs.words(job), folder, shim={"FAULTS_AT": fault})
    bench.jobs.judge(bench, job, before, snapshot(folder), run, done_anyway=True)
