# SPDX-License-Identifier: Apache-2.0
"""Where ``vxkit-archive`` begins: apart from all that needs a cluster, so that it can tell that there is none."""

import sys


def main():
    try:
        from .archive import _command
    except ModuleNotFoundError as error:
        expected = "Dask's scheduler and xxhash (Debian: python3-distributed, python3-xxhash)"
        print(f"vxkit-archive: {error}; expected {expected}", file=sys.stderr)
        return 2
    return _command.main()
