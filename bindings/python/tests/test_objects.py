# SPDX-License-Identifier: Apache-2.0
"""Engines, chain, filters and simulators as classes."""

import logging
import sys
import threading

import numpy as np
import pytest
from conftest import same_bits

import vxkit


def processed(filter, frames):
    return np.array([filter.process(frame) for frame in frames])


@pytest.mark.parametrize(
    "made, command",
    [
        (lambda w, h: vxkit.Enhancer(w, h), ["enhance", "--look", "device"]),
        (lambda w, h: vxkit.Enhancer(w, h, tnr_alpha=70, hist_mode="linear", peak=False),
         ["enhance", "--look", "device", "--tnr-alpha", 70, "--hist-mode", "linear", "--no-peak"]),
        (lambda w, h: vxkit.TemporalFilter(w, h, feedback_factor=80), ["filter", "--temporal", "--feedback-factor", 80]),
        (lambda w, h: vxkit.StaticPatternFilter(w, h), ["filter", "--pattern"]),
        (lambda w, h: vxkit.SpatialFilter(w, h, gain=9), ["filter", "--spatial", "--gain", 9]),
        (lambda w, h: vxkit.Unsharp(w, h, amount=2), ["filter", "--unsharp", "--amount", 2]),
    ],
    ids=["enhancer", "settings", "temporal", "pattern", "spatial", "unsharp"],
)
def test_frame_by_frame_gives_the_bits_of_the_program(program, stream, tmp_path, made, command):
    path, frames = stream
    program(*command, "--bad-pixels", "off", "--size", "64x48", path, "-o", tmp_path / "result.npy")
    expected = np.load(tmp_path / "result.npy")
    filter = made(64, 48)
    assert same_bits(processed(filter, frames), expected)
    filter.reset()
    out = np.zeros((48, 80), np.uint16)
    for frame, wanted in zip(frames, expected):
        assert filter.process(frame, out=out[:, 8:72]).base is out
        assert same_bits(out[:, 8:72], wanted) and not out[:, :8].any() and not out[:, 72:].any()


def test_cluster_filter_learns(program, stream, tmp_path):
    path, frames = stream
    program("filter", "--cluster", "--size", "64x48", path, "-o", tmp_path / "result.npy", "--damping", tmp_path / "d.tif")
    filter = vxkit.ClusterFilter(64, 48)
    with pytest.raises(vxkit.Error):
        filter.process(frames[0])
    filter.learn(frames)
    assert same_bits(processed(filter, frames), np.load(tmp_path / "result.npy"))
    assert same_bits(filter.result("damping"), vxkit.read(tmp_path / "d.tif")[0])


@pytest.mark.parametrize("name, settings", [("Production", {}), ("Phase", {}), ("LocalMotion", {"psf_sigma": 0.5})])
def test_engines_add_frames_as_superres_does(burst, name, settings):
    frames = burst[1]
    engine = getattr(vxkit, name)(96, 72, **settings)
    reports = [engine.add(frame) for frame in frames]
    assert [report.has_image for report in reports] == [False] * 4 + [True]
    how = {"motion": "local"} if name == "LocalMotion" else {"engine": name.lower()}
    result = vxkit.superres(frames, **how, **settings)
    assert same_bits(engine.image(), result.image) and same_bits(engine.result("image"), result.image)
    assert same_bits(reports[-1].shifts, result.shifts) and same_bits(reports[-1].usable, result.usable)
    assert (reports[-1].code, reports[-1].iterations, reports[-1].factor) == (result.code, result.iterations, result.factor)


def test_simulates_as_the_program_does(program, tmp_path):
    program("simulate", tmp_path, "--size", "48x40", "--format", "pfm", "--seed", 7, "--scene", "board", "--netd", 0.02)
    burst = vxkit.simulate_burst("board", width=48, height=40, seed=7, netd=0.02)
    assert same_bits(burst.frames, vxkit.read(sorted(tmp_path.glob("frame*.pfm"))).read_all())
    assert same_bits(burst.truth, vxkit.read(tmp_path / "truth.tiff")[0])
    assert burst.shifts.shape == (5, 2) and not burst.shifts[1].any() and burst.shifts[0].any()
    recording = vxkit.simulate_recording(width=48, height=40, frames=4)
    assert same_bits(recording.read_all(), list(recording)) and recording.shape == (4, 40, 48)
    assert not same_bits(recording.ideal(-1), recording[-1])
    with pytest.raises(IndexError):
        recording[4]


def test_settings_have_names_ranges_and_help():
    enhancer = vxkit.Enhancer(64, 48, tnr_alpha=70)
    assert enhancer.tnr_alpha == 70 and enhancer.peak is True and enhancer.hist_mode == "plateau"
    enhancer.settings = {"peak": False, "hist_mode": "linear"}
    assert enhancer.settings["peak"] is False and enhancer.hist_mode == "linear"
    assert vxkit.Enhancer(64, 48, **enhancer.settings).settings == enhancer.settings
    for wrong, words in [
        (lambda: vxkit.Enhancer(64, 48, tnr_alpha=101), "tnr.alpha.*0 to 100"),
        (lambda: setattr(enhancer, "hist_mode", "round"), "hist.mode.*linear"),
        (lambda: setattr(enhancer, "tnr_alpha", [1]), "tnr_alpha: expected a number"),
        (lambda: setattr(enhancer, "tnr_alpha", 1.5), "tnr_alpha 1.5: expected a whole number"),
        (lambda: setattr(enhancer, "tnr_alpha", True), "tnr_alpha: expected int, 0 to 100 %, found True"),
        (lambda: vxkit.Enhancer(64.0, 48), "width: expected a whole number from 1 to"),
        (lambda: vxkit.Production(64, 48, camera="mine"), "camera mine: no known camera and lens; expected one of"),
        (lambda: vxkit.superres(np.zeros((5, 48, 64)), camera="mine"), "camera mine: no known camera and lens"),
        (lambda: vxkit.Enhancer(64, 48, tnr_beta=1), "tnr_beta: no setting of Enhancer; expected one of tnr"),
        (lambda: vxkit.Production(4, 4), "4"),
        (lambda: vxkit.simulate_burst(width=48, height=40, netd=-1), "netd"),
        (lambda: vxkit.simulate_burst("moon", width=48, height=40), "scene"),
        (lambda: vxkit.simulate_burst(size=3), "size: no setting of simulate_burst"),
    ]:
        with pytest.raises(ValueError, match=words):
            wrong()
    for name, kind in vxkit._objects.CLASSES.items():
        text = getattr(vxkit, name).__doc__
        for setting in vxkit._vxkit.settings(kind):
            assert vxkit._objects._python(setting["name"]) + " : " in text and setting["help"].rstrip(".") in text
    # A misspelt setting must not become an attribute, and one that Python has a word for can be written.
    with pytest.raises(AttributeError, match="tnr_alfa: no setting of Enhancer; expected one of tnr, tnr_alpha"):
        enhancer.tnr_alfa = 5
    assert vxkit.TemporalNoiseBlock(64, 48, global_=7).global_ == 7


def test_wrong_frames_tell_both_shapes_or_types():
    enhancer = vxkit.Enhancer(64, 48)
    good = np.zeros((48, 64), np.uint16)
    canvas = np.zeros((49, 128), np.uint16)
    assert enhancer.process(canvas[:48, :64], out=canvas[:48, 64:]).base is canvas, "rows side by side"
    canvas = np.zeros((49, 64), np.uint16)
    for wrong, words in [
        (lambda: enhancer.process(good[:40]), r"uint16 \(40, 64\); expected the shape \(48, 64\)"),
        (lambda: enhancer.process(good.astype("f4")), "float32; expected uint16 counts or int16"),
        (lambda: enhancer.process(None), "expected an array, found NoneType"),
        (lambda: enhancer.process(canvas[:48], out=canvas[1:]), "out: lies partly on the frame"),
        (lambda: (enhancer.process(good), enhancer.process(good.astype("i2"))), "int16, while the frames before held uint16"),
        (lambda: vxkit.ClusterFilter(64, 48).learn([good, good.astype("f4")]), "float32"),
        (lambda: enhancer.process(good[np.newaxis]), r"shape \(1, 48, 64\)"),
        (lambda: enhancer.process(good, out=good[:40]), r"uint16 \(40, 64\).*uint16 \(48, 64\)"),
        (lambda: enhancer.process(good, out=np.zeros((48, 64, 2), np.uint16)[:, :, 0]), "lie one behind the other in a row"),
        (lambda: vxkit.Production(64, 48).add(good[:, :50]), r"\(48, 50\).*\(48, 64\)"),
    ]:
        with pytest.raises(ValueError, match=words):
            wrong()
    fixed = np.zeros((48, 64), np.uint16)
    fixed.flags.writeable = False
    with pytest.raises(ValueError, match="read-only"):
        enhancer.process(good, out=fixed)


def test_an_engine_without_result_tells_its_code():
    engine = vxkit.Production(96, 72)
    with pytest.raises(vxkit.Error) as caught:
        for _ in range(5):
            engine.add(np.zeros((72, 96), np.float32))
    assert caught.value.code == -9


def test_arrays_are_neither_kept_nor_copied(stream):
    frames = stream[1].copy()
    enhancer = vxkit.Enhancer(64, 48)
    out = np.empty_like(frames[0])
    before = sys.getrefcount(frames), sys.getrefcount(out)
    for frame in frames:
        enhancer.process(frame, out)
    with pytest.raises(ValueError):
        enhancer.process(frames, out)
    engine = vxkit.Production(64, 48)
    for frame in frames[:5]:
        engine.add(frame.astype("f4") / 100)
    vxkit.enhance(frames)
    vxkit.superres(frames[:5])
    del frame
    assert (sys.getrefcount(frames), sys.getrefcount(out)) == before
    # In place, on the array's own memory.
    mine = frames[0].copy()
    assert enhancer.process(mine, mine) is mine


def test_objects_in_two_threads_at_once(stream):
    frames = stream[1]
    expected = processed(vxkit.Enhancer(64, 48), frames)
    results = {}

    def run(name):
        enhancer = vxkit.Enhancer(64, 48)
        results[name] = [processed(enhancer, frames)]
        for _ in range(5):
            enhancer.reset()
            results[name].append(processed(enhancer, frames))

    threads = [threading.Thread(target=run, args=(name,)) for name in range(2)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert all(same_bits(found, expected) for name in range(2) for found in results[name])


def test_the_lock_is_released_while_computing(burst):
    ticks, done = [], threading.Event()

    def tick():
        while not done.wait(0.0005):
            ticks.append(None)

    thread = threading.Thread(target=tick)
    thread.start()
    switch = sys.getswitchinterval()
    sys.setswitchinterval(100)  # a thread gets its turn only where the lock is given away
    try:
        vxkit.superres(burst[1], engine="reference")
    finally:
        sys.setswitchinterval(switch)
        done.set()
        thread.join()
    assert len(ticks) > 2


def test_quiet_but_for_the_log(stream, capfd, caplog):
    def work():
        vxkit.enhance(stream[1])
        processed(vxkit.Enhancer(64, 48), stream[1])
        vxkit.superres(stream[1][:5], engine="reference")

    with caplog.at_level(logging.DEBUG, "vxkit"):
        work()
        assert capfd.readouterr() == ("", "") and not caplog.records
        vxkit.set_log_level("debug")
        try:
            work()
        finally:
            vxkit.set_log_level("warning")
    assert "pgain" in caplog.text and capfd.readouterr() == ("", "")
