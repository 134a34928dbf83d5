#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Times calls from Python and the same calls from C in one run, at 160x120, and prints their ratio.

usage: python_benchmark.py LIBVXKIT.so    (with the package on PYTHONPATH)

Both call the same library on the same frames and take turns, so that a busy neighbour hits both; the fastest of many turns
counts. The calls from C go through ctypes with everything prepared ahead, and their own cost, that of a call that does nothing,
is taken off.
"""

import ctypes
import sys
import time

import numpy as np

import vxkit

WIDTH, HEIGHT = 160, 120
TYPES = {"uint16": 2, "float32": 5}


class Image(ctypes.Structure):
    _fields_ = [("data", ctypes.c_void_p), ("width", ctypes.c_int), ("height", ctypes.c_int),
                ("stride", ctypes.c_ssize_t), ("type", ctypes.c_int)]


def image(array):
    return Image(array.ctypes.data, array.shape[1], array.shape[0], array.strides[0], TYPES[array.dtype.name])


class FromC:
    """An object of the C interface whose calls are prepared."""

    def __init__(self, library, kind):
        self.library = library
        self.handle = ctypes.c_void_p()
        assert library.vxkit_create(kind.encode(), WIDTH, HEIGHT, ctypes.byref(self.handle)) == 0

    def prepared(self, name, *arrays):
        images = [image(array) for array in arrays]
        call, handle = getattr(self.library, name), self.handle
        call.argtypes = [ctypes.c_void_p] + [ctypes.c_void_p] * 2
        pointers = [ctypes.addressof(one) for one in images] + [None] * (2 - len(images))
        return lambda keep=(images, arrays): call(handle, *pointers)


def seconds(work):
    start = time.perf_counter()
    work()
    return time.perf_counter() - start


def fastest(works, turns):
    best = [float("inf")] * len(works)
    for _ in range(turns):
        for place, work in enumerate(works):
            best[place] = min(best[place], seconds(work))
    return best


def tell(name, python, c, empty, turns):
    in_python, in_c, nothing = fastest((python, c, empty), turns)
    in_c -= nothing
    in_python -= seconds_of_nothing
    print(f"{name:34} Python {in_python * 1e6:9.1f} us   C {in_c * 1e6:9.1f} us   ratio {in_python / in_c:.3f}")


library = ctypes.CDLL(sys.argv[1])
vxkit.set_threads(1)
library.vxkit_set_threads(1)
library.vxkit_version_number()
rng = np.random.default_rng(1)
counts = (15000 + 40 * np.arange(WIDTH) + rng.normal(0, 20, (HEIGHT, WIDTH))).astype(np.uint16)
out = np.empty_like(counts)
nothing = library.vxkit_version_number
seconds_of_nothing = min(seconds(lambda: None) for _ in range(1000))

for name, kind, made in [
    ("Enhancer.process", "enhancer", vxkit.Enhancer),
    ("TemporalFilter.process", "temporal", vxkit.TemporalFilter),
    ("StaticPatternFilter.process", "static-pattern", vxkit.StaticPatternFilter),
    ("SpatialFilter.process", "spatial", vxkit.SpatialFilter),
]:
    ours, theirs = made(WIDTH, HEIGHT), FromC(library, kind)
    from_c = theirs.prepared("vxkit_process", counts, out)
    tell(name + ", out given", lambda: ours.process(counts, out), from_c, nothing, 2000)
    tell(name + ", new array", lambda: ours.process(counts), from_c, nothing, 2000)

burst = vxkit.simulate_burst(width=WIDTH, height=HEIGHT).frames
result = np.empty((2 * HEIGHT, 2 * WIDTH), np.float32)


def burst_from_c():
    engine = FromC(library, "production")
    for frame in burst:
        assert engine.prepared("vxkit_add_frame", frame)() == 0
    shape = image(result)
    assert library.vxkit_result(engine.handle, b"image", ctypes.byref(shape)) == 0
    library.vxkit_release(engine.handle)


tell("superres, five frames", lambda: vxkit.superres(burst), burst_from_c, nothing, 15)
