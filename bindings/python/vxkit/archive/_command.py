# SPDX-License-Identifier: Apache-2.0
"""The command ``vxkit-archive``."""

import argparse
import json
import sys

import vxkit

from ._manifest import FolderInUse
from ._run import ArchiveError, run
from ._status import status

OK, FAILED, USAGE, INTERRUPTED = 0, 1, 2, 130


def parser():
    program = argparse.ArgumentParser(
        prog="vxkit-archive",
        description="Enhances or super-resolves whole archives of recordings, on this machine or a Dask cluster.",
        epilog="The same command again does what is missing or changed, and nothing else. "
        "Exit status: 0 all is done, 1 recordings failed and are listed, 2 nothing was done.",
    )
    program.add_argument("--version", action="version", version=f"vxkit-archive {vxkit.__version__}")
    commands = program.add_subparsers(dest="command", required=True, metavar="COMMAND")
    enhance = commands.add_parser("enhance", help="the camera's enhancer chain over each recording")
    add_run_options(enhance)
    enhance.add_argument("--look", help="how pictures are to look: natural (the default), strong, flat or device")
    enhance.add_argument(
        "--warmup",
        type=int,
        default=1000,
        metavar="FRAMES",
        help="frames ahead of each window that the blocks learn from (default: 1000)",
    )
    superres = commands.add_parser("superres", help="one image of twice the size for each burst of frames")
    add_run_options(superres)
    superres.add_argument("--burst", type=int, metavar="FRAMES", help="frames of a burst (default: 5)")
    superres.add_argument(
        "--step", type=int, metavar="FRAMES", help="frames from one burst to the next (default: those of a burst)"
    )
    shown = commands.add_parser("status", help="what an output folder holds by its manifest")
    shown.add_argument("folder", metavar="FOLDER")
    shown.add_argument("--json", action="store_true", help="print all records as JSON")
    return program


def add_run_options(command):
    command.add_argument("inputs", nargs="*", metavar="INPUT", help="recordings, and folders of them")
    command.add_argument("-o", "--output", required=True, metavar="FOLDER", help="folder of the results and the manifest")
    command.add_argument("--list", metavar="FILE", help="also take the inputs in this file, one a line; -: standard input")
    command.add_argument("--pattern", metavar="GLOB", help="take these files of folders alone, for example '*.raw'")
    command.add_argument("--root", metavar="FOLDER", help="know files by their paths below this (default: by their names)")
    command.add_argument("--suffix", default=".npy", help="ending of the results, which names their format (default: .npy)")
    reading = command.add_argument_group("headerless recordings")
    reading.add_argument("--size", metavar="WIDTHxHEIGHT", help="inputs are frames of this size, row by row")
    reading.add_argument("--dtype", help="type of their samples (default: u16)")
    reading.add_argument("--endian", choices=["little", "big"], help="byte order (default: little)")
    reading.add_argument("--header", type=int, metavar="BYTES", help="bytes before the first frame")
    work = command.add_argument_group("work")
    work.add_argument(
        "--set",
        action="append",
        default=[],
        metavar="NAME=VALUE",
        help="a setting of the operation, for example --set tnr-alpha=80; may be given many times",
    )
    work.add_argument(
        "--window", type=int, metavar="FRAMES", help="cut recordings of more frames into tasks of this many (default: none)"
    )
    work.add_argument("--verify", action="store_true", help="check inputs and results that are known by their checksums")
    cluster = command.add_argument_group("cluster")
    cluster.add_argument("--workers", type=int, metavar="N", help="processes on this machine (default: its processors)")
    cluster.add_argument("--memory-limit", default="2GB", metavar="SIZE", help="of each process (default: 2GB)")
    cluster.add_argument("--scheduler", metavar="ADDRESS", help="use the cluster of this scheduler, tcp://HOST:PORT")
    command.add_argument("-q", "--quiet", action="store_true", help="print no progress")
    command.add_argument("--json", action="store_true", help="print the outcome as one JSON object")


def size_of(text):
    width, cross, height = text.partition("x")
    if not (cross and width.isdecimal() and height.isdecimal()):
        raise ValueError(f"--size {text}: expected WIDTHxHEIGHT")
    return int(width), int(height)


def value_of(text):
    """A number or a switch where the text is one."""
    for kind in (int, float):
        try:
            return kind(text)
        except ValueError:
            pass
    return {"true": True, "on": True, "false": False, "off": False}.get(text, text)


def settings_of(given):
    settings = {}
    for text in given.set:
        name, equals, value = text.partition("=")
        if not (name and equals):
            raise ValueError(f"--set {text}: expected NAME=VALUE")
        settings[name.replace("-", "_")] = value_of(value)
    own = {"look": "look"} if given.command == "enhance" else {"burst": "window", "step": "step"}
    settings.update({name: getattr(given, option) for option, name in own.items() if getattr(given, option) is not None})
    return settings


def reading_of(given):
    reading = {name: getattr(given, name) for name in ("dtype", "endian", "header") if getattr(given, name) is not None}
    if given.size is not None:
        reading["size"] = size_of(given.size)
    return reading


def inputs_of(given):
    inputs = list(given.inputs)
    if given.list == "-":
        inputs += [line for line in sys.stdin.read().splitlines() if line]
    elif given.list is not None:
        with open(given.list, encoding="utf-8") as file:
            inputs += [line for line in file.read().splitlines() if line]
    return inputs


def work(given):
    summary = run(
        inputs_of(given),
        given.output,
        operation=given.command,
        settings=settings_of(given),
        reading=reading_of(given),
        pattern=given.pattern,
        root=given.root,
        suffix=given.suffix,
        window=given.window,
        warmup=getattr(given, "warmup", 0),
        verify=given.verify,
        scheduler=given.scheduler,
        workers=given.workers,
        memory_limit=given.memory_limit,
        progress=not given.quiet,
    )
    if given.json:
        print(json.dumps({"done": summary.done, "kept": summary.kept, "failed": summary.failed, "frames": summary.frames}))
    else:
        print(summary)
    return FAILED if summary.failed else OK


def show(given):
    found = status(given.folder)
    print(json.dumps(found.records, indent=1) if given.json else found)
    return FAILED if found.failed else OK


def main(arguments=None):
    given = parser().parse_args(arguments)
    try:
        return show(given) if given.command == "status" else work(given)
    except (ValueError, FolderInUse, OSError) as error:
        print(f"vxkit-archive: {error}", file=sys.stderr)
        return USAGE
    except ArchiveError as error:
        print(f"vxkit-archive: {error}", file=sys.stderr)
        return FAILED
    except KeyboardInterrupt:
        print("vxkit-archive: interrupted; the same command goes on where it was", file=sys.stderr)
        return INTERRUPTED


if __name__ == "__main__":
    sys.exit(main())
