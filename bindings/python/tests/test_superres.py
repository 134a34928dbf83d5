# SPDX-License-Identifier: Apache-2.0
"""superres() and compare() against the program."""

import json
import os
import subprocess
import sys

import numpy as np
import pytest
from conftest import same_bits

import vxkit


@pytest.mark.parametrize(
    "settings",
    [
        {},
        {"engine": "phase", "window": 4, "reference": 1},
        {"engine": "reference", "iterations": 8},
        {"camera": "k325 FOV25", "weight": 40.0, "relative_residue": 0.01, "registration_error": 0.9},
        {"motion": "local", "psf_sigma": 0.5},
        {"motion": "single"},
        {"motion": "auto"},
    ],
    ids=lambda settings: "-".join(map(str, settings.values())) or "default",
)
def test_gives_the_bits_of_the_program(program, burst, tmp_path, settings):
    path, frames = burst
    options = [word for name, value in settings.items() for word in ("--" + name.replace("_", "-"), value)]
    told = json.loads(program("superres", path, "--last", "--report", "--json", "-o", tmp_path / "result.tif", *options))
    result = vxkit.superres(frames, **settings)
    assert same_bits(result.image, vxkit.read(tmp_path / "result.tif")[0])
    (expected,) = told["results"]
    assert (result.code, result.message) == (expected["code"], expected["meaning"])
    shifts = [(frame["shiftX"], frame["shiftY"]) for frame in expected.get("window", [])]
    assert np.array_equal(result.shifts, np.reshape(shifts, (-1, 2)))
    assert result.iterations == expected.get("steps")


@pytest.mark.parametrize("engine", ["production", "fixed"])
def test_takes_counts_as_the_program_does(program, stream, tmp_path, engine):
    path, frames = stream
    program("superres", path, "--size", "64x48", "--frames", "2:5", "--engine", engine, "-o", tmp_path / "result.tif")
    result = vxkit.superres(frames[:7], engine=engine)
    assert same_bits(result.image, vxkit.read(tmp_path / "result.tif")[0])


def test_takes_frames_in_any_form(burst):
    path, frames = burst
    expected = vxkit.superres(frames).image
    padded = np.zeros((5, 80, 128), np.float32)
    padded[:, 4:76, 8:104] = frames
    for form in (list(frames), vxkit.read(path), frames.astype(">f4"), padded[:, 4:76, 8:104],
                 np.asfortranarray(frames), frames.astype(np.float64)):
        assert same_bits(vxkit.superres(form).image, expected)
    assert same_bits(vxkit.superres(frames[:, ::-1]).image, vxkit.superres(frames[:, ::-1].copy()).image)


# A child of which nothing comes back hangs; so it runs where it can be given up.
def test_computes_in_a_forked_child(burst):
    script = """
import multiprocessing, sys, vxkit
def work(engine):
    frames = vxkit.read(sys.argv[1])
    return vxkit.superres(frames, **engine).image.tobytes()
engines = [{}, {"engine": "phase"}, {"engine": "reference"}, {"motion": "local"}]
before = [work(engine) for engine in engines]
with multiprocessing.get_context("fork").Pool(2) as pool:
    assert pool.map(work, engines) == before
"""
    surroundings = {**os.environ, "OMP_NUM_THREADS": "3"}
    subprocess.run([sys.executable, "-c", script, burst[0]], env=surroundings, check=True, timeout=120)


def test_says_what_is_wrong_with_the_input(burst):
    frames = burst[1]
    for wrong, words in [
        (lambda: vxkit.superres(frames[:3]), "3 frames in all; expected at least 5"),
        (lambda: vxkit.superres(frames, psf_sigma=-1), "psf_sigma -1: expected a number above 0"),
        (lambda: vxkit.superres(frames, window=1), "window 1: expected 2 to 64"),
        (lambda: vxkit.superres(frames, window="many"), "window: expected a number without fraction, found 'many'"),
        (lambda: vxkit.superres(frames, engine="steam"), "engine steam: expected production, phase"),
        (lambda: vxkit.superres(frames, motion="local", weight=30), "weight: has no meaning"),
        (lambda: vxkit.superres([frames[0], frames[0][:50]]), r"float32 \(50, 96\).*float32 \(72, 96\)"),
        (lambda: vxkit.superres([frames[0], frames[0].astype("u2")]), r"uint16 \(72, 96\).*float32 \(72, 96\)"),
        (lambda: vxkit.superres(frames.astype(complex)), "holds complex128; expected one of uint8"),
        (lambda: vxkit.superres(frames[np.newaxis]), r"shape \(1, 5, 72, 96\)"),
        (lambda: vxkit.superres(7), "expected an array"),
        (lambda: vxkit.superres([]), "holds no frames"),
    ]:
        with pytest.raises(ValueError, match=words):
            wrong()


def test_raises_the_code_of_a_burst_without_result():
    with pytest.raises(vxkit.Error, match="no corner") as caught:
        vxkit.superres(np.zeros((5, 72, 96), np.float32))
    assert caught.value.code == -9


def test_compares_as_the_program_does(program, burst, tmp_path):
    frames = burst[1]
    vxkit.write(tmp_path / "a.tiff", frames[0])
    vxkit.write(tmp_path / "b.tiff", frames[1])
    for options, arguments in [([], {}), (["--align", "--margin", "4"], {"align": True, "margin": 4})]:
        told = json.loads(program("compare", tmp_path / "a.tiff", tmp_path / "b.tiff", "--json", *options))["images"][0]
        found = vxkit.compare(frames[0], frames[1], **arguments)
        assert (found.psnr, found.ssim, found.largest_difference, found.margin) == (
            told["psnr"], told["ssim"], told["largestDifference"], told["margin"])
    with pytest.raises(ValueError, match=r"\(72, 96\).*\(40, 96\)"):
        vxkit.compare(frames[0], frames[0][:40])
    with pytest.raises(ValueError, match="margin 40"):
        vxkit.compare(frames[0], frames[1], margin=40)
    with pytest.raises(ValueError, match="1 pixels are infinite"):
        vxkit.compare(np.where(np.eye(72, 96) * np.arange(96) == 3, np.nan, frames[0]), frames[1])
