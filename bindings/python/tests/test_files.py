# SPDX-License-Identifier: Apache-2.0
"""Reading and writing in every format of the table."""

import logging
import os
import pickle

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
    for index in (0, -1, slice(None), slice(2, 0, -1), slice(5, 9), (slice(0, 2), 3), (1, slice(2, 5), 4), ..., (..., 2),
                  [2, 0], np.array([True, False, True]), (), (slice(1), ..., 3)):
        assert same_bits(recording[index], frames[index])
    assert same_bits(list(recording), frames) and same_bits(np.asarray(recording), frames)
    out = np.zeros((12, 32), np.uint16)
    recording.read_into(1, out[:, ::2].copy())
    assert recording.read_into(1, out[:, 8:24]).base is out and same_bits(out[:, 8:24], frames[1])
    for wrong in (3, -4):
        with pytest.raises(IndexError, match=f"frame {wrong}: expected 0 to 2"):
            recording[wrong]
    with pytest.raises(TypeError, match="frame 1.0: expected a number"):
        recording[1.0]
    assert same_bits(pickle.loads(pickle.dumps(recording))[1], frames[1])
    for wrong in (out, out[:, ::2], out[:, :16].astype("f4"), "here"):
        with pytest.raises(ValueError, match="^out: "):
            recording.read_into(0, wrong)


def test_reads_parts_and_headerless_layouts(tmp_path):
    frames = some_frames("int16")
    path = tmp_path / "frames.bin"
    path.write_bytes(b"abc" + b"".join(b"hd" + frame.astype(">i2").tobytes() for frame in frames))
    recording = vxkit.read(path, size="16x12", dtype=np.int16, endian="big", header=3, frame_header=2, frames=(1, 2))
    assert recording.first_number == 1 and same_bits(recording.read_all(), frames[1:])
    same = vxkit.read(os.fsencode(path), size=(16, 12), dtype=">i2", header=3, frame_header=2, frames="1:2")
    assert same_bits(same.read_all(), recording.read_all()), "numpy's types tell the byte order, too"


def test_takes_names_that_are_no_text(tmp_path):
    path = os.fsencode(tmp_path) + b"/n\xff.npy"
    assert vxkit.write(path, some_frames("uint16")).startswith(os.fsdecode(path))
    assert vxkit.read(path).paths == (os.fsdecode(path),) and len(vxkit.read(os.fsdecode(path))) == 3
    with pytest.raises(FileNotFoundError, match="none\udcff.raw: no such file"):
        vxkit.read(os.fsdecode(b"none\xff.raw"))


def test_a_recording_is_written_as_often_as_one_likes(tmp_path):
    vxkit.write(tmp_path / "in.npy", np.arange(3 * 4 * 5, dtype=np.uint16).reshape(3, 4, 5))
    recording = vxkit.read(tmp_path / "in.npy")
    for _ in range(3):
        vxkit.write(tmp_path / "out.npy", recording, force=True)
    assert np.array_equal(vxkit.read(tmp_path / "out.npy").read_all(), recording.read_all())


class Liar(list):
    def __len__(self):
        return 2


def test_errors_tell_what_is_the_matter_with_files(tmp_path, caplog):
    frames = some_frames("uint16")
    path = tmp_path / "frames.tiff"
    vxkit.write(path, frames)
    before = path.read_bytes()
    (tmp_path / "half.npy").write_bytes(b"\x93NUMPY")
    vxkit.write(tmp_path / "gone.npy", frames)
    gone = vxkit.read(tmp_path / "gone.npy")
    os.remove(gone.paths[0])
    for wrong, kind, words in [
        (lambda: vxkit.read(tmp_path / "none.tiff"), FileNotFoundError, "none.tiff: no such file"),
        (lambda: vxkit.read(tmp_path / "half.npy"), OSError, "half.npy"),
        (lambda: vxkit.read(path, size=(16, 12)), OSError, "tells its own size"),
        (lambda: vxkit.read(path, frames=(2, 5)), ValueError, "frames 2:5: goes beyond"),
        (lambda: vxkit.read([]), ValueError, "at least one file"),
        (lambda: vxkit.read(path, dtype="int64"), ValueError, "dtype int64"),
        (lambda: vxkit.read(path, dtype="float32"), ValueError, "holds uint16; expected a dtype for headerless"),
        (lambda: vxkit.read(path, size=(1, 2, 3)), ValueError, "size: expected .width, height."),
        (lambda: vxkit.read("x", size=(16, 12), dtype=">u2", endian="little"), ValueError, "expected big, as dtype"),
        (lambda: vxkit.read(path, header=None), ValueError, "header: expected a whole number"),
        (lambda: vxkit.read(open(path, "rb")), ValueError, "path: expected the name of a file, found <_io"),
        (lambda: vxkit.read("a\0b.npy"), ValueError, "no null character"),
        (lambda: vxkit.write(path, vxkit.enhance_frames(vxkit.read(path)), force=True), OSError, "is an input"),
        (lambda: vxkit.write(tmp_path / "a.mp4", frames, fps=0), ValueError, "fps: expected a number from 0.1 to 1000"),
        (lambda: vxkit.write(tmp_path / "a.mp4", frames, range=7), ValueError, "range: expected .low, high."),
        (lambda: vxkit.write(tmp_path / "a.mp4", frames, colour_map="sky"), ValueError, "colour_map sky: expected infer"),
        (lambda: vxkit.write(tmp_path / "a.mp4", frames, format="doc"), ValueError, "format doc: expected raw, tiff"),
        (lambda: vxkit.write(tmp_path / "a.npy", None), ValueError, "found NoneType"),
        (lambda: vxkit.write(path, frames), FileExistsError, "exists already"),
        (lambda: vxkit.write(path, vxkit.read(path), force=True), OSError, "is an input"),
        (lambda: vxkit.write(tmp_path / "no" / "a.npy", frames), FileNotFoundError, "does not exist"),
        (lambda: vxkit.write(tmp_path / "a.xyz", frames), ValueError, "output name that ends in"),
        (lambda: vxkit.write(tmp_path / "a.png", frames.astype("f4")), ValueError, "don't hold 32-bit floats"),
        (lambda: vxkit.write(tmp_path / "a.npy", [frames[0], frames[1].T]), ValueError, r"\(16, 12\).*\(12, 16\)"),
        (lambda: vxkit.write(tmp_path / "a.npy", []), ValueError, "holds no frames"),
        (lambda: vxkit.write(tmp_path / "a.npy", Liar(frames)), ValueError, "gave 3 frames or more; expected 2, as their length"),
        (lambda: vxkit.enhance(gone), FileNotFoundError, "gone.npy: no such file"),
        (lambda: vxkit.write("/dev/full", frames, format="raw"), OSError, "/dev/full"),
    ]:
        with pytest.raises(kind, match=words) as caught:
            wrong()
        assert caught.type is kind
    assert path.read_bytes() == before and not (tmp_path / "a.npy").exists()
    vxkit.write(path, frames[:1], force=True)
    assert len(vxkit.read(path)) == 1


@pytest.mark.parametrize("ending", ["tiff", "h5", "png"])
def test_libraries_tell_nothing_of_damaged_files(tmp_path, capfd, ending):
    path = tmp_path / f"frames.{ending}"
    vxkit.write(path, some_frames("uint16")[:1])
    whole = path.read_bytes()
    for place in range(8, len(whole), max(1, len(whole) // 60)):
        for damaged in (whole[:place], whole[:place] + bytes([whole[place] ^ 255]) + whole[place + 1:]):
            path.write_bytes(damaged)
            try:
                vxkit.read(path).read_all()
            except (OSError, MemoryError) as error:
                assert str(path) in str(error)
    assert capfd.readouterr() == ("", "")


def test_warnings_reach_the_log(tmp_path, caplog, capfd):
    frames = np.tile(np.arange(3000, 3064, dtype="u2"), (4, 48, 1)) + np.random.default_rng(1).integers(0, 3, (4, 48, 64))
    (tmp_path / "swapped.raw").write_bytes(frames.astype(">u2").tobytes())
    with caplog.at_level(logging.WARNING, "vxkit"):
        vxkit.read(tmp_path / "swapped.raw", size="64x48")
        assert "bytes of the samples look swapped" in caplog.text and "; endian little or big" in caplog.text
        frames.astype("u2").tofile(tmp_path / "right.raw")
        caplog.clear()
        vxkit.read(tmp_path / "right.raw", size=(64, 48))
        assert not caplog.records
        vxkit.read(tmp_path / "right.raw", size=(48, 64))
        assert "rows were 64 pixels long; size names the width first" in caplog.text
    assert capfd.readouterr() == ("", "")
