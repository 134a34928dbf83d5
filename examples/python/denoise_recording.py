#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Takes noise and stripes from a recording, frame by frame, values kept.

usage: denoise_recording.py INPUT OUTPUT [WIDTHxHEIGHT]    (the size of a headerless INPUT)
"""

import sys

import numpy as np

import vxkit

if len(sys.argv) not in (3, 4):
    sys.exit(__doc__)
source, target = sys.argv[1:3]

recording = vxkit.read(source, size=sys.argv[3] if len(sys.argv) == 4 else None)
if recording.dtype != np.uint16:
    sys.exit(f"{source}: holds {recording.dtype}; expected 16-bit counts")
_, height, width = recording.shape
pattern = vxkit.StaticPatternFilter(width, height)
temporal = vxkit.TemporalFilter(width, height, feedback_factor=80)


class Denoised:
    """Computes each frame when it is written, so that a recording of any length fits."""

    shape, dtype = recording.shape, recording.dtype

    def __len__(self):
        return len(recording)

    def __iter__(self):
        frame = np.empty((height, width), np.uint16)
        for number in range(len(recording)):
            recording.read_into(number, frame)
            pattern.process(frame, out=frame)
            temporal.process(frame, out=frame)
            yield frame


print(vxkit.write(target, Denoised()))


def flicker(frames):
    """How far a pixel's value strays from a frame to the next: the median over the pixels, which no moving thing reaches."""
    return np.median(np.diff(frames[-10:].astype(np.float64), axis=0).std(axis=0))


after = vxkit.read(target, size=f"{width}x{height}" if target.endswith(".raw") else None)
print(f"flicker from frame to frame: {flicker(recording):.3g} counts before, {flicker(after):.3g} after")
