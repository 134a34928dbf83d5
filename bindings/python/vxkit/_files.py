# SPDX-License-Identifier: Apache-2.0
"""Recordings in files: reading, writing, and the table of formats."""

import itertools
import operator
import os

import numpy as np

from . import _arguments, _vxkit


class FrameSequence:
    """What acts like an array ``(frames, height, width)`` whose frames are made when they are asked for, by ``_frame``."""

    ndim = 3

    def __len__(self):
        return self.shape[0]

    def __iter__(self):
        for number in range(len(self)):
            yield self._frame(number, None)

    def __getitem__(self, index):
        """A frame (height, width), or an array of frames for a slice, a list of numbers or a mask."""
        if isinstance(index, tuple):
            return self._part(*index)
        if isinstance(index, slice):
            return self._stack(range(*index.indices(len(self))))
        if index is Ellipsis:
            return self.read_all()
        if isinstance(index, (list, np.ndarray)) and np.ndim(index) == 1:
            return self._stack(np.arange(len(self))[index])
        return self._frame(self._number(index), None)

    def read_all(self):
        """
        Read all frames.

        Returns
        -------
        numpy.ndarray
            Of the shape ``(frames, height, width)``.
        """
        return self[:]

    def __array__(self, dtype=None, copy=None):
        if copy is False:
            raise ValueError("frames are read into new memory; expected copy=None or True")
        frames = self.read_all()
        return frames if dtype is None else frames.astype(dtype, copy=False)

    def _part(self, frames=Ellipsis, *rest):
        if frames is Ellipsis:
            # Stands for as many axes as the others leave.
            return self._part(*[slice(None)] * (3 - len(rest)), *rest)
        found = self[frames]
        return found[(slice(None), *rest)] if found.ndim == 3 else found[tuple(rest)]

    def _number(self, index):
        try:
            number = operator.index(index)
        except TypeError:
            number = None
        if number is None or isinstance(index, bool):
            raise TypeError(f"frame {index!r:.80}: expected a number, a slice, or a list of numbers")
        if not -len(self) <= number < len(self):
            raise IndexError(f"frame {number}: expected 0 to {len(self) - 1}")
        return number % len(self)

    def _stack(self, numbers):
        frames = np.empty((len(numbers), *self.shape[1:]), self.dtype)
        for place, number in enumerate(numbers):
            self._frame(int(number), frames[place])
        return frames


class Recording(FrameSequence):
    """
    Frames of one size and type, from one file or several; made by `read`.

    It acts like an array of the shape ``(frames, height, width)`` that is read when it is asked for: ``recording[3]`` is a
    frame, ``recording[10:20]`` an array of ten, ``for frame in recording`` goes through all of them. `superres` and
    `enhance` take it as it is, and need no memory for the whole of it.

    Several threads may use one recording; they read one after the other.

    Attributes
    ----------
    shape : tuple of int
        Frames, height, width.
    dtype : numpy.dtype
        Type of the values, as they stand in the file.
    paths : tuple of str
        The files.
    first_number : int
        Number of frame 0 among all frames of the files.
    """

    def __init__(self, arguments, paths):
        self._arguments = arguments
        self._files = _vxkit.Recording(*arguments)
        self.paths = tuple(paths)

    shape = property(lambda self: self._files.shape)
    dtype = property(lambda self: self._files.dtype)
    first_number = property(lambda self: self._files.first)

    def __repr__(self):
        frames, height, width = self.shape
        return f"<vxkit.Recording {', '.join(self.paths)}: {frames} frames of {width}x{height}, {self.dtype}>"

    def __reduce__(self):
        # Another process opens the files anew.
        return Recording, (self._arguments, self.paths)

    def _frame(self, number, out):
        return self._files.frame(number, out)

    def read_into(self, index, out):
        """
        Read one frame into an array.

        Parameters
        ----------
        index : int
        out : numpy.ndarray
            Of the shape ``(height, width)`` and the recording's type, with rows one behind the other.

        Returns
        -------
        numpy.ndarray
            `out`
        """
        if not isinstance(out, np.ndarray):
            raise ValueError(f"out: expected an array, {self.dtype} {self.shape[1:]}, found {type(out).__name__}")
        return self._frame(self._number(index), out)


_LARGEST = 2**63 - 1


def _paths(path):
    if isinstance(path, (str, bytes, os.PathLike)) or not hasattr(path, "__iter__") or hasattr(path, "read"):
        path = [path]
    return [_arguments.path("path", one) for one in path]


def _size(size):
    """"WIDTHxHEIGHT" of (width, height)"""
    if size is None or isinstance(size, str):
        return size or ""
    width, height = _arguments.pair("size", size, "(width, height) or a text such as '160x120'")
    return f"{width}x{height}"


def _range(frames):
    """"FIRST:COUNT" of (first, count)"""
    if frames is None or isinstance(frames, str):
        return frames or ""
    first, count = _arguments.pair("frames", frames, "(first, count) or a text such as '10:5'")
    return f"{first}:{count}"


def _layout(dtype, endian):
    """Names of type and byte order; numpy tells both in one."""
    if endian is not None:
        _arguments.choice("endian", endian, ("little", "big"))
    if dtype is None:
        return None, endian
    try:
        found = np.dtype(dtype)
    except TypeError:
        return _arguments.text("dtype", dtype), endian  # the program's names, or told by the extension
    order = {">": "big", "<": "little"}.get(found.byteorder)
    if order is not None and endian not in (None, order):
        raise ValueError(f"endian {endian}: expected {order}, as dtype {found.str} tells, or a dtype without byte order")
    return found.name, endian or order


def read(path, *, size=None, frames=None, dtype=None, endian=None, header=0, frame_header=0, dataset=None):
    """
    Open a recording: TIFF, ``.npy``, 16-bit PNG and PGM, PFM, CSV, video, radiometric JPEG, FITS, HDF5, or headerless
    samples. `formats` lists them.

    Parameters
    ----------
    path : str, os.PathLike or sequence of these
        Files in the order of their frames.
    size : (int, int) or str, optional
        ``(width, height)`` in pixels, or "160x120": the files are headerless recordings of this size.
    frames : (int, int) or str, optional
        ``(first, count)``, or "10:5": the part that is wanted, counted from 0 over all files. Default: all.
    dtype : str, optional
        Type of the samples of headerless files ("uint16" by default) and of CSV ("float32", or "float64" for numbers of
        more than 9 digits).
    endian : {"little", "big"}, optional
        Byte order of headerless samples, and of raw images inside JPEG files.
    header, frame_header : int, optional
        Bytes before the first frame, and before each frame, of headerless files.
    dataset : str, optional
        Path of the frames in an HDF5 file with several data sets.

    Returns
    -------
    Recording

    Raises
    ------
    FileNotFoundError, PermissionError, OSError
        A file is not there, can't be read, or is not what it seems; the text names it.
    ValueError
        An argument is out of range or does not fit the files.

    Notes
    -----
    All frames are checked when the recording is opened, so that none fails half-way. What looks wrong (a byte order for
    example) is told as a warning of the logger "vxkit".

    Examples
    --------
    >>> recording = vxkit.read("night.raw", size=(160, 120))
    >>> recording.shape
    (100, 120, 160)
    >>> recording[0].mean()
    """
    paths = _paths(path)
    name, order = _layout(dtype, endian)
    order = endian if size is None else order
    arguments = (
        [encoded for encoded, _ in paths],
        _size(size),
        _range(frames),
        name,
        order,
        _arguments.integer("header", header, 0, _LARGEST),
        _arguments.integer("frame_header", frame_header, 0, _LARGEST),
        "" if dataset is None else _arguments.text("dataset", dataset),
    )
    recording = Recording(arguments, [text for _, text in paths])
    if name in np.sctypeDict and recording.dtype != name:
        raise ValueError(
            f"dtype {name}: {recording.paths[0]} holds {recording.dtype}; expected a dtype for headerless files and CSV alone")
    return recording


def _sequence(frames):
    """Frames with a length, one frame as a sequence of one."""
    _arguments.frames(frames)
    if isinstance(frames, np.ndarray) and frames.ndim == 2:
        return frames[np.newaxis]
    if not hasattr(frames, "__iter__") or getattr(frames, "ndim", 3) not in (2, 3):
        found = f"the shape {frames.shape}" if hasattr(frames, "shape") else type(frames).__name__
        raise ValueError(f"frames: expected (frames, height, width) or (height, width), found {found}")
    return frames if hasattr(frames, "__len__") else list(frames)


def _limits(range):
    if range is None or isinstance(range, str):
        return range or ""
    low, high = _arguments.pair("range", range, "(low, high), 'recording' or 'follow'")
    return f"{low}:{high}"


def _writable():
    return [entry["name"] for entry in formats() if entry["writes"]]


def _require_other(path, source):
    """Frames that are still to be read must not be replaced."""
    if isinstance(source, Recording) and os.path.exists(path):
        for one in source.paths:
            if os.path.exists(one) and os.path.samefile(path, one):
                raise OSError(f"{path}: is an input; expected another output name")


def write(path, frames, *, force=False, format=None, fps=9.0, range=None, colour_map=None, endian="little"):
    """
    Write frames to a file in any format of the table, see `formats`.

    Parameters
    ----------
    path : str or os.PathLike
        Its ending tells the format. Formats with one file for each frame number them: "frame-0000.png", with a list of
        checksums "frame.png.sha256" beside them; a single frame goes without.
    frames : array_like, Recording or iterable
        One frame ``(height, width)`` or many ``(frames, height, width)``, written one by one. What has no length is
        collected first.
    force : bool, optional
        Replace existing files.
    format : str, optional
        Name of a format, in place of the ending's.
    fps : float, optional
        Frames per second of a video.
    range : (int, int) or str, optional
        Counts from the darkest to the brightest colour of a video: ``(low, high)``, "recording" for those of all frames
        (the default) or "follow" for limits that follow the scene.
    colour_map : str, optional
        Colours of a video.
    endian : {"little", "big"}, optional
        Byte order of headerless frames (".raw").

    Returns
    -------
    str
        What was written, for people.

    Raises
    ------
    FileExistsError
        A file is there already and `force` is not set.
    FileNotFoundError, PermissionError, OSError
        The folder is not there or can't be written to, or the disk is full.
    ValueError
        The frames differ in shape or type, or the format can't hold them.

    Notes
    -----
    Files appear under their names when they are complete. A file that the frames are read from is never overwritten.
    """
    encoded, path = _arguments.path("path", path)
    source = getattr(frames, "_source", frames)  # of frames that are made from a recording
    frames = _sequence(frames)
    count, walk = len(frames), iter(frames)
    first = next(walk, None)
    if count == 0 or first is None:
        raise ValueError("frames: holds no frames; expected at least one")
    _require_other(path, source)
    options = (
        _arguments.flag("force", force),
        "" if format is None else _arguments.choice("format", format, _writable()),
        _arguments.number("fps", fps, 0.1, 1000),
        _limits(range),
        "" if colour_map is None else _arguments.choice("colour_map", colour_map, _vxkit.colour_maps()),
        _arguments.choice("endian", endian, ("little", "big")) == "big",
    )
    writer = _vxkit.Writer(encoded, first, count, *options, source._files if isinstance(source, Recording) else None)
    written = 0
    for frame in itertools.chain([first], walk):
        written += 1
        if written > count:
            break
        writer.add(frame)
    if written != count:
        found = f"{written} frames" + " or more" * (written > count)
        raise ValueError(f"frames: gave {found}; expected {count}, as their length says")
    return writer.finish()


def formats():
    """
    The file formats that `read` and `write` know.

    Returns
    -------
    list of dict
        For each: ``name``; ``endings``, the first for new files; ``reads``, whether it can be read; ``writes``, the
        types that can be written, as numpy calls them, none if it is only read; ``one_file_per_frame``; ``holds``, what
        a written file holds.
    """
    return _vxkit.formats()
