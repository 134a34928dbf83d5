# SPDX-License-Identifier: Apache-2.0
"""The one place that calls the rest of the package: what is done to the frames of a recording.

An operation works in units, each of which could be a task of its own: frames for ``enhance``, bursts for ``superres``.
"""

import contextlib
import inspect
import logging
import os
from typing import Iterator, NamedTuple

import numpy as np
import vxkit

from . import _files

OPERATIONS = ("enhance", "superres")
BURST = 5  # frames of a burst where nothing is said
AHEAD = 5  # frames to come that a look smooths its curve with where nothing is said
# Settings of enhance() that a survey takes too.
SURVEYED = ("bad_pixels", "signed", "scale", "offset")


Error = vxkit.Error


class Frames(NamedTuple):
    """Frames that are still to be made, one after the other."""

    shape: tuple
    dtype: np.dtype
    all: Iterator
    notes: list  # filled while the frames are made: what people should know of the result


def version():
    return vxkit.__version__


def checked(operation, settings, reading, suffix):
    """The settings of an operation in the form that the manifest keeps, and checksums of the files that they name.

    Raises
    ------
    ValueError
        The operation is unknown, or settings, reading or suffix can't be; the text tells.
    """
    if operation not in OPERATIONS:
        raise ValueError(f"operation {operation}: expected one of {', '.join(OPERATIONS)}")
    check_suffix(suffix)
    settings = dict(settings)
    files = {}
    for name in ("settings_file", "bad_pixels"):
        if operation == "enhance" and settings.get(name, "auto") not in ("auto", "off"):
            settings[name] = os.path.abspath(settings[name])
            files[settings[name]] = _files.checksum(settings[name])
    for given in (settings, reading):
        try:
            _files.as_line(given)
        except TypeError as error:
            raise ValueError(f"settings: {error}; expected numbers, switches and texts") from error
    check_call(vxkit.read, "", reading)
    if operation == "enhance":
        try_enhancing(settings)
    else:
        try_superres(settings)
    return settings, files


def check_suffix(suffix):
    known = [ending for entry in vxkit.formats() if entry["writes"] and not entry["one_file_per_frame"] for ending in entry["endings"]]
    if suffix not in known:
        raise ValueError(f"suffix {suffix}: expected one of {', '.join(known)}")


def check_call(function, first, named):
    try:
        inspect.signature(function).bind(first, **named)
    except TypeError as error:
        raise ValueError(f"{function.__name__}: {error}") from error


def try_enhancing(settings):
    if settings.get("lookahead", 0) < 0:
        raise ValueError(f"lookahead {settings['lookahead']}: expected 0 frames or more")
    # Maps have the size of the recordings.
    some = {name: value for name, value in settings.items() if name != "bad_pixels"}
    check_call(vxkit.enhance_frames, None, some)
    vxkit.enhance_frames(np.zeros((1, 120, 160), np.uint16), **some)


def try_superres(settings):
    for name in ("window", "step"):
        if not isinstance(settings.get(name, 1), int) or settings.get(name, 1) < 1:
            raise ValueError(f"{name} {settings[name]}: expected a whole number of frames, 1 or more")
    check_call(vxkit.superres, None, of_burst(settings))
    # An empty scene gives no image, but checks what is set.
    with contextlib.suppress(vxkit.Error), silence():
        vxkit.superres(np.zeros((burst_of(settings), 120, 160), np.uint16), **of_burst(settings))


def burst_of(settings):
    return settings.get("window") or BURST


def of_burst(settings):
    return {name: value for name, value in settings.items() if name != "step"}


@contextlib.contextmanager
def heard(notes):
    """Takes what the package warns of, which is told nowhere else on a worker."""
    logger = logging.getLogger("vxkit")
    listener = logging.Handler(logging.WARNING)
    listener.emit = lambda record: notes.append(record.getMessage())
    logger.addHandler(listener)
    try:
        yield
    finally:
        logger.removeHandler(listener)


def silence():
    return heard([])


def open_recording(path, reading, frames=None):
    return vxkit.read(path, **reading, frames=frames)


def step(operation, settings):
    """Frames from one unit to the next."""
    return 1 if operation == "enhance" else settings.get("step") or burst_of(settings)


def units(operation, settings, total):
    """How many units a recording of some frames holds."""
    if operation == "enhance":
        return total
    burst = burst_of(settings)
    if total < burst:
        raise ValueError(f"holds {total} frames; expected at least {burst} for a burst")
    return (total - burst) // step(operation, settings) + 1


def facts(operation, settings, opened):
    """What windows of a recording have to know of the whole of it."""
    if operation != "enhance":
        return None
    return vxkit.survey(opened, **{name: settings[name] for name in SURVEYED if name in settings})


def whole(operation, settings, opened):
    """All units of a recording, still to be computed."""
    if operation == "superres":
        return bursts(settings, opened, range(units(operation, settings, len(opened))))
    made = vxkit.enhance_frames(opened, **settings)
    return Frames(made.shape, made.dtype, iter(made), [])


def window(operation, settings, path, reading, part, total, known, warmup):
    """Units ``part[0]`` to ``part[1] - 1`` of a recording, still to be computed.

    Parameters
    ----------
    total : int
        Frames of the whole recording.
    known
        Of facts() for it.
    warmup : int
        Frames ahead of the window from which the blocks learn.
    """
    first, last = part
    if operation == "superres":
        return bursts(settings, open_recording(path, reading), range(first, last))
    lead = min(first, warmup)
    end = min(total, last + settings.get("lookahead", AHEAD))
    opened = open_recording(path, reading, (first - lead, end - first + lead))
    made = vxkit.enhance_frames(opened, survey=known, **settings)

    def wanted():
        for index, frame in enumerate(made):
            if index >= lead + last - first:
                return
            if index >= lead:
                yield frame

    return Frames((last - first, *made.shape[1:]), made.dtype, wanted(), [])


def bursts(settings, opened, numbers):
    notes = []
    between = step("superres", settings)
    height, width = opened.shape[1:]

    def images():
        for number in numbers:
            first = number * between
            name = f"frames {first} to {first + burst_of(settings) - 1}"
            try:
                made = vxkit.superres(opened[first : first + burst_of(settings)], **of_burst(settings))
            except vxkit.Error as error:
                raise ValueError(f"{name}: {error}") from error
            if made.code != 0:
                notes.append(f"{name}: {made.message}")
            yield made.image

    return Frames((len(numbers), 2 * height, 2 * width), np.dtype(np.float32), images(), notes)


class Counted:
    """Frames whose number is known, to be taken once; the first may be looked at."""

    def __init__(self, frames):
        self._count = frames.shape[0]
        self._rest = frames.all
        self._first = next(self._rest)

    def __len__(self):
        return self._count

    def __getitem__(self, index):
        if index != 0:
            raise IndexError("only the first frame is at hand")
        return self._first

    def __iter__(self):
        yield self._first
        yield from self._rest


def write(path, frames):
    vxkit.write(path, Counted(frames))
