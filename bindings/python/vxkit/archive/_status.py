# SPDX-License-Identifier: Apache-2.0
"""What the manifest of an output folder tells."""

import dataclasses
import os

from . import _files, _manifest


@dataclasses.dataclass
class Status:
    """What an output folder holds by its manifest.

    Attributes
    ----------
    records : dict
        All that is known of each recording, by name; see docs/archive.md for the fields.
    """

    records: dict

    @property
    def done(self):
        """Names of the recordings that have a result."""
        return [name for name, record in self.records.items() if record.get("state") == "done"]

    @property
    def failed(self):
        """Reasons by the names of the recordings that failed."""
        return {
            name: record.get("reason", "its record can't be read")
            for name, record in self.records.items()
            if record.get("state") != "done"
        }

    def __str__(self):
        text = f"{len(self.done)} done, {len(self.failed)} failed"
        return text + "".join(f"\n  {_files.for_people(name)}: {reason}" for name, reason in self.failed.items())


def status(output):
    """Reads the manifest of an output folder, while a run works on it too.

    Raises
    ------
    ValueError
        There is no manifest.
    """
    manifest = _manifest.Manifest(os.path.abspath(output))
    if not manifest.folder.is_dir():
        raise ValueError(f"{output}: holds no manifest; expected the output folder of a run")
    return Status({name: manifest.load(name) or {} for name in manifest.names()})
