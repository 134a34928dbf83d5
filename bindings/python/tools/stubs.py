# SPDX-License-Identifier: Apache-2.0
"""Writes the type stubs of the classes that are made from the library's tables of settings.

usage: stubs.py OUT.pyi    (with the built package on PYTHONPATH)
"""

import sys

from vxkit import _objects, _vxkit

HEAD = '''# SPDX-License-Identifier: Apache-2.0
# Made by stubs.py from the tables of settings.
from typing import Any, Dict, Literal, Optional
import numpy as np
import numpy.typing as npt

class BurstReport:
    code: int
    has_image: bool
    iterations: Optional[int]
    factor: Optional[float]
    shifts: npt.NDArray[np.float64]
    usable: npt.NDArray[np.float64]

class _Settings:
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...
    settings: Dict[str, Any]
    def reset(self) -> None: ...

class _Engine(_Settings):
    def add(self, frame: npt.ArrayLike) -> BurstReport: ...
    def image(self, out: Optional[npt.NDArray[np.float32]] = ...) -> npt.NDArray[np.float32]: ...
'''

METHODS = {
    "process": "(self, frame: npt.ArrayLike, out: Optional[npt.NDArray[Any]] = ...) -> npt.NDArray[Any]",
    "learn": "(self, frames: npt.ArrayLike) -> None",
    "learn_statistics": "(self, mean: npt.ArrayLike, deviation: npt.ArrayLike) -> None",
    "result": "(self, name: str, out: Optional[npt.NDArray[Any]] = ...) -> npt.NDArray[Any]",
}


def annotation(setting):
    if setting["type"] == "choice":
        return "Literal[" + ", ".join(map(repr, setting["choices"].split("|"))) + "]"
    return {"integer": "int", "number": "float", "switch": "bool", "text": "str"}[setting["type"]]


def class_stub(name):
    made = getattr(_objects, name)
    base = "_Engine" if issubclass(made, _objects._Engine) else "_Settings"
    types = {setting: annotation(entry) for setting, entry in made._table.items()}
    arguments = "".join(f", {setting}: {type} = ..." for setting, type in types.items())
    lines = [f"class {name}({base}):"]
    lines += [f"    {setting}: {type}" for setting, type in types.items()]
    lines.append(f"    def __init__(self, width: int, height: int{', *' if types else ''}{arguments}) -> None: ...")
    lines += [f"    def {method}{text}: ..." for method, text in METHODS.items() if method in vars(made)]
    return "\n".join(lines) + "\n"


assert _vxkit.kinds()
with open(sys.argv[1], "w") as out:
    out.write(HEAD + "".join("\n" + class_stub(name) for name in _objects.CLASSES if hasattr(_objects, name)))
