# SPDX-License-Identifier: Apache-2.0
"""Enhancement of a recording by a look."""

import os
from dataclasses import dataclass
from typing import Optional

import numpy as np

from . import _vxkit
from ._files import Recording


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

    Iterating gives the frames in their order, each computed when it is asked for. Iterating again starts anew.

    Attributes
    ----------
    shape : tuple of int
        Frames, height, width.
    dtype : numpy.dtype
        uint16 for equalised frames; without the equaliser the type of the recording's values.
    survey : Survey
        What the recording was found to be.
    """

    def __init__(self, work, survey):
        self._work = work
        self.survey = survey
        self.shape = work.shape
        self.dtype = work.dtype

    def __len__(self):
        return self.shape[0]

    def __iter__(self):
        for index in self._start():
            yield self._work.enhance(index)

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
        for index in self._start():
            self._work.enhance(index, out[index])
        return out

    def _start(self):
        self._work.settle(self.survey.noise, self.survey.bad_pixels)
        if self._work.runs_twice:
            for index in range(len(self)):
                self._work.measure(index)
        return range(len(self))


def _open(frames, look, settings, settings_file, bad_pixels, lookahead, lookbehind, signed, scale, offset):
    given = isinstance(bad_pixels, np.ndarray)
    return _vxkit.Enhancement(
        frames._files if isinstance(frames, Recording) else frames,
        look or "",
        os.fspath(settings_file) if settings_file else "",
        settings,
        "off" if given else bad_pixels,
        lookahead,
        lookbehind,
        signed,
        scale,
        offset,
    )


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
    return Survey(**_open(frames, "", {}, None, bad_pixels, 5, 5, signed, scale, offset).survey())


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
    if survey is not None and scale is None and offset is None and not signed:
        scale, offset = survey.scale, survey.offset
        if np.dtype(frames.dtype).str[1:] in ("u2", "i2"):
            scale = offset = None if (scale, offset) == (1.0, 0.0) else (scale, offset)
    work = _open(frames, look, settings, settings_file, bad_pixels, lookahead, lookbehind, signed, scale, offset)
    found = survey if survey is not None else Survey(**work.survey())
    if isinstance(bad_pixels, np.ndarray):
        found = Survey(found.noise, bad_pixels, found.scale, found.offset)
    elif bad_pixels == "off":
        found = Survey(found.noise, None, found.scale, found.offset)
    return Enhanced(work, found)


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
        Takes the result; of the same shape.
    settings_file : str or os.PathLike, optional
        Settings file of the stream processor, in place of a look.
    bad_pixels : {"auto", "off"}, str or numpy.ndarray, optional
        "auto" learns them over the frames, "off" leaves them; else a map, as a file's name or an array of uint8 in which
        they are not 0.
    lookahead, lookbehind : int, optional
        Frames over which a look smooths its curve.
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
        In the shape of `frames`: uint16 from 0 to 32766; with ``hist=False`` values of the recording's unit.

    Raises
    ------
    ValueError
        The frames differ in shape or type, have less than two columns, or a setting is unknown or out of its range.

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
