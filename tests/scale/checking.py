# SPDX-License-Identifier: Apache-2.0
"""What tests with several programs check, and wait for."""
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
