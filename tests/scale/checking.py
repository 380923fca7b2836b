# SPDX-License-Identifier: Apache-2.0
"""What tests with several programs check, and wait for."""
import contextlib
import pathlib
import sys
import time

failures = []


def expect(what, seen, wanted):
    if seen != wanted:
        failures.append(f"{what}: {seen!s:.300}, not {wanted!s:.300}")


def wait_for(what, is_so, seconds=30):
    end = time.monotonic() + seconds
    while not is_so():
        if time.monotonic() > end:
            raise SystemExit(f"{sys.argv[0]}: {what} never was; failed so far: {failures}")
        time.sleep(0.05)


def rest(pid, seconds=float("inf")):
    """until a process has done what there is to do, if there is time: no thread runs, or wants to"""
    deadline, looks, tasks = time.monotonic() + seconds, 0, pathlib.Path(f"/proc/{pid}/task")
    while looks < 10 and time.monotonic() < deadline:
        states = set()
        for stat in tasks.glob("*/stat"):
            with contextlib.suppress(OSError):  # it has ended
                states.add(stat.read_text().rpartition(")")[2].split()[0])
        looks = 0 if states & {"R", "D"} else looks + 1
        time.sleep(0.05)
