# SPDX-License-Identifier: Apache-2.0
"""Tells a wrong interpreter before anything else fails in it, or waits for ever."""

import importlib
import platform
import sys
from importlib.machinery import EXTENSION_SUFFIXES
from pathlib import Path

_built = [path.name for path in Path(__file__).parent.glob("_vxkit*.so")]
if _built and not {"_vxkit" + suffix for suffix in EXTENSION_SUFFIXES}.intersection(_built):
    raise ImportError(
        f"vxkit: {_built[0]} was built for another interpreter; expected it to be imported by that one, not by Python "
        f"{platform.python_version()} ({sys.executable})"
    )

# What the extension keeps belongs to the process: classes, the log, the lock that the library's threads ask for.
for _name in ("_interpreters", "_xxsubinterpreters"):
    try:
        _interpreters = importlib.import_module(_name)
    except ImportError:
        continue
    if _interpreters.get_current() != _interpreters.get_main():
        raise ImportError("vxkit: imported by a subinterpreter; expected the process's main interpreter")
    break
