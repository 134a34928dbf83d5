# SPDX-License-Identifier: Apache-2.0
"""Little memory, and small files that ask for much of it."""

import struct
import zlib

from jobs import BY_NAME, QUICK
from runner import case, rounds, snapshot

MIB = 1024  # KiB
BOUND = 400 * MIB  # of any run here: decoded frames of 256 MiB are kept, the libraries take 75
GUARD = {"as": 4 << 30}  # keeps a failing program from taking the machine along


def tiff(path, pages, side, loop=False):
    """Pages of one compressed picture that all share, the last of which leads back to the first if asked."""
    data = zlib.compress(bytes(2 * side * side), 9)
    entries = [(256, 3, 1, side), (257, 3, 1, side), (258, 3, 1, 16), (259, 3, 1, 8), (262, 3, 1, 1),
               (273, 4, 1, 8), (277, 3, 1, 1), (278, 3, 1, side), (279, 4, 1, len(data))]
    start = 8 + len(data) + len(data) % 2
    size = 2 + 12 * len(entries) + 4
    parts = [b"II*\0" + struct.pack("<I", start), data, bytes(len(data) % 2)]
    for page in range(pages):
        following = start + (page + 1) * size
        if page == pages - 1:
            following = start if loop else 0
        parts.append(struct.pack("<H", len(entries)))
        parts += [struct.pack("<HHII", *entry) for entry in entries]
        parts.append(struct.pack("<I", following))
    path.write_bytes(b"".join(parts))


@case("many-pages", 8)
def many_pages(bench):
    """A small file of large pages: memory follows the frames asked for, not those that there are."""
    folder = bench.folder()
    tiff(folder / "bomb.tif", 400, 1000)
    for line in ("convert bomb.tif --frames 0:1 -o one.npy", "convert bomb.tif --frames 399:1 -o last.npy",
                 "show bomb.tif -o s.png", "info bomb.tif --frames 0:2", "diff bomb.tif bomb.tif --frames 0:1",
                 "convert bomb.tif --frames 0:200 -o r.tif", "convert bomb.tif --frames 0:100 -o r.raw"):
        run = bench.run(["vxkit", *line.split()], folder, limits=GUARD)
        bench.expect(run.status == 0, line, run)
        bench.expect(run.peak < BOUND, f"{line}: {run.peak // MIB} MiB", run)


@case("pages-in-a-loop", 8)
def pages_in_a_loop(bench):
    """Pages that lead back to earlier ones end, with a message or with each page once."""
    for pages in (1, 2, 500):
        folder = bench.folder()
        tiff(folder / "loop.tif", pages, 16, loop=True)
        run = bench.run(["vxkit", "convert", "loop.tif", "-o", "r.npy"], folder, limits=GUARD, patience=20)
        bench.expect(run.status in (0, 2), f"a loop of {pages} pages", run)
        bench.expect(run.status != 2 or "loop.tif" in run.error, "the file is not named", run)
        bench.expect(run.peak < BOUND, f"a loop of {pages} pages: {run.peak // MIB} MiB", run)


@case("many-small-frames", 8)
def many_small_frames(bench):
    """Frames of one pixel: what is kept for each frame counts."""
    folder = bench.folder()
    with open(folder / "sparse.raw", "wb") as file:
        file.truncate(256 << 20)
    for line in ("convert sparse.raw --size 1x1 --frames 0:2 -o r.npy", "info sparse.raw --size 1x1 --frames 5:3"):
        run = bench.run(["vxkit", *line.split()], folder, limits=GUARD)
        bench.expect(run.status == 0, line, run)
        bench.expect(run.peak < BOUND, f"{line}: {run.peak // MIB} MiB", run)


@case("allocation-fails-in-tiff", 10)
def allocation_fails_in_tiff(bench):
    """The TIFF library calls back into the program, and no exception may pass it."""
    for name in ("float-tif", "superres"):
        for place in range(1, 60, 6):
            fail_allocation(bench, BY_NAME[name], place)


@rounds("allocation-fails", 10)
def allocation_fails(bench):
    fail_allocation(bench, bench.random.choice(QUICK), bench.random.randint(1, 200))


def fail_allocation(bench, job, place):
    """From this large allocation on none succeeds."""
    folder = bench.folder()
    before = bench.jobs.prepare(job, folder, earlier="b")
    run = bench.run(bench.jobs.words(job), folder, shim={"FAULTS_AT": f"alloc:{place}:e12"})
    if run.status == 127:  # the loader's
        bench.expect(snapshot(folder) == before, f"{job.name}: changed something without having begun", run)
        return
    bench.jobs.judge(bench, job, before, snapshot(folder), run, done_anyway=True, named=False)
    bench.expect(run.status == 0 or run.text.strip(), f"{job.name}: no message", run)


@rounds("memory-limit", 10)
def memory_limit(bench):
    """A limit of addresses: anything between too little for the libraries and enough."""
    job = bench.random.choice(QUICK)
    folder = bench.folder()
    before = bench.jobs.prepare(job, folder, earlier="b")
    limits = {"as": bench.random.randint(100, 500) << 20}
    run = bench.run(bench.jobs.words(job), folder, limits=limits)
    if run.status == 127:
        bench.expect(snapshot(folder) == before, f"{job.name}: changed something without having begun", run)
        return
    bench.jobs.judge(bench, job, before, snapshot(folder), run, done_anyway=True, named=False)
