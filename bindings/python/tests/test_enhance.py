# SPDX-License-Identifier: Apache-2.0
"""enhance() against the program."""

import numpy as np
import pytest
from conftest import same_bits

import vxkit


@pytest.mark.parametrize(
    "look, settings",
    [
        (None, {}),
        ("strong", {"lookahead": 0, "bad_pixels": "off"}),
        ("device", {"tnr_alpha": 80, "hist_mode": "plateau", "snr": False}),
        ("flat", {"hist": False, "scale": 0.01, "offset": -273.15}),
    ],
    ids=["default", "live", "device", "values"],
)
def test_gives_the_bits_of_the_program(program, stream, tmp_path, look, settings):
    path, frames = stream
    options = ["--look", look] if look else []
    for name, value in settings.items():
        option = name.replace("_", "-")
        options += ["--no-" + option] if value is False else ["--" + option, value]
    program("enhance", path, "--size", "64x48", "-o", tmp_path / "enhanced.npy", *options)
    assert same_bits(vxkit.enhance(frames, look, **settings), np.load(tmp_path / "enhanced.npy"))


def test_gives_the_same_frame_by_frame_and_into_an_array(stream, tmp_path):
    path, frames = stream
    expected = vxkit.enhance(frames)
    recording = vxkit.read(path, size="64x48")
    enhanced = vxkit.enhance_frames(recording)
    assert same_bits(list(enhanced), expected)
    assert same_bits(list(enhanced), expected), "a second walk starts anew"
    memory = np.lib.format.open_memmap(tmp_path / "map.npy", "w+", enhanced.dtype, enhanced.shape)
    assert vxkit.enhance(recording, out=memory) is memory
    assert same_bits(memory, expected)
    vxkit.write(tmp_path / "written.tiff", enhanced)
    assert same_bits(vxkit.read(tmp_path / "written.tiff").read_all(), expected)


@pytest.mark.parametrize("type", [np.uint16, np.float32, np.int32])
def test_takes_what_was_found_of_the_whole_recording(stream, type):
    frames = stream[1].astype(type)
    found = vxkit.survey(frames)
    assert found.noise > 0 and found.bad_pixels.shape == frames.shape[1:]
    for form in (frames, list(frames)):
        assert same_bits(vxkit.enhance(form, survey=found), vxkit.enhance(frames))
    # In the part everything but the noise blocks' learning is as in the whole: the bad pixels are those of the whole.
    part = vxkit.enhance_frames(frames[5:12], survey=found)
    assert part.survey is found and len(list(part)) == 7
    marked = np.zeros(frames.shape[1:], np.uint8)
    assert not same_bits(vxkit.enhance(frames, bad_pixels=marked), vxkit.enhance(frames))
    assert same_bits(vxkit.enhance(frames, bad_pixels=marked), vxkit.enhance(frames, bad_pixels="off"))


def test_says_what_is_wrong(stream):
    frames = stream[1]
    for wrong, words in [
        (lambda: vxkit.enhance(frames, "nice"), "look nice: expected natural, strong"),
        (lambda: vxkit.enhance(frames, tnr_alpha=101), "tnr_alpha 101: expected 0 to 100"),
        (lambda: vxkit.enhance(frames, tnr_alpha="x"), "tnr_alpha: expected a whole number from 0 to 100, found 'x'"),
        (lambda: vxkit.enhance(frames, hist_mode="round"), "hist_mode round: expected one of off"),
        (lambda: vxkit.enhance(frames, tnr_beta=1), "tnr_beta: no setting of the chain; expected one of tnr,"),
        (lambda: vxkit.enhance(frames[:, :, :1]), "at least two columns"),
        (lambda: vxkit.enhance(frames, out=np.empty((1, 48, 64), np.uint16)), r"\(1, 48, 64\).*\(24, 48, 64\)"),
        (lambda: vxkit.enhance(frames, bad_pixels=np.zeros((3, 3), np.uint8)), r"uint8 \(3, 3\).*\(48, 64\)"),
        (lambda: vxkit.enhance(frames, bad_pixels=None), "bad_pixels: expected 'auto', 'off'"),
        (lambda: vxkit.enhance_frames(frames, lookahead=-1), "lookahead: expected a whole number from 0 to 1000, found -1"),
        (lambda: vxkit.enhance(frames, peak="off"), "peak: expected True or False, found 'off'"),
        (lambda: vxkit.enhance(frames, survey=3), "survey: expected what vxkit.survey"),
        (lambda: vxkit.enhance("night.raw"), "found the name 'night.raw'; vxkit.read"),
        (lambda: vxkit.enhance(np.ma.masked_less(frames, frames.mean())), "masked pixels"),
        (lambda: vxkit.enhance(frames[:-1], out=frames[1:].view()), "lies on frame 1 in another place"),
    ]:
        with pytest.raises(ValueError, match=words):
            wrong()
    for option in ("settings_file", "bad_pixels"):
        with pytest.raises(FileNotFoundError, match="none: no such file"):
            vxkit.enhance(frames, **{option: "none"})


def test_one_walk_at_a_time_and_results_in_place(stream):
    frames = stream[1].copy()
    enhanced = vxkit.enhance_frames(frames)
    expected = np.array(enhanced)
    former = iter(enhanced)
    next(former)
    assert same_bits(next(iter(enhanced)), expected[0])
    with pytest.raises(vxkit.Error, match="ended by a later one"):
        next(former)
    assert vxkit.enhance(frames, out=frames) is frames and same_bits(frames, expected)


def test_tells_of_values_that_are_none_and_of_inverted_maps(stream, caplog):
    frames = stream[1].astype(np.float32)
    whole = vxkit.enhance(frames, bad_pixels=np.zeros(frames.shape[1:], bool))
    assert not caplog.records
    frames[3, 5, 7:9] = np.nan, np.inf
    assert np.count_nonzero(vxkit.enhance(frames, bad_pixels="off")[3] != whole[3]) < 200
    assert "2 values were no numbers" in caplog.text
    vxkit.enhance(frames, bad_pixels=np.ones(frames.shape[1:], bool))
    assert "marks 3072 of 3072 pixels" in caplog.text
