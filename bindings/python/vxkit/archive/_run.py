# SPDX-License-Identifier: Apache-2.0
"""A run over an archive, as the client sees it."""

import collections
import dataclasses
import os
import time

from distributed import as_completed
from distributed.scheduler import KilledWorker

from . import _cluster, _files, _manifest, _names, _operations, _work
from ._progress import Progress

# Enough to keep a thousand workers busy, and little to hold for any number of recordings.
MOST_AT_ONCE = 4000


class ArchiveError(Exception):
    """The run could not go on; what was finished stays finished."""


@dataclasses.dataclass
class Summary:
    """What a run did.

    Attributes
    ----------
    done : int
        Recordings whose results were made.
    kept : int
        Recordings whose results were there already.
    failed : dict
        Reasons by the names of the recordings that failed.
    frames : int
        Frames of the recordings that were done.
    seconds : float
        How long it took.
    """

    done: int = 0
    kept: int = 0
    failed: dict = dataclasses.field(default_factory=dict)
    frames: int = 0
    seconds: float = 0.0

    def __str__(self):
        text = f"{self.done} done ({self.frames} frames), {self.kept} kept, {len(self.failed)} failed in {self.seconds:.1f} s"
        return text + "".join(f"\n  {_files.for_people(name)}: {reason}" for name, reason in sorted(self.failed.items()))


def run(
    inputs,
    output,
    *,
    operation="enhance",
    settings=None,
    reading=None,
    pattern=None,
    root=None,
    suffix=".npy",
    window=None,
    warmup=1000,
    verify=False,
    client=None,
    scheduler=None,
    workers=None,
    memory_limit="2GB",
    progress=None,
):
    """Enhances or super-resolves every recording of an archive, on one machine or many.

    A result that is in the output folder already is kept if its input, the settings and the version are what they
    were. A recording that fails is listed and doesn't end the run. Ended half-way, by whatever it is, the same call
    goes on where it was.

    Parameters
    ----------
    inputs : path or sequence of paths
        Recordings, and folders of them.
    output : path
        Folder for the results, NAME + suffix each, and their manifest. All workers must see it, and the
        inputs, under the same paths.
    operation : {"enhance", "superres"}
        ``enhance`` gives a frame of 16-bit counts for each frame, as ``vxkit.enhance`` does; ``superres`` one
        image of 32-bit floats and twice the size for each burst.
    settings : dict, optional
        Of ``vxkit.enhance`` or ``vxkit.superres``. For ``superres`` also ``window``, the frames of a burst (5), and
        ``step``, the frames from one burst to the next (so many that bursts don't overlap).
    reading : dict, optional
        What ``vxkit.read`` has to know of headerless recordings: ``{"size": (160, 120)}``.
    pattern : str, optional
        Which files of folders to take, for example ``"*.raw"``.
    root : path, optional
        Folder from which on files that are named themselves are known; by their last part if nothing is said.
    suffix : str
        Ending of the results, which names their format.
    window : int, optional
        Cuts recordings of more frames than this into tasks of this many. Enhanced frames then differ from those of
        the whole recording by what the blocks have not learned within `warmup`; super-resolved ones don't.
    warmup : int
        Frames ahead of each window that its blocks learn from.
    verify : bool
        Reads inputs and results that are known and compares their checksums, in place of size and time alone.
    client : distributed.Client, optional
    scheduler : str, optional
        A cluster that is there, or the address of its scheduler; without them one is started on this machine.
    workers : int, optional
        Processes of the cluster that is started; as many as the machine has processors if nothing is said.
    memory_limit : str or int
        Of each of these processes.
    progress : bool or text stream, optional
        Where to tell of progress and failures: True for the standard error stream; nowhere if nothing is said.

    Returns
    -------
    Summary

    Raises
    ------
    ValueError
        Inputs, settings or output don't fit; nothing was done.
    FolderInUse
        Another run works on the output folder.
    ArchiveError
        The cluster went away.
    """
    started = time.monotonic()
    inputs = [inputs] if isinstance(inputs, (str, os.PathLike)) else list(inputs)
    items = _names.find(inputs, output, pattern, root)
    manifest = _manifest.Manifest(os.path.abspath(output))
    reading = dict(reading or {})
    settings, files = _operations.checked(operation, settings or {}, reading, suffix)
    check_window(window, warmup)
    with manifest.locked():
        version = _operations.version()
        job = _work.Job(
            output=str(manifest.output),
            run=manifest.begin_run(),
            operation=operation,
            settings=settings,
            files=files,
            reading=reading,
            window=window,
            warmup=warmup,
            suffix=suffix,
            version=version,
            key=_work.key_of(operation, settings, files, reading, suffix, version),
        )
        summary = Summary()
        waiting = [item for item in items if verify or not is_finished(manifest, job, item)]
        summary.kept = len(items) - len(waiting)
        if waiting:
            with _cluster.connected(client, scheduler, workers, memory_limit) as connected:
                Run(connected, manifest, job, verify, summary, told(progress, len(waiting))).work(waiting)
            manifest.clear()
    summary.seconds = time.monotonic() - started
    return summary


def check_window(window, warmup):
    if window is not None and window < 1:
        raise ValueError(f"window {window}: expected at least 1 frame")
    if warmup < 0:
        raise ValueError(f"warmup {warmup}: expected 0 frames or more")


def told(progress, total):
    if not progress:
        return None
    return Progress(total, None if progress is True else progress)


def is_finished(manifest, job, item):
    """Whether a recording's input and result look as the manifest knows them; nothing of them is read."""
    record = manifest.load(item.name)
    if not record or not _work.is_current(job, record):
        return False
    try:
        return all(
            _files.identity(path) == {part: known[part] for part in ("bytes", "mtime_ns")}
            for path, known in ((item.path, record["input"]), (job.result(item.name), record["result"]))
        )
    except (OSError, KeyError):
        return False


class Run:
    """Hands tasks to the cluster and takes their answers."""

    def __init__(self, client, manifest, job, verify, summary, progress):
        self._client = client
        self._manifest = manifest
        self._job = job
        self._verify = verify
        self._summary = summary
        self._progress = progress
        self._items = {}  # by key of the task that finishes them
        self._submitted = 0
        self._suspects = []

    def work(self, waiting):
        if self._progress:
            link = _cluster.dashboard(self._client)
            self._progress.say(f"{len(waiting)} recordings to do" + (f"; dashboard: {link}" if link else ""))
        self._pump(waiting, MOST_AT_ONCE)
        # Whoever kills a worker takes along what else it had. Alone, each shows whose fault it was.
        suspects, self._suspects = self._suspects, None
        self._pump(suspects, 1)
        if self._progress:
            self._progress.finish()

    def _pump(self, waiting, most):
        waiting = collections.deque(waiting)
        running = as_completed(loop=self._client.loop)
        while waiting or self._items:
            while waiting and len(self._items) < most:
                item = waiting.popleft()
                self._await(running, item, self._submit(_work.recording, item, self._verify))
            future = next(running)
            self._take(running, self._items.pop(future.key), future)

    def _submit(self, task, item, *rest, priority=0):
        # The dashboard groups tasks by what stands ahead of the number.
        self._submitted += 1
        name = self._job.operation if task is _work.recording else task.__name__
        key = f"{name}-{self._submitted}-{_files.for_people(item.name)}-{self._job.run}"
        return self._client.submit(task, self._job, item, *rest, key=key, pure=False, priority=priority)

    def _await(self, running, item, future):
        self._items[future.key] = item
        running.add(future)

    def _take(self, running, item, future):
        if future.status == "cancelled":
            raise ArchiveError("the cluster went away; the same call goes on where it was")
        if future.status == "error":
            self._blame(item, future.exception())
            return
        answer = future.result()
        if answer["state"] == "split":
            self._split(running, item, answer["plan"])
        elif answer["state"] == "failed":
            self._fail(item, answer["reason"])
        else:
            self._finish(item, answer)

    def _split(self, running, item, plan):
        indices = range(len(plan["windows"]))
        windows = [self._submit(_work.window, item, plan, index, priority=1) for index in indices]
        self._await(running, item, self._submit(_work.assemble, item, plan, time.time(), windows, priority=1))

    def _blame(self, item, error):
        if not isinstance(error, KilledWorker):
            reason = f"{type(error).__name__}: {error}"
        elif self._suspects is not None:
            self._suspects.append(item)
            return
        else:
            reason = "its worker died each time; it may need more memory than a worker has"
        self._fail(item, _work.record_failure(self._job, item, reason))

    def _fail(self, item, reason):
        self._summary.failed[item.name] = reason
        if self._progress:
            self._progress.say(f"{_files.for_people(item.name)}: {reason}")
            self._progress.add(failed=True)

    def _finish(self, item, answer):
        if answer["state"] == "kept":
            self._summary.kept += 1
        else:
            self._summary.done += 1
            self._summary.frames += answer["frames"]
        if self._progress:
            self._progress.add()
