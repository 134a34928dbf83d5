# SPDX-License-Identifier: Apache-2.0
"""
Image enhancement for thermal cameras.

Whole recordings
    `read`, `write`, `formats` -- recordings in files
    `superres` -- one image of twice the size from a hand-held burst
    `enhance`, `enhance_frames`, `survey`, `looks` -- a clear recording without stripes, noise and bad pixels
    `compare` -- how far an image is from a reference

Images are numpy arrays ``(height, width)``, recordings ``(frames, height, width)``. They go in and out without copies
where their rows lie one behind the other. Wrong shapes, types and settings raise ValueError, trouble with files OSError,
and anything else `vxkit.Error`. The interpreter lock is released while the library computes.
"""

from . import _vxkit
from ._burst import Comparison, SuperresResult, compare, superres
from ._enhance import Enhanced, Survey, enhance, enhance_frames, looks, survey
from ._files import Recording, formats, read, write
from ._vxkit import Error

__version__ = _vxkit.version
