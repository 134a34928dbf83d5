# SPDX-License-Identifier: Apache-2.0
"""The program beside which results are held, and recordings from it."""

import os
import subprocess

import numpy as np
import pytest

import vxkit


@pytest.fixture(scope="session")
def program():
    """Runs the program `vxkit`; its path comes from the environment."""
    path = os.environ["VXKIT_PROGRAM"]

    def run(*arguments):
        done = subprocess.run([path, *map(str, arguments)], capture_output=True, text=True)
        assert done.returncode == 0, done.stderr
        return done.stdout

    return run


@pytest.fixture(scope="session")
def burst(program, tmp_path_factory):
    """Five frames of a simulated burst, degrees; with the file that holds them."""
    folder = tmp_path_factory.mktemp("burst")
    program("simulate", folder, "--size", "96x72", "--format", "pfm", "--seed", "3")
    frames = vxkit.read(sorted(folder.glob("frame-*.pfm"))).read_all()
    vxkit.write(folder / "burst.tiff", frames)
    return folder / "burst.tiff", frames


@pytest.fixture(scope="session")
def stream(program, tmp_path_factory):
    """A simulated recording of counts with noise and stripes; with the headerless file that holds it."""
    folder = tmp_path_factory.mktemp("stream")
    program("simulate", folder, "--stream", "--size", "64x48", "--format", "raw", "--frames", "24", "--defects", "3",
            "--column-offset", "0.1")
    frames = vxkit.read(folder / "frame.raw", size=(64, 48)).read_all()
    return folder / "frame.raw", frames


def same_bits(a, b):
    a, b = np.asarray(a), np.asarray(b)
    return a.dtype == b.dtype and a.shape == b.shape and a.tobytes() == b.tobytes()
