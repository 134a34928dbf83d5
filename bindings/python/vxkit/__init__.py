# SPDX-License-Identifier: Apache-2.0
"""
Image enhancement for thermal cameras.

Whole recordings
    `read`, `write`, `formats` -- recordings in files
    `superres` -- one image of twice the size from a hand-held burst
    `enhance`, `enhance_frames`, `survey`, `looks` -- a clear recording without stripes, noise and bad pixels
    `compare` -- how far an image is from a reference
    `simulate_burst`, `simulate_recording` -- recordings with known truth

Frame by frame
    `Enhancer` -- the camera's chain for a live stream
    `TemporalFilter`, `StaticPatternFilter`, `SpatialFilter`, `ClusterFilter`, `Unsharp` -- one filter alone
    `TemporalNoiseBlock`, `StaticPatternBlock`, `SpatialNoiseBlock`, `EqualiserBlock`, `PeakingBlock` -- the chain's blocks
    `Production`, `Phase`, `Reference`, `FixedPoint`, `FixedPointFpga`, `LocalMotion`, `SingleFrame` -- the engines of
    super-resolution

Process
    `set_threads` -- with how many threads a call computes
    `set_log_level` -- how much the logger "vxkit" is told

Images are numpy arrays ``(height, width)``, recordings ``(frames, height, width)``. They go in and out without copies
where their rows lie one behind the other. Wrong shapes, types and settings raise ValueError, trouble with files OSError,
and anything else `vxkit.Error`. The interpreter lock is released while the library computes.
"""

from . import _interpreter  # first: the others would tell what follows from a wrong one
from . import _arguments, _objects, _vxkit
from ._burst import Comparison, SuperresResult, compare, superres
from ._enhance import Enhanced, Survey, enhance, enhance_frames, looks, survey
from ._files import Recording, formats, read, write
from ._objects import *
from ._simulate import Burst, SimulatedRecording, simulate_burst, simulate_recording
from ._vxkit import Error


def set_threads(threads):
    """
    Choose with how many threads the calls of the calling thread compute. Results are the same for any number.

    Parameters
    ----------
    threads : int
        1 to 1024; 0 for OpenMP's own choice.
    """
    _vxkit.set_threads(_arguments.integer("threads", threads, 0, 1024))


def set_log_level(level):
    """
    Choose how much the logger "vxkit" of the module `logging` is told.

    Parameters
    ----------
    level : {"warning", "info", "debug", "trace"}
        "warning" (at first): what looks wrong about files. "info": also exceptions inside the library. "debug": also what
        classes print. "trace": also the engines' traces, which slow them down.
    """
    _vxkit.set_log_level(_arguments.choice("level", level, ("warning", "info", "debug", "trace")))


__version__ = _vxkit.version
__all__ = [
    "Burst", "Comparison", "Enhanced", "Error", "Recording", "SimulatedRecording", "SuperresResult", "Survey", "compare",
    "enhance", "enhance_frames", "formats", "looks", "read", "set_log_level", "set_threads", "simulate_burst",
    "simulate_recording", "superres", "survey", "write", *_objects.__all__,
]


def __dir__():
    return sorted([*__all__, "__all__", "__doc__", "__file__", "__name__", "__path__", "__version__"])
