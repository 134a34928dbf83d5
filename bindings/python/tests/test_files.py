# SPDX-License-Identifier: Apache-2.0
"""Reading and writing in every format of the table."""

import logging
import os

import numpy as np
import pytest
from conftest import same_bits

import vxkit

LOSSLESS = [(entry["name"], type) for entry in vxkit.formats() for type in entry["writes"] if entry["reads"]
            and entry["name"] not in ("mp4", "avi")]


def some_frames(type):
    values = np.random.default_rng(1).integers(0, 200, (3, 12, 16))
    return (values * (1 if np.dtype(type).kind in "ui" else 1.25)).astype(type)


@pytest.mark.parametrize("name, type", LOSSLESS)
def test_reads_back_what_it_wrote(tmp_path, name, type):
    (entry,) = (entry for entry in vxkit.formats() if entry["name"] == name)
    frames = some_frames(type)
    path = tmp_path / ("frames" + entry["endings"][0])
    assert "12" in vxkit.write(path, frames)
    files = sorted(file for file in tmp_path.iterdir() if file.suffix != ".sha256")
    assert len(files) == (3 if entry["one_file_per_frame"] else 1)
    layout = {"size": (16, 12), "dtype": type} if name == "raw" else {"dtype": type} if name == "csv" else {}
    recording = vxkit.read(files, **layout)
    assert recording.shape == (3, 12, 16) and recording.dtype == type
    assert same_bits(recording.read_all(), frames)


def test_a_recording_acts_like_an_array(tmp_path):
    frames = some_frames("uint16")
    vxkit.write(tmp_path / "frames.npy", frames)
    recording = vxkit.read(tmp_path / "frames.npy")
    assert len(recording) == 3
    for index in (0, -1, slice(None), slice(2, 0, -1), slice(5, 9), (slice(0, 2), 3), (1, slice(2, 5), 4)):
        assert same_bits(recording[index], frames[index])
    assert same_bits(list(recording), frames) and same_bits(np.asarray(recording), frames)
    out = np.zeros((12, 32), np.uint16)
    recording.read_into(1, out[:, ::2].copy())
    assert recording.read_into(1, out[:, 8:24]).base is out and same_bits(out[:, 8:24], frames[1])
    for wrong in (3, -4):
        with pytest.raises(IndexError, match="expected 0 to 2"):
            recording[wrong]
    for wrong in (out, out[:, ::2], out[:, :16].astype("f4"), "here"):
        with pytest.raises(ValueError, match="^out: "):
            recording.read_into(0, wrong)


def test_reads_parts_and_headerless_layouts(tmp_path):
    frames = some_frames("int16")
    path = tmp_path / "frames.bin"
    path.write_bytes(b"abc" + b"".join(b"hd" + frame.astype(">i2").tobytes() for frame in frames))
    recording = vxkit.read(path, size="16x12", dtype=np.int16, endian="big", header=3, frame_header=2, frames=(1, 2))
    assert recording.first_number == 1 and same_bits(recording.read_all(), frames[1:])


def test_a_recording_is_written_as_often_as_one_likes(tmp_path):
    vxkit.write(tmp_path / "in.npy", np.arange(3 * 4 * 5, dtype=np.uint16).reshape(3, 4, 5))
    recording = vxkit.read(tmp_path / "in.npy")
    for _ in range(3):
        vxkit.write(tmp_path / "out.npy", recording, force=True)
    assert np.array_equal(vxkit.read(tmp_path / "out.npy").read_all(), recording.read_all())


def test_errors_tell_what_is_the_matter_with_files(tmp_path, caplog):
    frames = some_frames("uint16")
    path = tmp_path / "frames.tiff"
    vxkit.write(path, frames)
    before = path.read_bytes()
    (tmp_path / "half.npy").write_bytes(b"\x93NUMPY")
    for wrong, kind, words in [
        (lambda: vxkit.read(tmp_path / "none.tiff"), FileNotFoundError, "none.tiff: no such file"),
        (lambda: vxkit.read(tmp_path / "half.npy"), OSError, "half.npy"),
        (lambda: vxkit.read(path, size=(16, 12)), OSError, "tells its own size"),
        (lambda: vxkit.read(path, frames=(2, 5)), ValueError, "frames 2:5: goes beyond"),
        (lambda: vxkit.read([]), ValueError, "at least one file"),
        (lambda: vxkit.read(path, dtype="int64"), ValueError, "dtype int64"),
        (lambda: vxkit.write(path, frames), FileExistsError, "exists already"),
        (lambda: vxkit.write(path, vxkit.read(path), force=True), OSError, "is an input"),
        (lambda: vxkit.write(tmp_path / "no" / "a.npy", frames), FileNotFoundError, "does not exist"),
        (lambda: vxkit.write(tmp_path / "a.xyz", frames), ValueError, "output name that ends in"),
        (lambda: vxkit.write(tmp_path / "a.png", frames.astype("f4")), ValueError, "don't hold 32-bit floats"),
        (lambda: vxkit.write(tmp_path / "a.npy", [frames[0], frames[1].T]), ValueError, r"\(16, 12\).*\(12, 16\)"),
        (lambda: vxkit.write(tmp_path / "a.npy", []), ValueError, "holds no frames"),
        (lambda: vxkit.write("/dev/full", frames, format="raw"), OSError, "/dev/full"),
    ]:
        with pytest.raises(kind, match=words) as caught:
            wrong()
        assert caught.type is kind
    assert path.read_bytes() == before and not (tmp_path / "a.npy").exists()
    vxkit.write(path, frames[:1], force=True)
    assert len(vxkit.read(path)) == 1


def test_warnings_reach_the_log(tmp_path, caplog, capfd):
    frames = np.tile(np.arange(3000, 3064, dtype="u2"), (4, 48, 1)) + np.random.default_rng(1).integers(0, 3, (4, 48, 64))
    (tmp_path / "swapped.raw").write_bytes(frames.astype(">u2").tobytes())
    with caplog.at_level(logging.WARNING, "vxkit"):
        vxkit.read(tmp_path / "swapped.raw", size="64x48")
    assert "swapped" in caplog.text
    assert capfd.readouterr() == ("", "")
