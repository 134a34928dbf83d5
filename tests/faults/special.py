# SPDX-License-Identifier: Apache-2.0
"""Pipes, devices and links where files are meant; modes of what is replaced."""

import os
import stat
import subprocess

from jobs import BY_NAME
from runner import case, snapshot

# SPECIAL stands for a pipe or a device; {m} for the folder of inputs.
NO_FILES = [
    "vxkit enhance {m}/degrees.npy --settings SPECIAL -o r.raw",
    "vxkit enhance {m}/degrees.npy --bad-pixels SPECIAL -o r.raw",
    "vxkit convert {m}/degrees.npy --config SPECIAL -o r.npy",
    "vxkit superres {m}/burst.tif --engine reference --radiance SPECIAL -o r.tif",
    "vxkit superres {m}/burst.tif --engine reference --radiance names.txt -o r.tif",
    "vxkit superres {m}/burst.tif --engine reference --trace SPECIAL -o r.tif --force",
    "vxkit filter --cluster {m}/rec.raw --size 48x36 --mean SPECIAL --std-dev SPECIAL -o r.raw",
    "halvor -s SPECIAL {m}/stream.raw",
]


@case("no-regular-file", 9)
def no_regular_file(bench):
    """Where a file is meant, a pipe without a writer and an endless device are refused at once."""
    inputs = bench.jobs.inputs["a"]
    for line in NO_FILES:
        for kind in bench.some(("pipe", "device", "folder")):
            folder = bench.folder()
            name = {"pipe": "pipe.png", "device": "/dev/zero", "folder": "folder.png"}[kind]
            os.mkfifo(folder / "pipe.png")
            (folder / "folder.png").mkdir()
            (folder / "names.txt").write_text(
                f"counts-a = {name}\nradiance-a = 15.0\ncounts-b = {name}\nradiance-b = 35.0\n")
            before = snapshot(folder)
            words = line.replace("{m}", str(inputs)).replace("SPECIAL", name).split()
            run = bench.run(words, folder, patience=20, limits={"as": 2 << 30})
            what = f"{line} with a {kind}: "
            bench.expect(not run.hung, what + "hung", run)
            if run.hung:
                continue
            bench.expect(run.status in (1, 2), what + "not refused", run)
            bench.expect(snapshot(folder) == before, what + "changed something", run)
            bench.expect(name in run.text, what + "not named", run)


@case("pipes-as-outputs", 9)
def pipes_as_outputs(bench):
    """A pipe is written to and stays one."""
    for job, name in ((BY_NAME["raw"], "r.raw"), (BY_NAME["float-tif"], "r.tif"), (BY_NAME["sheet"], "sheet.png")):
        folder = bench.folder()
        os.mkfifo(folder / name, 0o600)
        received = folder.parent / (folder.name + ".received")
        with open(received, "wb") as file:
            reader = subprocess.Popen(["cat", folder / name], stdout=file)
            run = bench.run(bench.jobs.words(job), folder)
            if reader.poll() is None and run.status != 0:
                reader.kill()  # nobody opened the other end
            reader.wait()
        mode = (folder / name).lstat().st_mode
        bench.expect(stat.S_ISFIFO(mode) and stat.S_IMODE(mode) == 0o600, f"{job.name}: no pipe any more", run)
        whole = bench.jobs.undisturbed(job)[name]
        (folder / name).unlink()
        received.rename(folder / name)
        bench.expect(run.status == 0 and snapshot(folder) == {name: whole}, f"{job.name}: not the result", run)


@case("links-and-modes", 9)
def links_and_modes(bench):
    """A result takes the place of the file that a link tells of, and who may read it stays as it was."""
    for job, name in ((BY_NAME["raw"], "r.raw"), (BY_NAME["avi"], "r.avi"), (BY_NAME["sheet"], "sheet.png"),
                      (BY_NAME["superres"], "r.tif"), (BY_NAME["table"], "s.csv")):
        whole = bench.jobs.undisturbed(job)[name]
        for linked in (False, True):
            folder = bench.folder()
            (folder / "store").mkdir()
            real = folder / "store" / "real" if linked else folder / name
            real.write_text("earlier")
            real.chmod(0o604)
            if linked:
                os.symlink("store/real", folder / name)
            run = bench.run(bench.jobs.words(job), folder)
            found = snapshot(folder)
            told = str(real.relative_to(folder))
            bench.expect(run.status == 0 and found.get(told) == whole, f"{job.name}: not the result", run)
            bench.expect(stat.S_IMODE(real.stat().st_mode) == 0o604, f"{job.name}: another mode", run)
            if linked:
                bench.expect((folder / name).is_symlink(), f"{job.name}: the link is gone", run)


@case("modes-of-new-files", 9)
def modes_of_new_files(bench):
    """A temporary file is private, the result is as readable as any other."""
    umask = os.umask(0)
    os.umask(umask)
    for job in bench.jobs.all:
        for path in bench.jobs.undisturbed_folder(job).rglob("*"):
            wanted = (0o777 if path.is_dir() else 0o666) & ~umask
            mode = stat.S_IMODE(path.stat().st_mode)
            bench.expect(mode == wanted, f"{job.name}: {path.name} has {mode:o}")
