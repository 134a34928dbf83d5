# SPDX-License-Identifier: Apache-2.0
"""Engines, chain, blocks and filters as classes that are made from the library's tables of settings."""

import keyword
from dataclasses import dataclass, field
from typing import Optional, Tuple

import numpy as np

from . import _arguments, _vxkit
from ._files import FrameSequence

_MOST_PIXELS = 2**26

# Class, kind.
CLASSES = {
    "Production": "production",
    "Phase": "phase",
    "Reference": "reference",
    "FixedPoint": "fixed-point",
    "FixedPointFpga": "fixed-point-fpga",
    "LocalMotion": "local",
    "SingleFrame": "single",
    "Enhancer": "enhancer",
    "TemporalNoiseBlock": "tnr",
    "StaticPatternBlock": "spr",
    "SpatialNoiseBlock": "snr",
    "EqualiserBlock": "hist",
    "PeakingBlock": "peak",
    "TemporalFilter": "temporal",
    "StaticPatternFilter": "static-pattern",
    "SpatialFilter": "spatial",
    "ClusterFilter": "cluster",
    "Unsharp": "unsharp",
}


def _python(name):
    """A setting's name; "global_" of one that is a word of the language."""
    name = name.replace("-", "_")
    return name + "_" if keyword.iskeyword(name) else name


@dataclass(eq=False)
class BurstReport:
    """
    What an engine says of a frame; made by ``add``.

    Attributes
    ----------
    code : int
        0, or a warning as in `SuperresResult`.
    has_image : bool
        A new image was computed with this frame.
    iterations : int or None
        Steps of the solver.
    factor : float or None
        Enlargement that was achieved.
    shifts : numpy.ndarray
        ``(frames, 2)``, x and y in pixels, oldest frame first.
    usable : numpy.ndarray
        Share of each frame's pixels that was used, 0 to 1.
    """

    code: int
    has_image: bool
    iterations: Optional[int]
    factor: Optional[float]
    shifts: np.ndarray = field(repr=False)
    usable: np.ndarray = field(repr=False)


class _Settings(_vxkit.Object):
    """What all classes have in common: settings by name."""

    _kind = ""
    _table = {}

    def __init__(self, width, height, **settings):
        """Settings that are not named keep their defaults."""
        sides = [_arguments.integer(*side, 1, _MOST_PIXELS) for side in (("width", width), ("height", height))]
        super().__init__(self._kind, *sides)
        for name, value in settings.items():
            self._change(name, value)

    def _change(self, name, value):
        if name not in self._table:
            raise ValueError(f"{name}: no setting of {type(self).__name__}; expected one of {', '.join(self._table)}")
        setting = self._table[name]
        if setting["type"] not in ("switch", "choice", "text") and isinstance(value, (bool, np.bool_)):
            raise ValueError(f"{name}: expected {_range(setting)}, found {value!r}")
        self._set(setting["name"], value, name)

    def __setattr__(self, name, value):
        if not hasattr(type(self), name):
            raise AttributeError(f"{name}: no setting of {type(self).__name__}; expected one of {', '.join(self._table)}")
        super().__setattr__(name, value)

    @property
    def settings(self):
        """All settings and their values, as a dict; assign one to change those that it names."""
        return {name: getattr(self, name) for name in self._table}

    @settings.setter
    def settings(self, values):
        if not isinstance(values, dict):
            raise ValueError(f"settings: expected a dict of them, found {values!r:.80}")
        for name, value in values.items():
            self._change(name, value)

    def __repr__(self):
        return f"<vxkit.{type(self).__name__} {self.width}x{self.height}>"


class _Engine(_Settings):
    def add(self, frame):
        """
        Add the next frame; from ``window`` frames on each gives an image.

        Parameters
        ----------
        frame : array_like
            ``(height, width)``: degrees Celsius as float32, other types if their values fit exactly. Engines in fixed
            point take int16 counts.

        Returns
        -------
        BurstReport

        Raises
        ------
        vxkit.Error
            The engine failed on the frame; its ``code`` tells why. The next frames begin anew.
        """
        code, has_image, iterations, factor, frames = self._add_frame(frame)
        told = np.array(frames, np.float64).reshape(-1, 3)
        return BurstReport(code, has_image, iterations, factor, told[:, :2], told[:, 2])

    def image(self, out=None):
        """
        The image that was computed last.

        Parameters
        ----------
        out : numpy.ndarray, optional
            Takes it.

        Returns
        -------
        numpy.ndarray
            ``(2 * height, 2 * width)``, float32.
        """
        return self._result("image", out)


_DEFAULT_LABEL = {"switch": bool, "integer": int, "number": float}


def _default(setting):
    value = setting["default"]
    if value is None:
        return "depends on the size"
    return repr(_DEFAULT_LABEL.get(setting["type"], str)(value))


def _range(setting):
    kind = setting["type"]
    if kind == "choice":
        return "{" + ", ".join(map(repr, setting["choices"].split("|"))) + "}"
    if kind in ("integer", "number"):
        unit = f" {setting['unit']}" if setting["unit"] else ""
        return f"{'int' if kind == 'integer' else 'float'}, {setting['low']:.10g} to {setting['high']:.10g}{unit}"
    return "bool" if kind == "switch" else "str"


def _setting_text(name, setting):
    late = "" if setting["at_once"] else " To be set before the first frame, or after ``reset()``."
    return f"{name} : {_range(setting)}, default {_default(setting)}\n    {setting['help'].rstrip('.')}.{late}"


def _property(name, setting):
    key, kind = setting["name"], setting["type"]

    def get(self):
        if kind in ("choice", "text"):
            return self._text(key)
        value = self._number(key)
        return bool(value) if kind == "switch" else int(value) if kind == "integer" else value

    return property(get, lambda self, value: self._change(name, value), doc=_setting_text(name, setting))


class _Methods:
    """What some of the classes have; the extension has the descriptions."""

    def process(self, frame, out=None):
        return self._process(frame, out)

    def learn(self, frames):
        self._learn(frames.read_all() if isinstance(frames, FrameSequence) else _arguments.frames(frames))

    def learn_statistics(self, mean, deviation):
        self._learn_statistics(mean, deviation)

    def result(self, name, out=None):
        return self._result(_arguments.text("name", name), out)


for _name, _method in list(vars(_Methods).items()):
    if callable(_method):
        # Behind the extension's own line, which tells its types.
        _method.__doc__ = getattr(_vxkit.Object, "_" + _name).__doc__.partition("\n\n")[2]
        _method.__qualname__ = _name

_FILTER_TEXT = """Works on a stream, frame by frame, and learns from it. Frames are uint16 counts or int16 samples."""
_ENGINE_TEXT = """Keeps the latest frames and makes one image of twice the size with each."""


def _class(name, kind, family, summary):
    table = {_python(setting["name"]): setting for setting in _vxkit.settings(kind)}
    lines = [_setting_text(*entry) for entry in table.items()]
    text = "\n".join(
        [
            summary,
            "",
            _ENGINE_TEXT if family == "superres" else _FILTER_TEXT,
            "",
            "One call at a time; different objects may be used in different threads at once.",
            "",
            "Parameters",
            "----------",
            "width, height : int",
            "    Size of the frames in pixels.",
            *lines,
            "",
            "Each setting is also an attribute.",
        ]
    )
    members = {"__doc__": text, "__module__": "vxkit", "_kind": kind, "_table": table}
    members.update({entry: _property(entry, setting) for entry, setting in table.items()})
    if family == "filter":
        members["process"] = _Methods.process
    if kind == "cluster":
        members["learn"] = _Methods.learn
        members["learn_statistics"] = _Methods.learn_statistics
    if family == "superres" or kind in ("enhancer", "cluster"):
        members["result"] = _Methods.result
    return type(name, (_Engine if family == "superres" else _Settings,), members)


def _classes():
    kinds = {kind: (family, summary) for kind, family, summary in _vxkit.kinds()}
    return {name: _class(name, kind, *kinds[kind]) for name, kind in CLASSES.items() if kind in kinds}


globals().update(_classes())
__all__ = ["BurstReport", *CLASSES]
