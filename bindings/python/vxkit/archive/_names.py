# SPDX-License-Identifier: Apache-2.0
"""Which recordings an archive has, and what their results are called."""

import fnmatch
import os
from pathlib import Path
from typing import NamedTuple

from . import _manifest


class Item(NamedTuple):
    """A recording: its file, and the name under which the output folder knows it."""

    name: str
    path: str


def find(inputs, output, pattern=None, root=None):
    """The recordings of an archive in the order of their names.

    Parameters
    ----------
    inputs : sequence of paths
        A file is one recording, known by the last part of its path. A folder stands for all files below it,
        known by their paths from there on; hidden ones are left out, and what lies in the output folder.
    output : path
        Where the results go.
    pattern : str, optional
        Takes those files of folders alone whose last part fits, for example ``"*.raw"``.
    root : path, optional
        Folder from which on files that are named themselves are known.

    Raises
    ------
    ValueError
        An input is not there or lies in the output folder, two recordings have one name, or there is none at all.
        The text names it.
    """
    output = Path(os.path.abspath(output))
    if output.exists() and not output.is_dir():
        raise ValueError(f"{output}: is a file; expected a folder for the results")
    found = {}
    for given in inputs:
        path = Path(os.path.abspath(given))
        if not path.exists():
            raise ValueError(f"{given}: there is no such file or folder")
        for item in items_below(path, output, pattern) if path.is_dir() else [single(path, root)]:
            other = found.setdefault(item.name, item)
            if other.path != item.path:
                raise ValueError(
                    f"{other.path}, {item.path}: both would be {item.name}; name a folder that holds both, or a root"
                )
    if not found:
        raise ValueError("no recordings; expected files, or folders with files" + (f" like {pattern}" if pattern else ""))
    for item in found.values():
        check(item, output)
    return [found[name] for name in sorted(found)]


def single(path, root):
    if root is None:
        return Item(path.name, str(path))
    root = Path(os.path.abspath(root))
    if root not in path.parents:
        raise ValueError(f"{path}: expected a file below {root}")
    return Item(path.relative_to(root).as_posix(), str(path))


def items_below(folder, output, pattern):
    for place, folders, files in os.walk(folder):
        folders[:] = sorted(name for name in folders if not name.startswith(".") and Path(place, name) != output)
        for name in files:
            if name.startswith(".") or not fnmatch.fnmatch(name, pattern or "*"):
                continue
            path = Path(place, name)
            yield Item(path.relative_to(folder).as_posix(), str(path))


def check(item, output):
    if output in Path(item.path).parents:
        raise ValueError(f"{item.path}: lies in the output folder {output}; expected another folder")
    if item.name.split("/")[0] == _manifest.FOLDER:
        raise ValueError(f"{item.path}: would lie in the folder of the manifest; name it by another folder")
