# SPDX-License-Identifier: Apache-2.0
"""Files that appear whole or not at all, and what identifies their content."""

import hashlib
import json
import math
import os
import secrets
import socket
from pathlib import Path

import numpy as np
import xxhash

# Tells whether content changed or was damaged, at the speed of memory: a cryptographic hash of input and result would cost
# more than a twentieth of the computing. XXH3 with 128 bits (Collet); `xxh128sum` gives the same.
Hash = xxhash.xxh3_128

# Read and written at a time: stays in a processor's cache between two uses, and makes calls few.
BLOCK = 256 << 10


class RecordingError(Exception):
    """A recording can't be worked on; the text is the reason that people read."""


def identity(path):
    """What tells at a glance whether a file changed: its size in bytes and its time of change."""
    found = os.stat(path)
    return {"bytes": found.st_size, "mtime_ns": found.st_mtime_ns}


def checksum(path):
    """Hash of a file's content as hexadecimal text."""
    digest = Hash()
    block = memoryview(bytearray(BLOCK))
    with open(path, "rb", buffering=0) as file:
        while count := file.readinto(block):
            digest.update(block[:count])
    return digest.hexdigest()


def is_same(path, known):
    """Whether a file still is what a manifest knows of it: by identity, else by checksum."""
    try:
        found = identity(path)
    except FileNotFoundError:
        return False
    if all(found[name] == known.get(name) for name in found):
        return True
    return found["bytes"] == known.get("bytes") and checksum(path) == known.get("xxh128")


def temporary(folder, suffix):
    """A name in a folder that no other process takes, on this machine or another."""
    Path(folder).mkdir(parents=True, exist_ok=True)
    return Path(folder) / f"{socket.gethostname()}-{os.getpid()}-{secrets.token_hex(8)}{suffix}"


def sync_file(path):
    """Brings a file's content to the disk."""
    descriptor = os.open(path, os.O_RDONLY)
    try:
        os.fsync(descriptor)
    finally:
        os.close(descriptor)


def replace_text(path, text, partial):
    """Writes a small file so that readers see the former one or the new one, and a crash leaves one of them."""
    path = Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    new = temporary(partial, ".part")
    with open(new, "w", encoding="utf-8") as file:
        file.write(text)
        file.flush()
        os.fsync(file.fileno())
    os.replace(new, path)


def for_people(name):
    """A file's name as text that can be printed, whatever its bytes."""
    return name.encode("utf-8", "backslashreplace").decode("utf-8")


def as_line(value):
    """JSON in one form for one value, so that texts can be compared and hashed."""
    return json.dumps(value, sort_keys=True, separators=(",", ":"))


def short_hash(value):
    return hashlib.sha256(as_line(value).encode()).hexdigest()[:24]


class NpyWriter:
    """Writes a stack of frames of known shape one by one, and hashes on the way what it writes."""

    def __init__(self, path, shape, dtype):
        self._file = open(path, "xb")
        self._digest = Hash()
        self._shape = tuple(shape)
        self._dtype = np.dtype(dtype)
        self._left = self._shape[0]
        size = math.prod(self._shape[1:]) * self._dtype.itemsize
        self._block = np.empty((max(1, BLOCK // max(1, size)), *self._shape[1:]), self._dtype)
        self._held = 0
        np.lib.format.write_array_header_1_0(
            self, {"descr": self._dtype.str, "fortran_order": False, "shape": self._shape}
        )

    def write(self, data):
        self._digest.update(data)
        self._file.write(data)

    def add(self, frame):
        if frame.shape != self._shape[1:] or frame.dtype != self._dtype or self._left == 0:
            raise ValueError(
                f"frame of {frame.shape} {frame.dtype}; expected {self._left} more of {self._shape[1:]} {self._dtype}"
            )
        self._left -= 1
        self._block[self._held] = frame
        self._held += 1
        if self._held == len(self._block) or self._left == 0:
            self.write(self._block[: self._held].data.cast("B"))
            self._held = 0

    def finish(self):
        """Brings the file to the disk; returns its checksum."""
        if self._left:
            raise ValueError(f"{self._left} of {self._shape[0]} frames are missing")
        self._file.flush()
        os.fsync(self._file.fileno())
        self._file.close()
        return self._digest.hexdigest()

    def close(self):
        self._file.close()
