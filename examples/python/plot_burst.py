#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Plots a simulated burst, what super-resolution makes of it, and the truth.

usage: plot_burst.py PICTURE.png
"""

import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

import vxkit

if len(sys.argv) != 2:
    sys.exit(__doc__)

burst = vxkit.simulate_burst("facade", width=160, height=120, seed=4)
result = vxkit.superres(burst.frames)
repeated = np.kron(burst.frames[1], np.ones((2, 2), np.float32))

low, high = np.percentile(burst.truth, (0.5, 99.5))
figure, axes = plt.subplots(2, 2, figsize=(11, 8.5), constrained_layout=True)
colours = {"cmap": "inferno", "vmin": low, "vmax": high, "interpolation": "nearest"}


def show(axis, image, title):
    shown = axis.imshow(image, **colours)
    axis.set_title(title)
    axis.set_axis_off()
    return shown


def score(image):
    found = vxkit.compare(image, burst.truth, margin=12)
    return f"{found.psnr:.1f} dB, SSIM {found.ssim:.3f}"


show(axes[0, 0], repeated, f"One frame, pixels repeated ({score(repeated)})")
show(axes[0, 1], result.image, f"Five frames, super-resolved ({score(result.image)})")
figure.colorbar(show(axes[1, 0], burst.truth, "Truth"), ax=axes[1, 0], label="deg C", shrink=0.8)

places = axes[1, 1]
places.plot(*burst.shifts.T, "o", label="true", markersize=11, fillstyle="none")
places.plot(*result.shifts.T, "x", label="found")
for number, (x, y) in enumerate(burst.shifts):
    places.annotate(f"  {number}", (x, y))
places.set_title("Where the scene lies in each frame")
places.set_xlabel("pixels to the right")
places.set_ylabel("pixels down")
places.invert_yaxis()
places.legend()

figure.savefig(sys.argv[1], dpi=100)
print(f"{sys.argv[1]}: {result}, {score(result.image)}")
