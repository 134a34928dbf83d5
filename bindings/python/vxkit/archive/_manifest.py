# SPDX-License-Identifier: Apache-2.0
"""What an output folder knows of itself: one record per recording, the lock of a run, and which run is the newest.

::

    FOLDER/NAME.npy                     a result
    FOLDER/manifest/records/NAME.json   what is known of it
    FOLDER/manifest/partial/            files that are not whole yet
    FOLDER/manifest/parts/              finished windows of recordings that are not finished
    FOLDER/manifest/lock, run           one run at a time, and which one

A record is written by the worker that finished the recording, just before the result takes its name. It holds the
result's checksum, so that a record without its result, or beside an older one, is recognised: nothing else has to be
undone after a crash.
"""

import contextlib
import errno
import fcntl
import json
import os
import secrets
import shutil
from pathlib import Path

from . import _files

FOLDER = "manifest"


class FolderInUse(Exception):
    """Another run works on the output folder."""


class Manifest:
    """The records of an output folder."""

    def __init__(self, output):
        self.output = Path(output)
        self.folder = self.output / FOLDER
        self.records = self.folder / "records"
        self.partial = self.folder / "partial"
        self.parts = self.folder / "parts"

    def load(self, name):
        """The record of a recording; None where there is none, and an empty one where it can't be read."""
        try:
            record = json.loads((self.records / f"{name}.json").read_text(encoding="utf-8"))
        except FileNotFoundError:
            return None
        except ValueError:
            return {}
        return record if isinstance(record, dict) else {}

    def store(self, name, record):
        text = json.dumps(record, indent=1) + "\n"
        _files.replace_text(self.records / f"{name}.json", text, self.partial)

    def names(self):
        """Names of all recordings that have a record."""
        found = (path.relative_to(self.records).as_posix() for path in self.records.rglob("*.json"))
        return sorted(name.removesuffix(".json") for name in found)

    @contextlib.contextmanager
    def locked(self):
        """Holds the folder for one run. The system lets go of it when the process ends, however it does.

        Raises
        ------
        FolderInUse
            Another run holds it.
        """
        self.folder.mkdir(parents=True, exist_ok=True)
        with open(self.folder / "lock", "a", encoding="utf-8") as file:
            try:
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError as error:
                raise FolderInUse(f"{self.output}: another run works on this folder") from error
            yield

    def begin_run(self):
        """Makes this the newest run and clears what others left half-way; returns its name."""
        run = secrets.token_hex(8)
        # A worker of a client that was killed may still be at work: from now on it can't commit any more.
        _files.replace_text(self.folder / "run", run, self.partial)
        self.clear()
        return run

    def clear(self):
        """Removes what killed workers left half-way. Only who holds the folder may."""
        shutil.rmtree(self.partial, ignore_errors=True)

    def is_newest(self, run):
        with contextlib.suppress(FileNotFoundError):
            return (self.folder / "run").read_text(encoding="utf-8") == run
        return False


def commit(manifest, run, name, new, result, record):
    """Gives a finished file its final name and writes its record.

    Two workers may finish the same recording: the bytes are the same, and one of them commits.

    Parameters
    ----------
    new : path
        The finished file, on the disk; it is gone afterwards.
    result : path
        Where it goes. A file that is already there is replaced only if the manifest knows it.
    record : dict
        With ``record["result"]``, identity and checksum of the new file.

    Returns
    -------
    bool
        False if the same result had been committed before.
    """
    if not manifest.is_newest(run):
        os.unlink(new)
        raise _files.RecordingError("a newer run works on the output folder")
    former = manifest.load(name)
    known = (former or {}).get("result") or {}
    is_whole = bool(known) and _files.is_same(result, known)
    if is_whole and is_repeat(former, record) and _files.checksum(result) == known.get("xxh128"):
        os.unlink(new)
        return False
    require_ours(result, former)
    commits = former.get("commits", 0) if former else 0
    record = {**record, "commits": commits + 1 if is_whole or not known else commits}
    result.parent.mkdir(parents=True, exist_ok=True)
    manifest.store(name, record)
    if former is not None:
        os.replace(new, result)
        return True
    return link_first(new, result, record["result"])


def link_first(new, result, known):
    """Gives a file a name that none has yet, or has by another worker since a moment ago."""
    try:
        os.link(new, result)
    except FileExistsError:
        if not _files.is_same(result, known):
            raise _files.RecordingError(foreign(result)) from None
        return False
    except OSError as error:
        if error.errno not in (errno.EPERM, errno.EOPNOTSUPP):
            raise
        os.rename(new, result)  # a file system without links
        return True
    finally:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(new)
    return True


def is_repeat(former, record):
    """Whether two records speak of the same work with the same outcome."""
    same = all(former.get(part) == record[part] for part in ("state", "key", "split"))
    return same and all(former[part].get("xxh128") == record[part]["xxh128"] for part in ("input", "result"))


def require_ours(result, former):
    if former is None and os.path.lexists(result):
        raise _files.RecordingError(foreign(result))


def foreign(result):
    return f"{result}: exists and is not in the manifest; it is left alone"
