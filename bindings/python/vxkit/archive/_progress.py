# SPDX-License-Identifier: Apache-2.0
"""What the terminal shows of a run."""

import sys
import time


class Progress:
    """One line that is renewed on a terminal, and one now and then elsewhere."""

    def __init__(self, total, stream=None, clock=time.monotonic):
        self._total = total
        self._stream = stream if stream is not None else sys.stderr
        self._clock = clock
        self._started = clock()
        self._shown = None
        self._is_terminal = self._stream.isatty()
        self._done = 0
        self._failed = 0

    def add(self, failed=False):
        """Takes a recording that is finished."""
        self._done += 1
        self._failed += failed
        interval = 0.2 if self._is_terminal else 30.0
        now = self._clock()
        if self._done == self._total or now - (self._started if self._shown is None else self._shown) >= interval:
            self._shown = now
            self._write(self.text(now))

    def text(self, now):
        elapsed = max(now - self._started, 1e-3)
        rate = self._done / elapsed
        left = (self._total - self._done) / rate if self._done else 0.0
        failed = f", {self._failed} failed" if self._failed else ""
        return (
            f"{self._done} of {self._total} recordings{failed}; {rate:.3g} per second, "
            f"{int(left) // 3600}:{int(left) // 60 % 60:02}:{int(left) % 60:02} left"
        )

    def say(self, text):
        """A line that stays."""
        if self._is_terminal:
            self._stream.write("\r\033[K")
        self._stream.write(text + "\n")
        self._stream.flush()

    def finish(self):
        if self._is_terminal and self._shown is not None:
            self._stream.write("\n")
            self._stream.flush()

    def _write(self, text):
        self._stream.write(f"\r\033[K{text}" if self._is_terminal else text + "\n")
        self._stream.flush()
