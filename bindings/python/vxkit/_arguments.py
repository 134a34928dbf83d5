# SPDX-License-Identifier: Apache-2.0
"""What arguments may be: each of these gives the value in the form that the extension takes, or raises ValueError."""

import math
import operator
import os

import numpy as np


def _expected(name, value, what):
    return ValueError(f"{name}: expected {what}, found {value!r:.200}")


def integer(name, value, low, high):
    """A whole number of any type that Python counts with."""
    what = f"a whole number from {low} to {high}"
    if isinstance(value, (bool, np.bool_)):
        raise _expected(name, value, what)
    try:
        number = operator.index(value)
    except TypeError:
        raise _expected(name, value, what) from None
    if not low <= number <= high:
        raise _expected(name, number, what)
    return number


def number(name, value, low=-math.inf, high=math.inf):
    """A finite number."""
    what = "a number" if math.isinf(low) else f"a number from {low:g} on" if math.isinf(high) else (
        f"a number from {low:g} to {high:g}")
    if isinstance(value, (str, bytes)):
        raise _expected(name, value, what)
    try:
        found = float(value)
    except (TypeError, ValueError):
        raise _expected(name, value, what) from None
    if not (math.isfinite(found) and low <= found <= high):
        raise _expected(name, value, what)
    return found


def flag(name, value):
    if not isinstance(value, (bool, np.bool_)) and not (isinstance(value, int) and value in (0, 1)):
        raise _expected(name, value, "True or False")
    return bool(value)


def choice(name, value, choices):
    if not isinstance(value, str) or value not in choices:
        *others, last = choices
        raise ValueError(f"{name} {value}: expected {', '.join(others)} or {last}")
    return value


def text(name, value):
    if not isinstance(value, str):
        raise _expected(name, value, "a text")
    return value


def path(name, value):
    """The bytes of a file's name, and its text."""
    if not isinstance(value, (str, bytes, os.PathLike)):
        raise _expected(name, value, "the name of a file")
    name_bytes = os.fsencode(value)
    if b"\0" in name_bytes:
        raise _expected(name, value, "the name of a file, which holds no null character")
    return name_bytes, os.fsdecode(name_bytes)


def pair(name, value, what):
    """Two things."""
    try:
        first, second = value
    except (TypeError, ValueError):
        raise _expected(name, value, what) from None
    return first, second


def frames(value):
    """Frames for the extension, which makes a recording of arrays."""
    if isinstance(value, (str, bytes, os.PathLike)):
        raise ValueError(f"frames: expected arrays or a recording, found the name {value!r}; vxkit.read() opens files")
    if isinstance(value, (dict, set)):
        raise _expected("frames", type(value).__name__, "arrays or a recording")
    return getattr(value, "_files", value)
