# SPDX-License-Identifier: Apache-2.0
"""--force replaces results, never an input, however it is spelled; and no output takes another's place."""

import os
import pathlib
import shutil

from jobs import SIZE
from runner import case, changes, snapshot

# Line, and the file in it that is input and, as OUT, output.
INPUTS = [
    ("vxkit convert rec.npy -o OUT", "rec.npy"),
    ("vxkit convert one.csv -o OUT", "one.csv"),
    ("vxkit enhance rec.npy --settings s.raw -o OUT", "s.raw"),
    ("vxkit enhance rec.npy --bad-pixels map.png --contact-sheet OUT", "map.png"),
    ("vxkit enhance rec.npy --bad-pixels map.png -o o.raw --write-bad-pixels OUT", "map.png"),
    ("vxkit enhance rec.npy --frames 0:1 --bad-pixels map.png -o OUT", "map.png"),
    ("vxkit enhance one.png --contact-sheet OUT", "one.png"),
    ("vxkit convert rec.npy --config c.raw -o OUT", "c.raw"),
    ("vxkit superres burst.tif --engine reference --radiance cal.tif -o OUT", "cal.tif"),
    ("vxkit superres burst.tif --engine reference --radiance cal.txt -o OUT", "cold.tif"),
    ("vxkit superres burst.tif --engine reference --radiance cal.txt -o o.tif --quality-map OUT", "hot.tif"),
    ("vxkit superres burst.tif -o o.tif --trace OUT", "burst.tif"),
    ("vxkit superres shot-0.png shot-1.png shot-2.png shot-3.png shot-4.png --preview OUT", "shot-2.png"),
    ("vxkit superres burst.tif --motion local -o o.tif --confidence OUT", "burst.tif"),
    ("vxkit filter --cluster rec.npy --uniform u.npy -o OUT", "u.npy"),
    ("vxkit filter --cluster rec.npy --mean mean.tif --std-dev dev.tif -o OUT", "mean.tif"),
    ("vxkit filter --cluster rec.npy --mean mean.tif --std-dev dev.tif -o o.raw --damping OUT", "dev.tif"),
    ("vxkit filter --spatial rec.npy --bad-pixels map.png -o o.raw --write-bad-pixels OUT", "map.png"),
    ("vxkit compare one.png two.png --picture OUT", "one.png"),
    ("vxkit compare one.png two.png --picture OUT", "two.png"),
    ("vxkit compare one.png two.png --bicubic small.png --picture OUT", "small.png"),
    ("vxkit show one.png rec.npy -o OUT", "one.png"),
    ("vxkit show one.csv --csv OUT", "one.csv"),
]

# Lines whose outputs are one file.
TWICE = [
    "vxkit superres burst.tif -o s.png --preview ./s.png",
    "vxkit superres burst.tif -o s.png --preview twin/s.png",
    "vxkit superres burst.tif -o old.png --preview link.png",
    "vxkit superres burst.tif -o o.tif --trace ./o.tif",
    "vxkit superres burst.tif --engine reference -o o.tif --preview q.png --quality-map twin/q.png",
    "vxkit superres burst.tif --motion local -o o.tif --confidence twin/o.tif",
    "vxkit enhance rec.npy -o o.png --contact-sheet ./o-0003.png",
    "vxkit enhance rec.npy -o o.png --write-bad-pixels twin/o-0000.png",
    "vxkit enhance rec.npy --contact-sheet c.png --write-bad-pixels ./c.png",
    "vxkit filter --cluster rec.npy -o d.tif --damping twin/d.tif",
]


def material(bench):
    """A folder with every kind of input, and `twin`, a link to itself."""
    folder = bench.folder()
    inputs = bench.jobs.inputs["a"]
    shutil.copy(inputs / "burst.tif", folder)
    (folder / "s.raw").write_text("[TNR_Parameter]\nalpha=50\n")
    (folder / "c.raw").write_text("[convert]\nframes=0:2\n")
    calibration = "counts-a = cold.tif\nradiance-a = 15.0\ncounts-b = hot.tif\nradiance-b = 35.0\n"
    for name in ("cal.tif", "cal.txt"):
        (folder / name).write_text(calibration)
    for line in (f"convert {inputs}/rec.raw --size {SIZE} -o rec.npy",
                 "convert rec.npy --frames 0:1 -o one.csv", "convert rec.npy --frames 0:1 -o one.png",
                 "convert rec.npy --frames 1:1 -o two.png",
                 "convert rec.npy --frames 0:1 --average 2 --type u16 --round -o small.png",
                 "enhance rec.npy -o o.raw --write-bad-pixels map.png",
                 "convert burst.tif --frames 0:1 --type u16 --round -o cold.tif",
                 "convert burst.tif --frames 0:1 --offset 100 --type u16 --round -o hot.tif",
                 "convert burst.tif --type u16 --round -o shot.png",
                 "convert rec.npy --frames 0:1 --type f32 -o mean.tif",
                 "convert rec.npy --frames 0:1 --scale 0 --offset 1 --type f32 -o dev.tif"):
        run = bench.run(["vxkit", *line.split()], folder)
        bench.expect(run.status == 0, "inputs could not be made", run)
    for path in folder.glob("shot-000*"):
        path.rename(path.with_name(path.name.replace("-000", "-")))
    shutil.copy(folder / "rec.npy", folder / "u.npy")
    (folder / "o.raw").unlink()
    for manifest in folder.glob("*.sha256"):
        manifest.unlink()
    os.symlink(".", folder / "twin")
    shutil.copy(folder / "one.png", folder / "old.png")
    os.symlink("old.png", folder / "link.png")
    return folder


def spellings(folder, name):
    """The same file by other names."""
    ending = pathlib.Path(name).suffix
    for link, make in (("soft", os.symlink), ("hard", os.link)):
        (folder / (link + ending)).unlink(missing_ok=True)
        make(folder / name, folder / (link + ending))
    return [name, "./" + name, str(folder / name), "twin/../" + folder.name + "/" + name, "twin/" + name,
            "soft" + ending, "hard" + ending]


@case("force-onto-inputs", 6)
def force_onto_inputs(bench):
    folder = material(bench)
    for line, name in INPUTS:
        names = spellings(folder, name)
        for spelling in names if bench.is_thorough else bench.random.sample(names, 2):
            before = snapshot(folder)
            run = bench.run([*line.replace("OUT", spelling).split(), "--force"], folder)
            after = snapshot(folder)
            bench.expect(run.status == 2, f"{line} with OUT {spelling}: not refused", run)
            bench.expect(after == before, f"{line} with OUT {spelling}: {changes(before, after)}", run)
            bench.expect(pathlib.Path(spelling).name in run.error, f"{line} with OUT {spelling}: not named", run)
            if after != before:
                folder = material(bench)
                spellings(folder, name)


@case("force-onto-numbered-inputs", 6)
def force_onto_numbered_inputs(bench):
    folder = material(bench)
    frames = [f"o-000{number}.png" for number in range(3)]
    for number, name in enumerate(frames):
        shutil.copy(folder / f"shot-{number}.png", folder / name)
    for output in ("o.png", "./o.png", "twin/o.png"):
        before = snapshot(folder)
        run = bench.run(["vxkit", "convert", *frames, "-o", output, "--force"], folder)
        bench.expect(run.status == 2 and snapshot(folder) == before, f"numbered inputs, -o {output}", run)
    (folder / "frames").mkdir()
    for number, name in enumerate(frames):
        os.link(folder / f"shot-{number}.png", folder / "frames" / name)
    before = snapshot(folder)
    words = [f"shot-{number}.png" for number in range(3)]
    run = bench.run(["vxkit", "convert", *words, "-o", "frames/o.png", "--force"], folder)
    bench.expect(run.status == 2 and snapshot(folder) == before, "numbered inputs by other names", run)


@case("outputs-that-are-one", 6)
def outputs_that_are_one(bench):
    folder = material(bench)
    before = snapshot(folder)
    for line in TWICE:
        run = bench.run([*line.split(), "--force"], folder)
        after = snapshot(folder)
        bench.expect(run.status == 2, f"{line}: not refused", run)
        bench.expect(after == before, f"{line}: {changes(before, after)}", run)
        if after != before:
            folder = material(bench)
            before = snapshot(folder)


@case("halvor-onto-inputs", 6)
def halvor_onto_inputs(bench):
    """The result's name may be that of the settings or, through a link, of the stream."""
    output = next(iter(bench.jobs.undisturbed(next(job for job in bench.jobs.all if job.name == "halvor"))))
    inputs = bench.jobs.inputs["a"]
    for kind in ("settings", "soft", "hard"):
        folder = bench.folder()
        shutil.copy(inputs / "stream.raw", folder)
        settings = folder / output if kind == "settings" else folder / "settings.ini"
        shutil.copy(inputs / "settings.ini", settings)
        if kind == "soft":
            os.symlink("stream.raw", folder / output)
        if kind == "hard":
            os.link(folder / "stream.raw", folder / output)
        before = snapshot(folder)
        run = bench.run(["halvor", "-s", settings.name, "stream.raw"], folder)
        after = snapshot(folder)
        bench.expect(run.status == 1 and after == before, f"{kind}: {changes(before, after)}", run)


@case("without-force", 6)
def without_force(bench):
    """Nothing that exists is replaced unasked."""
    for job in bench.some(bench.jobs.all):
        if "--force" not in job.line:
            continue  # halvor always replaces its result
        folder = bench.folder()
        before = bench.jobs.prepare(job, folder, earlier="b")
        words = [word for word in bench.jobs.words(job) if word != "--force"]
        run = bench.run(words, folder)
        bench.expect(run.status == 2 and snapshot(folder) == before, f"{job.name} without --force", run)


@case("many-names", 7)
def many_names(bench):
    """Names are compared by a set: twice the files are twice the look-ups, not four times."""
    looks = {}
    for count in (100, 200):
        folder = bench.folder()
        frame = material_frame(bench)
        names = [f"in-{number:04d}.png" for number in range(count)]
        for name in names:
            shutil.copy(frame, folder / name)
        log = folder.parent / (folder.name + ".log")
        run = bench.run(["vxkit", "convert", *names, "-o", "out.png"], folder, shim={"FAULTS_LOG": log})
        bench.expect(run.status == 0, f"{count} files", run)
        looks[count] = sum(line.startswith("look ") for line in log.read_text().splitlines())
    bench.expect(looks[200] < 3 * looks[100], f"look-ups for 100 and 200 files: {looks[100]} and {looks[200]}")


def material_frame(bench):
    folder = bench.folder()
    run = bench.run(["vxkit", "convert", str(bench.jobs.inputs["a"] / "burst.tif"), "--frames", "0:1", "--type", "u16",
                     "--round", "-o", "frame.png"], folder)
    bench.expect(run.status == 0, "no frame", run)
    return folder / "frame.png"
