# SPDX-License-Identifier: Apache-2.0
"""Enhancement and super-resolution of whole archives, on one machine or on a Dask cluster.

`run` does it, and the command ``vxkit-archive``. Each result is in the output folder as a whole or not at all; the
manifest beside them tells what was done, so that the same call does what is missing or changed, and nothing else::

    import vxkit.archive

    if __name__ == "__main__":
        summary = vxkit.archive.run("survey/", "enhanced/", settings={"look": "natural"}, progress=True)
        print(summary)

The guard is needed because the worker processes import the program that starts them.
"""

from ._manifest import FolderInUse
from ._run import ArchiveError, Summary, run
from ._status import Status, status

__all__ = ["ArchiveError", "FolderInUse", "Status", "Summary", "run", "status"]
