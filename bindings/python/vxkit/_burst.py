# SPDX-License-Identifier: Apache-2.0
"""Super-resolution of a burst, and how far an image is from a reference."""

from dataclasses import dataclass
from typing import Optional, Tuple

import numpy as np

from . import _arguments, _vxkit


@dataclass(repr=False, eq=False)
class SuperresResult:
    """
    What `superres` makes of a burst.

    Attributes
    ----------
    image : numpy.ndarray
        float32, of twice the height and width: degrees Celsius, or counts if the frames were counts without a scale.
    code : int
        0, or a warning: -2 a bad pixel took a fallback value, -3 a frame has half or more of its pixels unregistered, -4 a
        frame has not enough structure, -6 a frame is displaced by more than a tenth of its height.
    message : str
        The code in words.
    shifts : numpy.ndarray
        ``(frames, 2)``, x and y in pixels of a frame, oldest frame first: positive when the scene lies further right or
        lower than in the reference frame. Empty with motion "single".
    usable : numpy.ndarray
        Share of each frame's pixels that was used, or their mean weight, 0 to 1.
    iterations : int or None
        Steps of the solver.
    factor : float or None
        Enlargement that the engine of global motion achieved.
    confidence : numpy.ndarray or None
        With motion "local" and "auto": how many frames the result rests on at each pixel of the reference frame.
    predicted_gain : float or None
        With motion "local" and "auto": decibels that several frames are expected to gain over one alone.
    chose_single : bool
        With motion "auto": the reference frame alone was used.
    """

    image: np.ndarray
    code: int
    message: str
    shifts: np.ndarray
    usable: np.ndarray
    iterations: Optional[int]
    factor: Optional[float]
    confidence: Optional[np.ndarray]
    predicted_gain: Optional[float]
    chose_single: bool

    def __repr__(self):
        height, width = self.image.shape
        return f"<vxkit.SuperresResult {width}x{height}, code {self.code} ({self.message}), {len(self.shifts)} frames>"


def superres(
    frames,
    *,
    engine="production",
    motion="global",
    window=None,
    reference=None,
    camera=None,
    psf_sigma=None,
    relative_residue=None,
    iterations=None,
    weight=None,
    registration_error=None,
    scale=None,
    offset=None,
):
    """
    Make one image of twice the size from frames of a hand-held camera.

    The result is that of ``vxkit superres --last``, bit for bit.

    Parameters
    ----------
    frames : array_like or Recording
        ``(frames, height, width)``, the oldest first; the newest `window` of them are used. Floats are degrees Celsius;
        integers are counts, see `scale`.
    engine : {"production", "phase", "reference", "fixed", "fpga"}, optional
        With motion "global": "production" tracks corners and is fast, "phase" uses phase correlation (even width),
        "reference" is its serial twin, "fixed" and "fpga" compute in 16-bit integers and take counts.
    motion : {"global", "local", "single", "auto"}, optional
        "global": one shift for each frame. "local" follows a hand that turns, depth and moving things. "single" uses the
        reference frame alone. "auto" takes local if its report expects 0.3 dB or more over the single frame.
    window : int, optional
        Frames that make the result, 2 to 64. Default: 5.
    reference : int, optional
        Frame that the result is aligned with, counted back from the newest, which is 0. Default: 3 (fixed point: 0).
    camera : str, optional
        Camera and lens, "k325 FOV25", which set the point spread.
    psf_sigma : float, optional
        Deviation of the point spread in pixels of the result, in place of the camera's; above 0.
    relative_residue : float, optional
        Residue at which a round of the solver ends, above 1e-6.
    iterations : int, optional
        Budget of solver steps, 1 or more.
    weight : float, optional
        Inverse strength of the smoothing, 1 or more.
    registration_error : float, optional
        Largest local error of a usable pixel, above 0, at most 1.
    scale, offset : float, optional
        Degrees Celsius = count * scale + offset. Integer frames without them give a result in counts.

    Returns
    -------
    SuperresResult

    Raises
    ------
    ValueError
        The frames differ in shape or type, there are too few of them, or a setting is out of its range.
    vxkit.Error
        The engine found no result; ``code`` tells why (-9: no corner could be tracked, -999: another failure).

    Examples
    --------
    >>> burst = vxkit.simulate_burst("facade", width=160, height=120, seed=1)
    >>> result = vxkit.superres(burst.frames)
    >>> result.image.shape
    (240, 320)
    """
    if engine is not None:
        _arguments.choice("engine", engine, _vxkit.engine_names())
    _arguments.choice("motion", motion, _vxkit.motion_names())
    settings = {
        "motion": motion,
        "engine": engine,
        "window": window,
        "reference": reference,
        "camera": None if camera is None else _arguments.text("camera", camera),
        "psf_sigma": psf_sigma,
        "relative_residue": relative_residue,
        "iterations": iterations,
        "weight": weight,
        "registration_error": registration_error,
        "scale": scale,
        "offset": offset,
    }
    if motion != "global":
        if engine not in (None, "production"):
            raise ValueError(f"engine {engine}: has no meaning with motion {motion}")
        settings["engine"] = None
        for name in ("relative_residue", "iterations", "weight", "registration_error"):
            if settings[name] is not None:
                raise ValueError(f"{name}: has no meaning with motion {motion}")
    answer = _vxkit.superres(_arguments.frames(frames), settings)
    if answer["image"] is None:
        error = _vxkit.Error(f"{answer['message']} (code {answer['code']})")
        error.code = answer["code"]
        raise error
    return SuperresResult(**answer)


@dataclass(eq=False)
class Comparison:
    """
    How far an image is from a reference; made by `compare`.

    Attributes
    ----------
    psnr : float
        Peak signal-to-noise ratio in decibels; the peak is the reference's largest less its smallest value. Infinite for
        equal images.
    ssim : float
        Mean structural similarity, at most 1.
    largest_difference : float
        Largest absolute difference of two pixels.
    shift : tuple of float
        x and y in pixels, of what was removed with `align`.
    margin : int
        Pixels that were left out at each edge.
    """

    psnr: float
    ssim: float
    largest_difference: float
    shift: Tuple[float, float]
    margin: int


def compare(image, reference, *, margin=0, align=False):
    """
    Tell how far an image is from a reference: PSNR, SSIM and the largest difference, as ``vxkit compare`` does.

    Parameters
    ----------
    image, reference : array_like
        ``(height, width)``, of the same shape, in the same unit, at least 11 by 11 pixels.
    margin : int, optional
        Pixels left out at each edge.
    align : bool, optional
        Remove a global sub-pixel shift first.

    Returns
    -------
    Comparison

    Raises
    ------
    ValueError
        The shapes differ, a value is not finite, or the margin leaves too little.
    """
    pixels = _arguments.integer("margin", margin, 0, 2**16)
    return Comparison(**_vxkit.compare(image, reference, pixels, _arguments.flag("align", align)))
