# SPDX-License-Identifier: Apache-2.0
"""Recordings in files: reading, writing, and the table of formats."""

import os

import numpy as np

from . import _vxkit


class Recording:
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

    def __init__(self, files, paths):
        self._files = files
        self.paths = tuple(paths)

    shape = property(lambda self: self._files.shape)
    dtype = property(lambda self: self._files.dtype)
    first_number = property(lambda self: self._files.first)
    ndim = 3

    def __len__(self):
        return self.shape[0]

    def __repr__(self):
        frames, height, width = self.shape
        return f"<vxkit.Recording {', '.join(self.paths)}: {frames} frames of {width}x{height}, {self.dtype}>"

    def __getitem__(self, index):
        """A frame (height, width), or with a slice an array of frames."""
        if isinstance(index, tuple):
            frames, *rest = index
            return self[frames][(slice(None), *rest) if isinstance(frames, slice) else tuple(rest)]
        if isinstance(index, slice):
            numbers = range(*index.indices(len(self)))
            frames = np.empty((len(numbers), *self.shape[1:]), self.dtype)
            for place, number in enumerate(numbers):
                self._files.frame(number, frames[place])
            return frames
        number = index.__index__()
        return self._files.frame(number + len(self) if number < 0 else number)

    def __iter__(self):
        for number in range(len(self)):
            yield self._files.frame(number)

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
        return self._files.frame(index, out)

    def read_all(self):
        """
        Read all frames.

        Returns
        -------
        numpy.ndarray
            Of the shape ``(frames, height, width)``.
        """
        return self[:]

    def __array__(self, dtype=None):
        frames = self.read_all()
        return frames if dtype is None else frames.astype(dtype, copy=False)


def _paths(path):
    if isinstance(path, (str, os.PathLike)):
        path = [path]
    return [os.fspath(one) for one in path]


def _size(size):
    """"WIDTHxHEIGHT" of (width, height)"""
    return size if isinstance(size, str) else "{}x{}".format(*size)


def _range(frames):
    """"FIRST:COUNT" of (first, count)"""
    if frames is None or isinstance(frames, str):
        return frames or ""
    first, count = frames
    return f"{first}:{count}"


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
    files = _vxkit.Recording(
        paths,
        "" if size is None else _size(size),
        _range(frames),
        None if dtype is None else np.dtype(dtype).name,
        endian,
        header,
        frame_header,
        dataset or "",
    )
    return Recording(files, paths)


def _sequence(frames):
    """Frames with a length, one frame as a sequence of one."""
    if isinstance(frames, np.ndarray) and frames.ndim == 2:
        return frames[np.newaxis]
    return frames if hasattr(frames, "__len__") else list(frames)


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
    frames = _sequence(frames)
    if len(frames) == 0:
        raise ValueError("frames: holds no frames; expected at least one")
    if endian not in ("little", "big"):
        raise ValueError(f"endian {endian}: expected little or big")
    limits = range if range is None or isinstance(range, str) else "{}:{}".format(*range)
    source = frames._files if isinstance(frames, Recording) else None
    if isinstance(frames, Recording) and os.path.exists(path):
        for source_path in frames.paths:
            if os.path.exists(source_path) and os.path.samefile(path, source_path):
                raise OSError(f"{os.fspath(path)}: is an input; expected another output name")
    walk = iter(frames)
    first = next(walk)
    writer = _vxkit.Writer(
        os.fspath(path), first, len(frames), force, format or "", fps, limits or "", colour_map or "",
        endian == "big", source,
    )
    writer.add(first)
    for frame in walk:
        writer.add(frame)
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
