# SPDX-License-Identifier: Apache-2.0
"""Archives on a cluster of processes: what is killed, changed or damaged, and what comes out."""

import io
import os
import shutil
import subprocess
import sys
import threading
from pathlib import Path

import numpy as np
import pytest
import vxkit
import vxkit.archive
from archive_cluster import Cluster, files_of, make_recordings, records, wait_for
from vxkit.archive import _command, _files, _manifest, _names, _work

NOBODY = "tcp://127.0.0.1:1"  # a scheduler that doesn't answer: a run that needs none doesn't ask it


@pytest.fixture(scope="module")
def cluster(tmp_path_factory):
    started = Cluster(tmp_path_factory.mktemp("cluster"), 2)
    yield started
    started.close()


def serial(path, **settings):
    """The bytes of a result that is made without a cluster."""
    file = io.BytesIO()
    np.save(file, vxkit.enhance(vxkit.read(path), **settings))
    return file.getvalue()


def commits(output):
    found = vxkit.archive.status(output)
    assert not found.failed
    return {name: record["commits"] for name, record in found.records.items()}


def in_background(work):
    """Starts a call; its result is what the returned function gives."""
    results = []
    thread = threading.Thread(target=lambda: results.append(work()))
    thread.start()

    def result():
        thread.join()
        return results[0]

    return result


def test_a_killed_worker_loses_nothing_and_repeats_nothing(tmp_path):
    made = make_recordings(tmp_path / "in", 40)
    output = tmp_path / "out"
    cluster = Cluster(tmp_path, 3)
    try:
        result = in_background(lambda: vxkit.archive.run(tmp_path / "in", output, client=cluster.client))
        wait_for(lambda: len(records(output)) > 3, "the first results")
        cluster.kill_worker()
        finished = len(records(output))
        summary = result()
    finally:
        cluster.close()

    assert finished < len(made)
    assert not summary.failed and summary.done + summary.kept == len(made)
    assert commits(output) == {name: 1 for name in made}
    for name in made:
        assert (output / f"{name}.npy").read_bytes() == serial(tmp_path / "in" / name)

    before = files_of(output)
    again = vxkit.archive.run(tmp_path / "in", output, scheduler=NOBODY)
    assert (again.done, again.kept) == (0, len(made)) and files_of(output) == before


def test_a_killed_client_is_resumed(tmp_path, cluster):
    made = make_recordings(tmp_path / "in", 40)
    output = tmp_path / "out"
    command = [sys.executable, "-m", "vxkit.archive", "enhance", tmp_path / "in", "-o", output]
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join(part for part in sys.path if part)}
    with subprocess.Popen([*command, "--scheduler", cluster.address, "--quiet"], env=environment) as client:
        wait_for(lambda: len(records(output)) > 3, "the first results")
        with pytest.raises(vxkit.archive.FolderInUse, match="another run"):
            vxkit.archive.run(tmp_path / "in", output, scheduler=NOBODY)
        client.kill()
    finished = len(records(output))

    summary = vxkit.archive.run(tmp_path / "in", output, client=cluster.client)

    assert finished < len(made)
    assert not summary.failed and summary.done + summary.kept == len(made) and summary.kept >= finished
    assert set(commits(output).values()) == {1}
    assert len(list(output.rglob("*.npy"))) == len(made) and not list((output / "manifest/partial").glob("*.npy"))


def test_what_changed_is_done_again_and_nothing_else(tmp_path, cluster):
    made = make_recordings(tmp_path / "in", 4, frames=20)
    output = tmp_path / "out"

    def run(**options):
        summary = vxkit.archive.run(tmp_path / "in", output, client=cluster.client, **options)
        assert not summary.failed
        return summary.done, summary.kept

    assert run() == (4, 0)
    first, second, third, _ = sorted(made)
    np.save(tmp_path / "in" / first, made[first][::-1])  # of the same size
    os.utime(tmp_path / "in" / second)  # of the same content
    (output / f"{third}.npy").unlink()
    assert run() == (2, 2)
    assert (output / f"{first}.npy").read_bytes() == serial(tmp_path / "in" / first)
    assert run(window=20) == (0, 4)  # splits none of them

    # Damage that size and time don't show is found when it is looked for.
    path = output / f"{third}.npy"
    times = path.stat()
    path.write_bytes(path.read_bytes()[:-1] + b"\xff\xff"[:1])
    os.utime(path, ns=(times.st_atime_ns, times.st_mtime_ns))
    assert run() == (0, 4) and run(verify=True) == (1, 3) and run(verify=True) == (0, 4)

    assert run(settings={"look": "flat"}) == (4, 0)
    assert (output / f"{first}.npy").read_bytes() == serial(tmp_path / "in" / first, look="flat")


def test_failures_are_listed_and_end_nothing(tmp_path, cluster, capsys):
    make_recordings(tmp_path / "in", 3, frames=10)
    damaged, foreign = tmp_path / "in/day1/recording-001.npy", tmp_path / "out/day0/recording-002.npy.npy"
    whole = damaged.read_bytes()
    damaged.write_bytes(whole[:5000])
    foreign.parent.mkdir(parents=True)
    foreign.write_bytes(b"somebody else's")
    command = ["enhance", str(tmp_path / "in"), "-o", str(tmp_path / "out"), "--scheduler", cluster.address]

    assert _command.main(command) == 1
    said = capsys.readouterr()
    assert "1 done (10 frames), 0 kept, 2 failed" in said.out and "day1/recording-001.npy: " in said.err
    assert foreign.read_bytes() == b"somebody else's"
    assert "recording-001" in vxkit.archive.status(tmp_path / "out").failed["day1/recording-001.npy"]

    damaged.write_bytes(whole)
    foreign.unlink()
    assert _command.main([*command, "--quiet"]) == 0
    assert _command.main(["status", str(tmp_path / "out")]) == 0
    assert _command.main([*command, "--set", "look"]) == 2
    assert _command.main([*command, "--set", "look=gaudy"]) == 2
    assert _command.main(["enhance", str(tmp_path / "nothing"), "-o", str(tmp_path / "out")]) == 2


def test_windows_that_learn_from_all_before_them_give_the_whole(tmp_path, cluster):
    made = make_recordings(tmp_path / "in", 2, frames=50)
    options = {"settings": {"look": "strong"}, "window": 16, "client": cluster.client}
    assert vxkit.archive.run(tmp_path / "in", tmp_path / "out", warmup=50, **options).done == 2
    assert vxkit.archive.run(tmp_path / "in", tmp_path / "short", warmup=4, **options).done == 2

    for name in made:
        whole = serial(tmp_path / "in" / name, look="strong")
        assert (tmp_path / "out" / f"{name}.npy").read_bytes() == whole
        short = (tmp_path / "short" / f"{name}.npy").read_bytes()
        frame = len(whole) // 50
        assert len(short) == len(whole) and short[: 15 * frame] == whole[: 15 * frame] and short != whole
    assert vxkit.archive.status(tmp_path / "short").records[name]["split"] == {"window": 16, "warmup": 4}
    assert not any((tmp_path / "out/manifest/parts").rglob("*.npy"))


def test_a_window_that_is_there_is_not_made_again(tmp_path):
    make_recordings(tmp_path / "in", 1, frames=30)
    item = only_item(tmp_path)
    job = job_for(tmp_path / "out", window=10)
    plan = _work.recording(job, item, False)["plan"]
    assert [_work.window(job, item, plan, index)["state"] for index in range(3)] == ["window"] * 3
    parts = files_of(tmp_path / "out/manifest/parts")

    later = job_for(tmp_path / "out", window=10)
    answers = [_work.window(later, item, plan, index) for index in range(3)]
    assert files_of(tmp_path / "out/manifest/parts") == parts
    assert _work.assemble(later, item, plan, 0.0, answers)["state"] == "done"


def test_bursts_are_the_same_however_they_are_split(tmp_path, cluster):
    make_recordings(tmp_path / "in", 1, frames=17)
    for window in (None, 5):
        summary = vxkit.archive.run(
            tmp_path / "in", tmp_path / f"out-{window}", operation="superres", window=window, client=cluster.client
        )
        assert summary.done == 1 and not summary.failed
    whole, parts = (np.load(next((tmp_path / f"out-{window}").rglob("*.npy.npy"))) for window in (None, 5))
    assert whole.shape == (3, 120, 160) and whole.dtype == np.float32 and np.array_equal(whole, parts)
    frames = vxkit.read(next((tmp_path / "in").rglob("*.npy")))
    assert np.array_equal(whole[1], vxkit.superres(frames[5:10]).image)


def test_whoever_kills_each_worker_is_found_and_nobody_else_is_blamed(tmp_path):
    made = make_recordings(tmp_path / "in", 8, frames=10)
    preload = tmp_path / "deadly.py"
    preload.write_text(
        "import os\n"
        "from vxkit.archive import _operations\n"
        "def deadly(path, reading, frames=None, whole=_operations.open_recording):\n"
        "    return os._exit(9) if '005.npy' in path else whole(path, reading)\n"
        "_operations.open_recording = deadly\n"
    )
    cluster = Cluster(tmp_path, 2, preload=preload, nanny=True, allowed_failures=0)
    try:
        summary = vxkit.archive.run(tmp_path / "in", tmp_path / "out", client=cluster.client)
    finally:
        cluster.close()
    assert list(summary.failed) == ["day1/recording-005.npy"] and "died" in summary.failed["day1/recording-005.npy"]
    assert summary.done + summary.kept == len(made) - 1


def test_names_come_from_folders_and_never_from_results(tmp_path):
    for name in ("a/x.raw", "a/.hidden/y.raw", "a/out/x.raw.npy", "a/notes.txt", "b/x.raw"):
        (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / name).touch()

    def names(*inputs, **options):
        return [item.name for item in _names.find([tmp_path / name for name in inputs], tmp_path / "a/out", **options)]

    assert names("a") == ["notes.txt", "x.raw"] and names("a", pattern="*.raw") == ["x.raw"]
    assert names(".", pattern="*.raw") == ["a/x.raw", "b/x.raw"]
    assert names("a/x.raw", "b/x.raw", root=tmp_path) == ["a/x.raw", "b/x.raw"]
    for wrong, text in ((["a/x.raw", "b/x.raw"], "both would be x.raw"), (["c"], "no such"), (["a/out/x.raw.npy"], "lies in")):
        with pytest.raises(ValueError, match=text):
            names(*wrong)


def test_the_manual_page_tells_each_option():
    page = (Path(__file__).parents[1] / "vxkit-archive.1").read_text(encoding="utf-8").replace("\\", "")
    commands = next(action for action in _command.parser()._actions if action.dest == "command").choices
    options = {option for command in commands.values() for action in command._actions for option in action.option_strings}
    assert not [option for option in options - {"-h", "--help"} if option not in page]


def only_item(folder):
    return _names.find([folder / "in"], folder / "out")[0]


def job_for(output, window=None):
    manifest = _manifest.Manifest(output)
    with manifest.locked():
        run = manifest.begin_run()
    return _work.Job(str(output), run, "enhance", {}, {}, {}, window, 5, ".npy", vxkit.__version__, "key")


def test_of_two_workers_one_commits_and_a_former_run_none(tmp_path):
    make_recordings(tmp_path / "in", 1, frames=5)
    item = only_item(tmp_path)
    output = tmp_path / "out"
    former, job = job_for(output), job_for(output)
    assert "newer run" in _work.recording(former, item, False)["reason"]
    assert not records(output) and not list(output.rglob("*.npy"))

    # Both are done with their work before one commits.
    source = {**_work.taken(item.path), "frames": 5}
    manifest = _manifest.Manifest(output)
    (output / "manifest/partial").mkdir(exist_ok=True)
    files = [Path(shutil.copy(item.path, output / "manifest/partial" / str(index))) for index in range(2)]
    made = {"xxh128": _files.checksum(item.path)}
    answers = [_work.finish(job, item, source, file, made, 0.0) for file in files]
    assert [answer["state"] for answer in answers] == ["done", "kept"]
    assert manifest.load(item.name)["commits"] == 1 and not os.listdir(output / "manifest/partial")
