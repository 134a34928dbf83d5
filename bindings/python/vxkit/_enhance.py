# SPDX-License-Identifier: Apache-2.0
"""Enhancement of a recording by a look."""

import logging
import os
from dataclasses import dataclass
from typing import Optional

import numpy as np

from . import _arguments, _vxkit

_LONGEST_REACH = 1000


@dataclass(repr=False, eq=False)
class Survey:
    """
    What a look through a recording tells before it is enhanced; made by `survey`.

    Attributes
    ----------
    noise : float
        Standard deviation of a pixel's noise in counts, by which looks choose their settings.
    bad_pixels : numpy.ndarray or None
        uint8 in the shape of a frame: 255 for hot pixels, 85 for cold ones, 0 for good ones.
    scale, offset : float
        value = count * scale + offset: how the recording's values are counts.
    """

    noise: float
    bad_pixels: Optional[np.ndarray]
    scale: float
    offset: float

    def __repr__(self):
        bad = 0 if self.bad_pixels is None else int(np.count_nonzero(self.bad_pixels))
        return f"<vxkit.Survey noise {self.noise:.3g} counts, {bad} bad pixels, scale {self.scale:g}>"


class Enhanced:
    """
    A recording that is enhanced frame by frame; made by `enhance_frames`.

    Iterating gives the frames in their order, each computed when it is asked for. Iterating again starts anew, and ends
    the walk before.

    Attributes
    ----------
    shape : tuple of int
        Frames, height, width.
    dtype : numpy.dtype
        uint16 for equalised frames; without the equaliser the type of the recording's values.
    survey : Survey
        What the recording was found to be.
    """

    def __init__(self, work, source, survey):
        self._work = work
        self._source = source
        self._walk = None
        self.survey = survey
        self.shape = work.shape
        self.dtype = work.dtype

    def __len__(self):
        return self.shape[0]

    def __repr__(self):
        frames, height, width = self.shape
        return f"<vxkit.Enhanced {frames} frames of {width}x{height}, {self.dtype}>"

    def __iter__(self):
        for index in self._steps():
            yield self._work.enhance(index)

    def __array__(self, dtype=None, copy=None):
        if copy is False:
            raise ValueError("frames are enhanced into new memory; expected copy=None or True")
        frames = self.into(np.empty(self.shape, self.dtype))
        return frames if dtype is None else frames.astype(dtype, copy=False)

    def into(self, out):
        """
        Enhance all frames into an array.

        Parameters
        ----------
        out : numpy.ndarray
            Of `shape` and `dtype`, for example a memory map.

        Returns
        -------
        numpy.ndarray
            `out`
        """
        if not isinstance(out, np.ndarray) or out.shape != self.shape or out.dtype != self.dtype:
            found = f"{out.dtype} {out.shape}" if isinstance(out, np.ndarray) else type(out)
            raise ValueError(f"out: has {found}; expected {self.dtype} {self.shape}")
        _require_apart(self._source, out)
        for index in self._steps():
            self._work.enhance(index, out[index])
        return out

    def _steps(self):
        """Numbers of the frames in their order. The library's object remembers frames, so that one walk is under way."""
        walk = self._walk = object()
        self._work.settle(_arguments.number("survey.noise", self.survey.noise, 0), self.survey.bad_pixels)
        steps = [self._work.measure] * self._work.runs_twice + [None]
        for step in steps:
            for index in range(len(self)):
                if self._walk is not walk:
                    raise _vxkit.Error("this walk through the frames was ended by a later one; expected one at a time")
                if step:
                    step(index)
                else:
                    yield index
        self._tell()

    def _tell(self):
        filled = self._work.undefined_values
        if filled:
            logging.getLogger("vxkit").warning(
                "frames: %d values were no numbers and were filled in from neighbours", filled)


def _require_apart(frames, out):
    """A result may replace its own frame, but none that is still to be read."""
    if not isinstance(frames, (list, tuple, np.ndarray)):
        return
    for index, frame in enumerate([frames] if np.ndim(frames[0]) == 1 else frames):
        if not (isinstance(frame, np.ndarray) and np.may_share_memory(frame, out)):
            continue
        own = out[index]
        is_own = frame.__array_interface__["data"] == own.__array_interface__["data"] and frame.strides == own.strides
        others = (out[:index], out[index + 1:]) if is_own else (out,)
        if any(np.shares_memory(frame, other) for other in others):
            raise ValueError(
                f"out: lies on frame {index} in another place; expected the array of the frames or other memory")


def _settings_path(settings_file):
    if settings_file is None:
        return b""
    encoded, path = _arguments.path("settings_file", settings_file)
    _require_file(path, "a settings file")
    return encoded


def _require_file(path, what):
    if not os.path.exists(path):
        raise FileNotFoundError(f"{path}: no such file; expected {what}")


def _bad_pixels(given):
    """What the extension reads, and a map."""
    if isinstance(given, np.ndarray):
        return b"off", given.astype(np.uint8) * np.uint8(255) if given.dtype == bool else given
    if given in ("auto", "off"):
        return os.fsencode(given), None
    what = "'auto', 'off', the name of a map, or an array of uint8 or bool"
    if not isinstance(given, (str, bytes, os.PathLike)):
        raise ValueError(f"bad_pixels: expected {what}, found {given!r:.80}")
    encoded, path = _arguments.path("bad_pixels", given)
    _require_file(path, what)
    return encoded, None


def _open(frames, look, settings, settings_file, bad_pixels, lookahead, lookbehind, signed, scale, offset):
    """The extension's object, and the frames that it works on."""
    source = frames if hasattr(frames, "__len__") or not hasattr(frames, "__iter__") else list(frames)
    work = _vxkit.Enhancement(
        _arguments.frames(source),
        "" if look is None else _arguments.choice("look", look, list(looks())),
        _settings_path(settings_file),
        settings,
        bad_pixels,
        _arguments.integer("lookahead", lookahead, 0, _LONGEST_REACH),
        _arguments.integer("lookbehind", lookbehind, 0, _LONGEST_REACH),
        _arguments.flag("signed", signed),
        None if scale is None else _arguments.number("scale", scale),
        None if offset is None else _arguments.number("offset", offset),
    )
    if work.lost_detail:
        logging.getLogger("vxkit").warning(
            "frames: a count of %g is more than their noise, since the values go so far apart: detail is lost; "
            "scale and offset choose the range that matters", work.lost_detail)
    return work, source


def survey(frames, *, bad_pixels="auto", signed=False, scale=None, offset=None):
    """
    Look through a recording, as `enhance` does first: noise, bad pixels and scale.

    Windows of a long recording that are enhanced apart need the facts of the whole; hand them to `enhance` as `survey`.

    Parameters
    ----------
    frames, bad_pixels, signed, scale, offset
        As for `enhance`.

    Returns
    -------
    Survey
    """
    source, _ = _bad_pixels(bad_pixels)
    work, _ = _open(frames, None, {}, None, source, 5, 5, signed, scale, offset)
    return Survey(**work.survey())


def enhance_frames(
    frames,
    look=None,
    *,
    settings_file=None,
    bad_pixels="auto",
    lookahead=5,
    lookbehind=5,
    signed=False,
    scale=None,
    offset=None,
    survey=None,
    **settings,
):
    """
    Enhance a recording frame by frame, without holding it in memory.

    Parameters are those of `enhance`.

    Returns
    -------
    Enhanced
        Iterates over the enhanced frames.

    Examples
    --------
    >>> enhanced = vxkit.enhance_frames(vxkit.read("night.raw", size="160x120"))
    >>> vxkit.write("night.mkv", enhanced)
    """
    if survey is not None and not isinstance(survey, Survey):
        raise ValueError(f"survey: expected what vxkit.survey() found, or None, found {survey!r:.80}")
    if survey is not None and scale is None and offset is None and not signed:
        is_plain = (survey.scale, survey.offset) == (1.0, 0.0)
        scale, offset = (None, None) if is_plain and _is_counts(frames) else (survey.scale, survey.offset)
    bad_source, bad_map = _bad_pixels(bad_pixels)
    work, source = _open(frames, look, settings, settings_file, bad_source, lookahead, lookbehind, signed, scale, offset)
    found = survey if survey is not None else Survey(**work.survey())
    if bad_map is not None:
        found = Survey(found.noise, bad_map, found.scale, found.offset)
    elif bad_source == b"off":
        found = Survey(found.noise, None, found.scale, found.offset)
    return Enhanced(work, source, found)


def _is_counts(frames):
    types = getattr(frames, "dtype", None) or {np.asarray(frame).dtype for frame in frames}
    return all(np.dtype(one).str[1:] in ("u2", "i2") for one in (types if isinstance(types, set) else [types]))


def enhance(frames, look=None, *, out=None, **options):
    """
    Enhance a recording: mend bad pixels, take noise and stripes away, and choose a tone curve from the recording.

    The result is that of ``vxkit enhance``, bit for bit.

    Parameters
    ----------
    frames : array_like or Recording
        ``(frames, height, width)``. 16-bit integers are counts; other values become counts by `scale` and `offset`, or
        by a scale that is chosen from the recording.
    look : {"natural", "strong", "flat", "device"}, optional
        How the picture is to look; `looks` describes them. Default: "natural", or with `settings_file` the device's.
    out : numpy.ndarray, optional
        Takes the result; of the same shape. May be `frames`.
    settings_file : str or os.PathLike, optional
        Settings file of the stream processor, in place of a look.
    bad_pixels : {"auto", "off"}, str or numpy.ndarray, optional
        "auto" learns them over the frames, "off" leaves them; else a map, as a file's name or an array of uint8 or bool in
        which they are not 0.
    lookahead, lookbehind : int, optional
        Frames over which a look smooths its curve, 0 to 1000.
    signed : bool, optional
        16-bit counts are two's complement samples.
    scale, offset : float, optional
        value = count * scale + offset.
    survey : Survey, optional
        What `survey` found of the whole recording, for a window of it.
    **settings
        Any setting of the chain, as the options of ``vxkit enhance`` with underscores: ``tnr_alpha=80``,
        ``hist_mode="linear"``; ``peak=False`` bypasses a block. They win over the look. `Enhancer` lists them with
        their ranges.

    Returns
    -------
    numpy.ndarray
        ``(frames, height, width)``, also of a single frame: uint16 from 0 to 32766; with ``hist=False`` values of the
        recording's unit.

    Raises
    ------
    ValueError
        The frames differ in shape or type, have less than two columns, or a setting is unknown or out of its range.
    FileNotFoundError, OSError
        A settings file or a map of bad pixels is not there.

    Notes
    -----
    Values that are no numbers are filled in from their neighbours; the logger "vxkit" warns of them.

    See Also
    --------
    enhance_frames : the same frame by frame
    Enhancer : the chain for a live stream
    """
    enhanced = enhance_frames(frames, look, **options)
    return enhanced.into(np.empty(enhanced.shape, enhanced.dtype) if out is None else out)


def looks():
    """
    The looks that `enhance` knows.

    Returns
    -------
    dict
        Name and description, the default first.
    """
    return dict(_vxkit.looks())
