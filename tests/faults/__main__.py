# SPDX-License-Identifier: Apache-2.0
"""Runs the built programs under faults: what they leave must be whole, or as it was before."""

import argparse
import os
import pathlib
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True  # the tree stays as it is

import runner  # noqa: E402
from jobs import Jobs  # noqa: E402

import descriptors  # noqa: E402,F401  families register their cases
import disk  # noqa: E402
import endings  # noqa: E402,F401
import memory  # noqa: E402,F401
import overwriting  # noqa: E402,F401
import pipes  # noqa: E402,F401
import special  # noqa: E402,F401
import temporaries  # noqa: E402,F401
import vanishing  # noqa: E402,F401


def parsed_arguments():
    parser = argparse.ArgumentParser(prog="tests/faults", description=__doc__)
    parser.add_argument("programs", help="folder of vxkit and halvor, for example build/release/bin")
    parser.add_argument("--seed", default="1", help="of everything random (1)")
    parser.add_argument("--seconds", type=float, default=40, help="repeat the random cases so long (40)")
    parser.add_argument("--case", default="*", help="only cases whose names match, * and ? as in a shell")
    parser.add_argument("--round", type=int, help="of random cases only this one")
    parser.add_argument("--list", action="store_true", help="print the names of all cases")
    return parser.parse_args()


def in_own_mounts():
    """Starts this program anew where it may mount file systems that vanish with it, if that is allowed."""
    if "FAULTS_MOUNTS" in os.environ:
        return
    for options in (["--mount"], ["--mount", "--map-root-user"]):
        trial = ["unshare", *options, "mount", "-t", "tmpfs", "none", "/mnt"]
        if shutil.which("unshare") and subprocess.run(trial, capture_output=True).returncode == 0:
            os.environ["FAULTS_MOUNTS"] = "yes"
            os.execvp("unshare", ["unshare", *options, sys.executable, *sys.argv])
    os.environ["FAULTS_MOUNTS"] = ""


def main():
    arguments = parsed_arguments()
    if arguments.list:
        print("\n".join(one.name for one in runner.CASES))
        return 0
    in_own_mounts()
    here = pathlib.Path(__file__).resolve().parent
    workshop = runner.Workshop(arguments.programs, here / "shim.c")
    print(f"seed {arguments.seed}; full disk: {disk.means()}", flush=True)
    failed = runner.Runner(workshop, Jobs(workshop), arguments.seed, arguments.seconds).run(
        arguments.case, arguments.round)
    if failed:
        print(f"{failed} cases failed; their files are in {workshop.folder}")
        return 1
    shutil.rmtree(workshop.folder, ignore_errors=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
