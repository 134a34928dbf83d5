# SPDX-License-Identifier: Apache-2.0
"""The workers of a run: a cluster that is there, or one of processes on this machine."""

import contextlib
import logging
import os
import shutil
import tempfile

import dask
from distributed import Client, LocalCluster

# One of a worker's threads computes while the other waits for the disk.
THREADS = 2

SETTINGS = {
    # A task waits at the scheduler until a worker is free: what a dying worker takes along is little.
    "distributed.scheduler.worker-saturation": 1.0,
    # Tasks are long; looking at them and at the event loops many times a second costs more than it tells.
    "distributed.worker.profile.interval": "500ms",
    "distributed.worker.profile.cycle": "10s",
    "distributed.admin.tick.interval": "500ms",
    "distributed.worker.memory.monitor-interval": "250ms",
    "distributed.scheduler.work-stealing-interval": "1s",
}


@contextlib.contextmanager
def connected(client=None, scheduler=None, workers=None, memory_limit="2GB"):
    """A client of the cluster that is given, or of a new one on this machine.

    Parameters
    ----------
    client : distributed.Client, optional
        Is used and left open.
    scheduler : str, optional
        Address of a running scheduler, for example ``"tcp://10.0.0.1:8786"``.
    workers : int, optional
        Processes of a new cluster; the processors of this machine if nothing is said.
    memory_limit : str or int
        Of each process of a new cluster; one that exceeds it is restarted.
    """
    if client is not None:
        yield client
    elif scheduler is not None:
        with Client(scheduler, set_as_default=False) as opened:
            yield opened
    else:
        with local(workers, memory_limit) as opened:
            yield opened


@contextlib.contextmanager
def local(workers, memory_limit):
    processors = len(os.sched_getaffinity(0))
    count = workers or processors
    scratch = tempfile.mkdtemp(prefix="vxkit-archive-")
    try:
        with dask.config.set(SETTINGS), LocalCluster(
            n_workers=count,
            threads_per_worker=THREADS,
            memory_limit=memory_limit,
            local_directory=scratch,
            dashboard_address=":0",
            silence_logs=logging.CRITICAL,
            env=surroundings(max(1, processors // count)),
        ) as cluster, Client(cluster, set_as_default=False) as client:
            yield client
    finally:
        shutil.rmtree(scratch, ignore_errors=True)


def surroundings(threads):
    """What keeps the workers of a machine from taking each other's processors; what is set already wins."""
    wanted = {"OMP_NUM_THREADS": str(threads), "OMP_WAIT_POLICY": "passive"}
    return {name: os.environ.get(name, value) for name, value in wanted.items()}


def dashboard(client):
    """Link to the cluster's dashboard; None where it has none."""
    with contextlib.suppress(Exception):
        services = client.scheduler_info().get("services", {})
        if "dashboard" in services:
            return client.dashboard_link
    return None
