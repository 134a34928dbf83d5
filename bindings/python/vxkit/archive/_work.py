# SPDX-License-Identifier: Apache-2.0
"""What workers do: a recording, a window of a long one, the windows put together.

Everything here runs on a worker, knows nothing of the cluster, and answers with a small dictionary: the state of a
recording (``done``, ``kept``, ``failed``, ``split``) and what people want to read of it.
"""

import contextlib
import datetime
import json
import os
import shutil
import socket
import threading
import time
from pathlib import Path
from typing import NamedTuple, Optional

import numpy as np

from . import _files, _manifest, _operations

# A worker has two threads: while one computes, the other reads, hashes and waits for the disk.
_computing = threading.Lock()


class Job(NamedTuple):
    """What is the same for all recordings of a run."""

    output: str
    run: str
    operation: str
    settings: dict  # of the operation
    files: dict  # checksums of the files that the settings name
    reading: dict  # how headerless recordings are read
    window: Optional[int]  # frames of a task; None for whole recordings
    warmup: int  # frames ahead of a window from which the blocks learn
    suffix: str  # of results, which names their format
    version: str
    key: str  # of all that the results of whole recordings depend on

    def split(self, frames):
        """What the result of a recording of some frames owes to the split; None for nothing."""
        if self.operation != "enhance" or self.window is None or frames <= self.window:
            return None
        return {"window": self.window, "warmup": self.warmup}

    def result(self, name):
        return Path(self.output, name + self.suffix)


def key_of(*work):
    """The same text for the same work, and no other."""
    return _files.short_hash(work)


def is_current(job, record):
    """Whether a record speaks of what this job would make, as far as can be told without its input."""
    return (
        record.get("state") == "done"
        and record.get("key") == job.key
        and record.get("split") == job.split(record["input"]["frames"])
    )


def answer(state, name, **more):
    return {"state": state, "name": name, "worker": f"{socket.gethostname()}:{os.getpid()}", **more}


def reported(task):
    """Lets a task answer with its reason where it fails, so that the failure of one recording ends nothing else."""

    def run(job, item, *rest):
        try:
            check_version(job)
            return task(job, item, *rest)
        except Exception as error:  # noqa: BLE001: whatever it is, it is the recording's and is listed
            return answer("failed", item.name, reason=record_failure(job, item, reason_of(error)))

    run.__name__ = run.__qualname__ = task.__name__
    run.__module__ = task.__module__
    return run


def reason_of(error):
    if isinstance(error, OSError) and error.filename is not None:
        return f"{_files.for_people(os.fspath(error.filename))}: {error.strerror}"
    if isinstance(error, (_files.RecordingError, ValueError, OSError, _operations.Error)) and str(error):
        return str(error)
    return f"{type(error).__name__}: {error}"


def check_version(job):
    found = _operations.version()
    if found != job.version:
        raise _files.RecordingError(f"this worker has vxkit {found}; expected {job.version}")


def record_failure(job, item, reason):
    """Writes the reason into the manifest; what it knows of an older result stays there."""
    manifest = _manifest.Manifest(job.output)
    with contextlib.suppress(OSError):
        former = manifest.load(item.name)
        if manifest.is_newest(job.run) and (former is not None or not os.path.lexists(job.result(item.name))):
            kept = {part: former[part] for part in ("result", "commits") if former and part in former}
            manifest.store(item.name, {**about(job, item), "state": "failed", "reason": reason, **kept})
    return reason


def about(job, item):
    return {
        "recording": item.name,
        "operation": job.operation,
        "settings": job.settings,
        "files": job.files,
        "reading": job.reading,
        "version": job.version,
        "key": job.key,
        "finished": datetime.datetime.now(datetime.timezone.utc).isoformat(timespec="seconds"),
    }


def taken(path):
    """Identity and checksum of an input."""
    before = _files.identity(path)
    return {"path": path, **before, "xxh128": _files.checksum(path)}


def require_unchanged(source):
    if _files.identity(source["path"]) != {part: source[part] for part in ("bytes", "mtime_ns")}:
        raise _files.RecordingError("changed while it was read")


@reported
def recording(job, item, verify):
    """Finishes a recording, or plans the windows of a long one."""
    started = time.monotonic()
    manifest = _manifest.Manifest(job.output)
    source = taken(item.path)
    former = manifest.load(item.name)
    if former and refreshed(job, item, former, source, verify):
        return answer("kept", item.name)
    _manifest.require_ours(job.result(item.name), former)
    with _computing:
        opened = _operations.open_recording(item.path, job.reading)
        total = len(opened)
        units = _operations.units(job.operation, job.settings, total)
        size = units if job.window is None else max(1, job.window // _operations.step(job.operation, job.settings))
        source["frames"] = total
        if units > size:
            return answer("split", item.name, plan=plan(job, opened, source, units, size))
        new, made = write(job, _operations.whole(job.operation, job.settings, opened), job.suffix)
    return finish(job, item, source, new, made, started)


def refreshed(job, item, former, source, verify):
    """Whether a result is what this job would make; then its record takes the files' new times."""
    result = job.result(item.name)
    if not is_current(job, former) or former["input"].get("xxh128") != source["xxh128"]:
        return False
    known = former["result"]
    if not (_files.is_same(result, known) and (not verify or _files.checksum(result) == known.get("xxh128"))):
        return False
    current = {**former, "input": {**former["input"], **source}, "result": {**known, **_files.identity(result)}}
    if current != former:
        _manifest.Manifest(job.output).store(item.name, current)
    return True


def plan(job, opened, source, units, size):
    return {
        "source": source,
        "windows": [(first, min(units, first + size)) for first in range(0, units, size)],
        "facts": _operations.facts(job.operation, job.settings, opened),
    }


def part_of(job, item, plan, index):
    """Name of a finished window: another for other input, settings or split."""
    work = [job.key, job.window, job.warmup, plan["source"]["xxh128"], plan["windows"][index]]
    return _manifest.Manifest(job.output).parts / item.name / f"{index:06}-{_files.short_hash(work)}.npy"


def notes_of(part):
    return part.with_suffix(".json")


@reported
def window(job, item, plan, index):
    """Makes a window of a recording, unless it is there already."""
    part = part_of(job, item, plan, index)
    if not part.exists():
        with _computing:
            where = (item.path, job.reading, plan["windows"][index], plan["source"]["frames"])
            frames = _operations.window(job.operation, job.settings, *where, plan["facts"], job.warmup)
            new, made = write(job, frames, ".npy")
        require_unchanged(plan["source"])
        _files.replace_text(notes_of(part), _files.as_line(made["notes"]), _manifest.Manifest(job.output).partial)
        os.replace(new, part)
    return answer("window", item.name)


@reported
def assemble(job, item, plan, started, windows):
    """Puts the windows of a recording together in their order."""
    for made in windows:
        if made["state"] == "failed":
            raise _files.RecordingError(made["reason"])
    parts = [part_of(job, item, plan, index) for index in range(len(plan["windows"]))]
    arrays = [np.load(part, mmap_mode="r") for part in parts]
    shape = (sum(len(array) for array in arrays), *arrays[0].shape[1:])
    notes = [note for part in parts for note in json.loads(notes_of(part).read_text(encoding="utf-8"))]
    frames = (frame for array in arrays for frame in array)
    new, made = write(job, _operations.Frames(shape, arrays[0].dtype, frames, notes), job.suffix)
    done = finish(job, item, plan["source"], new, made, None, seconds=time.time() - started)
    shutil.rmtree(parts[0].parent, ignore_errors=True)
    return done


def write(job, frames, suffix):
    """Writes frames one by one to a temporary file; returns its path and what the record tells of it."""
    partial = _manifest.Manifest(job.output).partial
    new = _files.temporary(partial, suffix)
    try:
        with _operations.heard(frames.notes):
            digest = write_npy(new, frames) if suffix == ".npy" else write_other(new, frames)
    except BaseException:
        new.unlink(missing_ok=True)
        raise
    kind = {"shape": list(frames.shape), "type": np.dtype(frames.dtype).name}
    return new, {**kind, "notes": frames.notes, "xxh128": digest}


def write_npy(path, frames):
    with contextlib.closing(_files.NpyWriter(path, frames.shape, frames.dtype)) as file:
        for frame in frames.all:
            file.add(frame)
        return file.finish()


def write_other(path, frames):
    _operations.write(path, frames)
    _files.sync_file(path)
    return _files.checksum(path)


def finish(job, item, source, new, made, started, seconds=None):
    """Commits a finished result."""
    result = job.result(item.name)
    seconds = time.monotonic() - started if seconds is None else seconds
    try:
        require_unchanged(source)
        record = {
            **about(job, item),
            "state": "done",
            "split": job.split(source["frames"]),
            "input": source,
            "result": {"path": result.relative_to(job.output).as_posix(), **made, **_files.identity(new)},
            "seconds": round(seconds, 3),
        }
        committed = _manifest.commit(_manifest.Manifest(job.output), job.run, item.name, new, result, record)
    finally:
        new.unlink(missing_ok=True)
    return answer("done" if committed else "kept", item.name, frames=source["frames"])
