# SPDX-License-Identifier: Apache-2.0
"""The command lines that are put under faults: one for each kind of output."""

import dataclasses
import re
import shutil
import threading

from runner import changes, exit_text, snapshot

SIZE = "48x36"
FRAMES = 12
LIST = ".sha256"  # the ending of what tells the files of a sequence
TEMPORARY = re.compile(r"^\.vxkit-")  # how whatever is left after a kill is recognised


@dataclasses.dataclass(frozen=True)
class Job:
    """A command line, run in a folder of its own.

    name      of the kind of output
    line      words; {m} is the folder of inputs
    target    the name of its output, as messages are to tell it
    parts     it writes several files, of which each by itself is old or new after a failure
    streams   inputs that must stand in the folder
    """

    name: str
    line: str
    target: str
    parts: bool = False
    streams: tuple = ()


def _converting(ending, options=""):
    return Job(ending, f"vxkit convert {{m}}/rec.raw --size {SIZE} {options} -o r.{ending} --force", "r")


JOBS = [
    *(_converting(ending) for ending in ("raw", "npy", "tif", "fits", "h5", "csv", "mkv", "avi", "mp4")),
    *(_converting(ending) for ending in ("png", "pgm")),
    Job("pfm", "vxkit convert {m}/degrees.npy -o r.pfm --force", "r"),
    Job("float-tif", "vxkit convert {m}/degrees.npy -o r.tif --force", "r"),
    Job("enhance", f"vxkit enhance {{m}}/rec.raw --size {SIZE} -o r.raw --force", "r.raw"),
    Job("sheet", f"vxkit enhance {{m}}/rec.raw --size {SIZE} --contact-sheet sheet.png --force", "sheet.png"),
    Job("bad-pixels", f"vxkit enhance {{m}}/rec.raw --size {SIZE} -o r.npy --contact-sheet sheet.png "
        "--write-bad-pixels map.png --force", "", parts=True),
    Job("damping", f"vxkit filter --cluster {{m}}/rec.raw --size {SIZE} -o r.raw --damping d.pfm --force", "",
        parts=True),
    Job("superres", "vxkit superres {m}/burst.tif -o r.tif --force", "r.tif"),
    Job("preview", "vxkit superres {m}/burst.tif --preview p.png --force", "p.png"),
    Job("stack", "vxkit superres {m}/burst.tif --stack -o r.npy --force", "r.npy"),
    Job("quality-map", "vxkit superres {m}/burst.tif --engine reference -o r.pfm --quality-map q.png "
        "--force", "", parts=True),
    Job("superres-png", "vxkit superres {m}/burst.tif --motion single -o r.png --force", "r.png"),
    Job("picture", "vxkit show {m}/burst.tif --zoom 2 -o s.png --force", "s.png"),
    Job("table", "vxkit show {m}/burst.tif --csv s.csv --force", "s.csv"),
    Job("compare", "vxkit compare {m}/truth.tif {m}/other.tif --picture c.png --force", "c.png"),
    Job("simulate", "vxkit simulate {m_as_seed} burst --size 32x24 --force", "burst", parts=True),
    Job("vectors", "vxkit vectors bench {m_as_seed} --size 32x32 --frames 2 --force", "bench", parts=True),
    Job("halvor", "halvor -s {m}/settings.ini stream.raw", "stream", streams=("stream.raw",)),
]

BY_NAME = {job.name: job for job in JOBS}
SEQUENCES = ("png", "pgm", "pfm")
QUICK = [job for job in JOBS if job.name not in ("mp4", "vectors", "bad-pixels")]


class Jobs:
    """The inputs of the jobs in two versions, and what they make of them undisturbed."""

    def __init__(self, workshop):
        self.workshop = workshop
        self.all = JOBS
        self.inputs = {}
        self._outputs = {}
        self._logs = {}
        self._locks = {job.name: threading.Lock() for job in JOBS}
        for version in ("a", "b"):
            self.inputs[version] = self._make_inputs(version)

    def _make_inputs(self, version):
        folder = self.workshop.new_folder("inputs-" + version)
        seed = ord(version)

        def do(line):
            run = self.workshop.finish(self.workshop.start(line.split(), folder))
            if run.status != 0:
                raise RuntimeError(f"{run.line}\n{exit_text(run.status)}: {run.text}")

        do(f"vxkit simulate s --stream --size {SIZE} --frames {FRAMES} --seed {seed} --format raw")
        (folder / "s/frame.raw").rename(folder / "rec.raw")
        do(f"vxkit simulate t --scene target --size 64x48 --seed {seed} --format tiff")
        frames = sorted(path.relative_to(folder) for path in (folder / "t").glob("frame-*"))
        do("vxkit convert " + " ".join(map(str, frames)) + " -o burst.tif")
        shutil.copy(folder / "t/truth.tiff", folder / "truth.tif")
        do("vxkit simulate u --scene target --size 64x48 --seed 7 --format tiff")
        shutil.copy(folder / "u/truth.tiff", folder / "other.tif")
        do(f"vxkit convert rec.raw --size {SIZE} --scale 0.01 --offset -273.15 -o degrees.npy")
        do(f"vxkit convert rec.raw --size {SIZE} --double --offset -32768 --type s16 -o stream.raw")
        (folder / "settings.ini").write_text(f"[Main_Window]\nsensor=@Size({SIZE.replace('x', ' ')})\n")
        for name in "stu":
            shutil.rmtree(folder / name)
        return folder

    def words(self, job, version="a"):
        line = job.line.replace("{m_as_seed}", f"--seed {ord(version)}")
        return [word.replace("{m}", str(self.inputs[version])) for word in line.split()]

    def prepare(self, job, folder, version="a", earlier=None):
        """Puts streams and earlier results into a folder; returns its snapshot."""
        if earlier:
            self.undisturbed(job, earlier)
            shutil.copytree(self._outputs[job.name, earlier][1], folder, dirs_exist_ok=True)
        for name in job.streams:
            shutil.copy(self.inputs[version] / name, folder / name)
        return snapshot(folder)

    def undisturbed_folder(self, job):
        self.undisturbed(job)
        return self._outputs[job.name, "a"][1]

    def undisturbed(self, job, version="a"):
        """Snapshot of the results of a run without faults."""
        with self._locks[job.name]:
            if (job.name, version) not in self._outputs:
                folder = self.workshop.new_folder(f"expected-{job.name}-{version}")
                self.prepare(job, folder, version)
                run = self.workshop.finish(self.workshop.start(self.words(job, version), folder))
                if run.status != 0:
                    raise RuntimeError(f"{run.line}\n{exit_text(run.status)}: {run.text}")
                for name in job.streams:
                    (folder / name).unlink()
                self._outputs[job.name, version] = snapshot(folder), folder
            return self._outputs[job.name, version][0]

    def logged(self, bench, job):
        """The shim's log of a run that replaces earlier results, line by line; and the run."""
        with self._locks[job.name]:
            found = self._logs.get(job.name)
        if found:
            return found
        folder = bench.folder()
        log = folder.with_suffix(".log")
        self.prepare(job, folder, earlier="b")
        run = bench.run(self.words(job), folder, shim={"FAULTS_LOG": log})
        bench.expect(run.status == 0, f"{job.name}: did not run", run)
        found = log.read_text().splitlines(), folder, run
        with self._locks[job.name]:
            self._logs[job.name] = found
        return found

    def judge(self, bench, job, before, after, run, *, signals=(), done_anyway=False, named=True, may_fail=True):
        """Holds what a run left to what must be.

        signals      that may have ended it
        done_anyway  a status other than 0 may come with the whole result: it failed behind it
        named        a message names the output
        """
        whole = {**before, **self.undisturbed(job)}
        what = f"{job.name}: "
        bench.expect(not run.hung, what + "hung", run)
        if run.hung:
            return
        ended = run.status in (0, 1, 2) or -run.status in signals
        bench.expect(ended, what + f"ended by {exit_text(run.status)}", run)
        if run.status == 0:
            bench.expect(after == whole, what + "success, but not the result: " + changes(whole, after), run)
            return
        bench.expect(may_fail, what + "should have gone well", run)
        if run.status == -9:
            after = {name: kind for name, kind in after.items() if not TEMPORARY.match(name.split("/")[0])
                     and not any(TEMPORARY.match(part) for part in name.split("/"))}
        if job.parts or (run.status == -9 and job.name in SEQUENCES):
            torn = [name for name in after if after[name] not in (before.get(name), whole.get(name))]
            lost = [name for name in before if name not in after and not name.endswith(LIST)]
            bench.expect(not torn, f"{what}torn or left behind: {', '.join(torn[:5])}", run)
            bench.expect(not lost, f"{what}lost: {', '.join(lost[:5])}", run)
        elif done_anyway or run.status < 0:
            bench.expect(after in (before, whole), what + "neither as before nor done: " + changes(before, after), run)
        else:
            bench.expect(after == before, what + "failed, but not as before: " + changes(before, after), run)
        if named and run.status > 0:
            bench.expect(job.target in run.text, what + f"no message names {job.target}", run)
