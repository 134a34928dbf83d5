# SPDX-License-Identifier: Apache-2.0
"""Programs that are ended: kill -9 and the signals that ask for it, at any moment and at bad places."""

import hashlib
import signal

from jobs import BY_NAME, JOBS, LIST, QUICK, SEQUENCES
from runner import case, rounds, snapshot

ASKING = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGXFSZ)


def manifest_in(folder):
    found = sorted(folder.glob("*" + LIST))
    return found[0] if found else None


def holds(manifest):
    """Whether the files are those that a manifest tells of."""
    for line in manifest.read_text().splitlines():
        told, _, name = line.partition("  ")
        file = manifest.parent / name
        if not file.is_file() or hashlib.sha256(file.read_bytes()).hexdigest() != told:
            return False
    return True


@case("signals-at-work", 5)
def signals_at_work(bench):
    """In the middle of writing: stop, remove, tell, and end by the signal itself."""
    for job in bench.some(QUICK):
        number = bench.random.choice(ASKING)
        folder = bench.folder()
        before = bench.jobs.prepare(job, folder, earlier="b")
        run = bench.run(bench.jobs.words(job), folder, shim={"FAULTS_AT": f"write:1:s{number}"})
        after = snapshot(folder)
        bench.jobs.judge(bench, job, before, after, run, signals=(number,))
        bench.expect(run.status >= 0 or after != before or "stopped" in run.error,
                     f"{job.name}: ended by a signal without a word", run)


@case("signals-at-renames", 5, 11)
def signals_at_renames(bench):
    for job in bench.some(JOBS):
        number = bench.random.choice(ASKING)
        folder = bench.folder()
        before = bench.jobs.prepare(job, folder, earlier="b")
        place = bench.random.randint(1, 6) if job.name in SEQUENCES or job.parts else 1
        run = bench.run(bench.jobs.words(job), folder, shim={"FAULTS_AT": f"rename:{place}:s{number}"})
        bench.jobs.judge(bench, job, before, snapshot(folder), run, signals=(number,), done_anyway=True)


@case("ignored-signals", 5)
def ignored_signals(bench):
    """nohup: a signal that is ignored from the start stays ignored."""
    for name in ("HUP", "INT"):
        job = BY_NAME["png"]
        folder = bench.folder()
        before = bench.jobs.prepare(job, folder)
        number = signal.Signals["SIG" + name]
        run = bench.run(bench.jobs.words(job), folder, ignored=name, shim={"FAULTS_AT": f"write:3:s{number}"})
        bench.jobs.judge(bench, job, before, snapshot(folder), run, may_fail=False)


@case("file-size-limit", 5)
def file_size_limit(bench):
    """The shell's limit of files' sizes, which comes as a signal."""
    for job in bench.some(QUICK):
        folder = bench.folder()
        before = bench.jobs.prepare(job, folder, earlier="b")
        run = bench.run(bench.jobs.words(job), folder, limits={"fsize": 1000})
        bench.jobs.judge(bench, job, before, snapshot(folder), run, signals=(signal.SIGXFSZ,))


@case("kill-at-renames", 11)
def kill_at_renames(bench):
    """Killed between two renames of a sequence: what stands there must tell that it doesn't belong together."""
    for name in SEQUENCES:
        job = BY_NAME[name]
        manifest = manifest_in(bench.jobs.undisturbed_folder(job))
        bench.expect(manifest and holds(manifest), f"{name}: nothing tells which files belong together")
        for place in (1, 2, 4, 12, 13) if name == "png" else (5,):
            folder = bench.folder()
            before = bench.jobs.prepare(job, folder, earlier="b")
            run = bench.run(bench.jobs.words(job), folder, shim={"FAULTS_AT": f"rename:{place}:s9"})
            after = snapshot(folder)
            bench.jobs.judge(bench, job, before, after, run, signals=(9,))
            frames = [one for one in before if one.endswith("." + name)]
            old = sum(after.get(one) == before[one] for one in frames)
            manifest = manifest_in(folder)
            if 0 < old < len(frames):
                bench.expect(not (manifest and holds(manifest)),
                             f"{name}: {old} of {len(frames)} frames are old, and the list tells otherwise", run)


@case("killed-halvor", 2)
def killed_halvor(bench):
    """An earlier result stays until the next one is whole."""
    job = BY_NAME["halvor"]
    for fault in ("write:1:s9", "write:5:s9", "rename:1:s9"):
        folder = bench.folder()
        before = bench.jobs.prepare(job, folder, earlier="b")
        run = bench.run(bench.jobs.words(job), folder, shim={"FAULTS_AT": fault})
        bench.jobs.judge(bench, job, before, snapshot(folder), run, signals=(9,))


@rounds("ended-any-time", 5)
def ended_any_time(bench):
    """Signals and kill -9 after a random time, or at a random write."""
    job = bench.random.choice(QUICK)
    number = bench.random.choice((*ASKING, signal.SIGKILL))
    folder = bench.folder()
    before = bench.jobs.prepare(job, folder, earlier=bench.random.choice(("b", None)))
    if bench.random.random() < 0.5:
        bench.jobs.undisturbed(job)
        moment = bench.random.uniform(0.02, 0.4)
        run = bench.run(bench.jobs.words(job), folder, moment=moment, signal_number=number)
    else:
        fault = f"write:{bench.random.randint(1, 40)}:s{number}"
        run = bench.run(bench.jobs.words(job), folder, shim={"FAULTS_AT": fault})
    bench.jobs.judge(bench, job, before, snapshot(folder), run, signals=(number,), done_anyway=True)
