# SPDX-License-Identifier: Apache-2.0
"""What pages and examples show, run as it stands."""

import ast
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

import vxkit

TREE = Path(__file__).resolve().parents[3]


@pytest.fixture
def night(tmp_path):
    recording = vxkit.simulate_recording(frames=14, column_offset=0.2)
    counts = np.round((recording.read_all() + 273.15) * 100).astype(np.uint16)
    vxkit.write(tmp_path / "night.raw", counts)
    return tmp_path


def test_the_code_on_the_page_runs(night, monkeypatch, capsys):
    monkeypatch.chdir(night)
    # A build without videos shows the same with another format.
    clear = "clear.mkv" if any(entry["name"] == "mkv" for entry in vxkit.formats()) else "clear.npy"
    page = (TREE / "docs/host-python.md").read_text().replace("clear.mkv", clear)
    blocks = re.findall(r"```python\n(.*?)```", page, re.DOTALL)
    assert len(blocks) >= 6
    names = {}
    for block in blocks:
        exec(compile(block, "docs/host-python.md", "exec"), names)
    assert "frames: 3 frames in all; expected at least 5" in capsys.readouterr().out
    assert vxkit.read(clear).shape == vxkit.read("clear.tiff").shape == (14, 120, 160)
    assert len(names["results"]) == 4


def run_example(name, *arguments):
    return subprocess.run([sys.executable, TREE / "examples/python" / name, *arguments], capture_output=True, text=True,
                          check=True, env=os.environ).stdout


def test_help_and_stubs_tell_every_name(tmp_path):
    assert set(vxkit.__all__) <= set(dir(vxkit)) and all(getattr(vxkit, name).__doc__ for name in vxkit.__all__)
    folder = Path(vxkit.__file__).parent
    stubs = {file: ast.parse((folder / file).read_text()) for file in ("__init__.pyi", "_objects.pyi")}
    told = {node.name for node in stubs["__init__.pyi"].body if hasattr(node, "name")}
    told.update(alias.asname for node in stubs["__init__.pyi"].body if isinstance(node, ast.ImportFrom)
                for alias in node.names if alias.asname)
    assert set(vxkit.__all__) == {name for name in told if not name.startswith("_")}


def test_is_for_the_main_interpreter_of_its_own_version(tmp_path):
    code = f"import sys; sys.path[:0] = {sys.path}; import vxkit"
    code = f"import _xxsubinterpreters as s; s.run_string(s.create(), {code!r})"
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=60)
    assert "imported by a subinterpreter" in done.stderr
    shutil.copytree(Path(vxkit.__file__).parent, tmp_path / "vxkit")
    (built,) = (tmp_path / "vxkit").glob("_vxkit*.so")
    built.rename(built.with_name("_vxkit.cpython-309-x86_64-linux-gnu.so"))
    done = subprocess.run([sys.executable, "-c", "import vxkit"], capture_output=True, text=True, cwd=tmp_path,
                          env={**os.environ, "PYTHONPATH": str(tmp_path)})
    assert "cpython-309-x86_64-linux-gnu.so was built for another interpreter" in done.stderr


def test_examples_run(night):
    assert "dB" in run_example("plot_burst.py", night / "burst.png")
    assert (night / "burst.png").read_bytes().startswith(b"\x89PNG")
    told = run_example("denoise_recording.py", night / "night.raw", night / "calm.tiff", "160x120")
    before, after = map(float, re.search(r"(\S+) counts before, (\S+) after", told).groups())
    assert after < before / 2
