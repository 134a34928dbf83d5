# SPDX-License-Identifier: Apache-2.0
"""Runs commands under faults, and the cases that do so."""

import collections
import concurrent.futures
import dataclasses
import fnmatch
import hashlib
import os
import pathlib
import random
import shlex
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import threading
import time
import traceback

SHORT = 60  # seconds up to which only a part of what is possible is tried
PATIENCE = 60  # seconds after which a command counts as hung; commands take parts of one

Case = collections.namedtuple("Case", "name faults body repeats")
CASES = []


def case(name, *faults):
    """Registers a case: a function that takes a Bench. `faults` are the kinds of fault that it holds."""

    def register(body):
        CASES.append(Case(name, faults, body, False))
        return body

    return register


def rounds(name, *faults):
    """The same for one that is repeated with other random numbers as long as there is time."""

    def register(body):
        CASES.append(Case(name, faults, body, True))
        return body

    return register


@dataclasses.dataclass
class Run:
    """What a command left behind."""

    line: str  # repeats it in a shell
    status: int  # negative: the signal that ended it
    out: str
    error: str
    peak: int  # KiB of memory

    @property
    def hung(self):
        return self.status is None

    @property
    def text(self):
        return self.error + self.out


def snapshot(folder):
    """What a folder holds: for each path below it its kind and contents."""
    found = {}
    for path in sorted(pathlib.Path(folder).rglob("*")):
        name = str(path.relative_to(folder))
        mode = path.lstat().st_mode
        if stat.S_ISLNK(mode):
            found[name] = "link to " + os.readlink(path)
        elif stat.S_ISREG(mode):
            content = path.read_bytes()
            found[name] = f"{len(content)} bytes {hashlib.sha256(content).hexdigest()[:12]}"
        elif stat.S_ISDIR(mode):
            found[name] = "folder"
        else:
            found[name] = "special file"
    return found


def changes(before, after):
    """The difference of two snapshots, for people."""
    names = sorted(name for name in before.keys() | after.keys() if before.get(name) != after.get(name))
    texts = [f"{name}: {before.get(name, 'nothing')} -> {after.get(name, 'nothing')}" for name in names]
    return "; ".join(texts[:6]) + (f"; and {len(texts) - 6} more" if len(texts) > 6 else "")


def exit_text(status):
    if status is None:
        return "hung"
    return f"killed by {signal.Signals(-status).name}" if status < 0 else f"exit {status}"


class Workshop:
    """What all cases share: the programs, the shim, a folder for everything."""

    def __init__(self, programs, shim_source):
        self.programs = pathlib.Path(programs).resolve()
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="vxkit-faults-"))
        self.shim = self.folder / "shim.so"
        compiler = os.environ.get("CC", "cc")
        subprocess.run([compiler, "-shared", "-fPIC", "-O1", "-o", self.shim, shim_source, "-ldl"], check=True)
        self.environment = dict(os.environ, OMP_WAIT_POLICY="passive")
        self._lock = threading.Lock()
        self._folders = 0
        self.runs = 0

    def new_folder(self, name):
        with self._lock:
            self._folders += 1
            folder = self.folder / f"{self._folders:05d}-{name}"
        folder.mkdir()
        return folder

    def start(self, arguments, cwd, *, shim=None, closed="", limits=None, ignored="", stdin=subprocess.DEVNULL,
              stdout=None, stderr=None):
        """Starts a command.

        arguments  "vxkit" or "halvor" and what follows
        shim       variables of the shim, see shim.c
        closed     standard descriptors that are closed, "12"
        limits     of prlimit: {"as": bytes}
        ignored    signals that the command inherits as ignored, "HUP"
        """
        line = [str(self.programs / arguments[0]), *map(str, arguments[1:])]
        if shim:
            line = ["env", f"LD_PRELOAD={self.shim}", *(f"{key}={value}" for key, value in shim.items()), *line]
        if limits:
            line = ["prlimit", *(f"--{key}={value}" for key, value in limits.items()), *line]
        if closed or ignored:
            trap = f'trap "" {ignored}; ' if ignored else ""
            closes = " ".join(f"{number}{'<' if number == '0' else '>'}&-" for number in closed)
            line = ["sh", "-c", f'{trap}exec "$@" {closes}', "sh", *line]
        out = stdout if stdout is not None else tempfile.TemporaryFile()
        error = stderr if stderr is not None else tempfile.TemporaryFile()
        process = subprocess.Popen(line, cwd=cwd, env=self.environment, stdin=stdin, stdout=out, stderr=error)
        process.told = out if stdout is None else None, error if stderr is None else None
        process.line = f"cd {shlex.quote(str(cwd))} && OMP_WAIT_POLICY=passive {shlex.join(line)}"
        return process

    def finish(self, process, patience=PATIENCE):
        """Waits for a command."""
        hung = threading.Event()

        def end():
            hung.set()
            os.kill(process.pid, signal.SIGKILL)

        with self._lock:
            self.runs += 1
        timer = threading.Timer(patience, end)
        timer.start()
        _, status, usage = os.wait4(process.pid, 0)
        timer.cancel()
        process.returncode = os.waitstatus_to_exitcode(status)
        texts = []
        for file in process.told:
            if file is not None:
                file.seek(0)
            texts.append(file.read().decode(errors="replace") if file is not None else "")
        return Run(process.line, None if hung.is_set() else process.returncode, *texts, usage.ru_maxrss)


class Bench:
    """What one case works with."""

    def __init__(self, workshop, jobs, name, seed, is_thorough):
        self.workshop = workshop
        self.jobs = jobs
        self.name = name
        self.random = random.Random(seed)
        self.is_thorough = is_thorough
        self.failures = []
        self.checks = 0

    def some(self, items):
        """All of them, or half of them where time is short: the seed says which."""
        items = list(items)
        return items if self.is_thorough else self.random.sample(items, (len(items) + 1) // 2)

    def folder(self):
        return self.workshop.new_folder(self.name)

    def run(self, arguments, cwd, *, moment=None, signal_number=None, patience=PATIENCE, **options):
        """Runs a command; `moment`: seconds after which it gets the signal."""
        process = self.workshop.start(arguments, cwd, **options)
        if moment is not None:
            time.sleep(moment)
            os.kill(process.pid, signal_number)
        return self.workshop.finish(process, patience)

    def expect(self, is_met, text, run=None):
        """Notes a failure unless something holds."""
        self.checks += 1
        if is_met:
            return
        lines = [text]
        if run is not None:
            told = (run.error.strip() or run.out.strip())[-300:]
            lines += [f"  {exit_text(run.status)}; it said: {told or '(nothing)'}",
                      f"  again: {run.line}"]
        self.failures.append("\n".join(lines))


class Runner:
    """Runs cases, some at a time, and prints what came of them."""

    def __init__(self, workshop, jobs, seed, seconds):
        self.workshop = workshop
        self.jobs = jobs
        self.seed = seed
        self.seconds = seconds
        self.start = time.monotonic()

    def run(self, pattern="*", only_round=None):
        """Returns the number of failed cases."""
        chosen = [one for one in CASES if fnmatch.fnmatch(one.name, pattern)]
        results = {one.name: [0, 0, []] for one in chosen}
        repeated = [one for one in chosen if one.repeats]
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            self._gather(pool, [(one, 0) for one in chosen if not one.repeats], results)
            index = only_round or 0
            while repeated and (index == (only_round or 0) or self._has_time(only_round)):
                self._gather(pool, [(one, index) for one in repeated], results)
                index += 1
        for one in repeated:
            self._print(one, *results[one.name])
        print(f"{self.workshop.runs} runs of the programs in {time.monotonic() - self.start:.0f} s")
        return sum(1 for _, _, failures in results.values() if failures)

    def _has_time(self, only_round):
        return only_round is None and time.monotonic() < self.start + self.seconds

    def _gather(self, pool, queue, results):
        for done in concurrent.futures.as_completed([pool.submit(self._round, entry) for entry in queue]):
            one, index, bench = done.result()
            result = results[one.name]
            result[0] += 1
            result[1] += bench.checks
            result[2] += [(index, text) for text in bench.failures]
            if not one.repeats:
                self._print(one, *result)

    def _round(self, entry):
        one, index = entry
        bench = Bench(self.workshop, self.jobs, one.name, f"{self.seed}/{one.name}/{index}", self.seconds > SHORT)
        try:
            one.body(bench)
        except Exception:  # a case that can't go on is a failure of its own
            bench.expect(False, traceback.format_exc())
        if not bench.failures:
            for folder in self.workshop.folder.glob(f"[0-9]*-{one.name}"):
                if not one.repeats:
                    shutil.rmtree(folder, ignore_errors=True)
        return one, index, bench

    def _print(self, one, count, checks, failures):
        times = f"{count} rounds, " if one.repeats else ""
        kinds = ",".join(map(str, one.faults))
        state = f"FAILED ({len(failures)})" if failures else "ok"
        print(f"{one.name:28} [{kinds}]  {times}{checks} checks: {state}")
        for index, text in failures[:5]:
            print("    " + text.replace("\n", "\n    "))
            print(f"    all of it: python3 tests/faults {self.workshop.programs} --seed {self.seed} "
                  f"--case {one.name}" + (f" --round {index}" if one.repeats else ""))
        if len(failures) > 5:
            print(f"    and {len(failures) - 5} more")
        sys.stdout.flush()
