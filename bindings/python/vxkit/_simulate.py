# SPDX-License-Identifier: Apache-2.0
"""Bursts and recordings with known truth."""

from dataclasses import dataclass

import numpy as np

from . import _vxkit
from ._files import FrameSequence
from ._objects import _property, _python, _setting_text, _Settings


@dataclass(repr=False, eq=False)
class Burst:
    """
    A simulated burst; made by `simulate_burst`.

    Attributes
    ----------
    frames : numpy.ndarray
        ``(frames, height, width)``, float32, degrees Celsius.
    shifts : numpy.ndarray
        ``(frames, 2)``, x and y in pixels: positive when the scene lies further right or lower than in the reference
        frame.
    truth : numpy.ndarray
        ``(2 * height, 2 * width)``, float32: the scene on the reference frame's doubled grid, without blur and noise.
    """

    frames: np.ndarray
    shifts: np.ndarray
    truth: np.ndarray

    def __repr__(self):
        frames, height, width = self.frames.shape
        return f"<vxkit.Burst {frames} frames of {width}x{height}>"


class _Simulator(_Settings):
    def shifts(self):
        return np.array([self._shift(index) for index in range(self.frames)], np.float64)


def _simulator(kind):
    table = {_python(setting["name"]): setting for setting in _vxkit.settings(kind)}
    members = {name: _property(name, setting) for name, setting in table.items()}
    return type(kind, (_Simulator,), {"_kind": kind, "_table": table, **members})


_Burst, _Recording = _simulator("burst"), _simulator("recording")


def simulate_burst(scene="facade", *, width=160, height=120, frames=5, seed=1, **settings):
    settings = {"scene": scene, "frames": frames, "seed": seed, **settings}
    simulator = _made(_Burst, "simulate_burst", width, height, settings)
    images = np.empty((simulator.frames, simulator.height, simulator.width), np.float32)
    for index, image in enumerate(images):
        simulator._simulated(index, False, image)
    return Burst(images, simulator.shifts(), simulator._result("truth"))


class SimulatedRecording(FrameSequence):
    """
    A simulated recording whose frames are computed when they are asked for; made by `simulate_recording`.

    ``recording[3]`` is a frame in degrees Celsius (float32), iterating goes through all of them.

    Attributes
    ----------
    shape : tuple of int
        Frames, height, width.
    dtype : numpy.dtype
        float32
    shifts : numpy.ndarray
        ``(frames, 2)``, x and y in pixels against frame 0.
    """

    dtype = np.dtype(np.float32)

    def __init__(self, simulator):
        self._simulator = simulator
        self.shape = (simulator.frames, simulator.height, simulator.width)
        self.shifts = simulator.shifts()

    def __repr__(self):
        frames, height, width = self.shape
        return f"<vxkit.SimulatedRecording {frames} frames of {width}x{height}>"

    def _frame(self, number, out):
        return self._simulator._simulated(number, False, out)

    def ideal(self, index):
        """A frame as an ideal sensor would see it: without noise, pattern and defects."""
        return self._simulator._simulated(self._number(index), True, None)


def simulate_recording(scene="facade", *, width=160, height=120, frames=100, seed=1, **settings):
    settings = {"scene": scene, "frames": frames, "seed": seed, **settings}
    return SimulatedRecording(_made(_Recording, "simulate_recording", width, height, settings))


def _made(simulator, name, width, height, settings):
    for setting in settings:
        if setting not in simulator._table:
            raise ValueError(f"{setting}: no setting of {name}; expected one of {', '.join(simulator._table)}")
    return simulator(width, height, **settings)


_HEAD = """{summary}

The same settings give the same bits on every machine.

Parameters
----------
width, height : int, optional
    Size of the frames in pixels.
{settings}

Returns
-------
{returns}
"""


def _describe(function, simulator, summary, returns):
    settings = "\n".join(_setting_text(*entry) for entry in simulator._table.items())
    function.__doc__ = _HEAD.format(summary=summary, settings=settings, returns=returns)


_describe(simulate_burst, _Burst, "Simulate a short recording of a hand-held camera, with its ground truth.", "Burst")
_describe(
    simulate_recording, _Recording, "Simulate a long recording with a moving subject, noise and stripes.",
    "SimulatedRecording",
)
