#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""service_test.py FLOWHOST PLUGIN UNIT: what a service manager sees: the collector's messages, and the unit."""
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile

FLOWHOST, PLUGIN, UNIT = sys.argv[1:4]
LONGEST = 60  # seconds, on a busy machine
failures = []


def expect(what, seen, wanted):
    if seen != wanted:
        failures.append(f"{what}: {seen}, not {wanted}")


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
        free.bind(("127.0.0.1", 0))
        return free.getsockname()[1]


def check_messages(folder, name):
    """told to a socket of a name below a folder, or of none"""
    manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    manager.settimeout(LONGEST)
    manager.bind(name.replace("@", "\0", 1))
    process = subprocess.Popen([FLOWHOST, "listen", "--plugin", PLUGIN, "--config", folder / "policies", "--bind",
                                "127.0.0.1", "--port", f"netflow={free_port()}", "--top", "0"],
                               env={"NOTIFY_SOCKET": name, "WATCHDOG_USEC": "300000"}, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    told = [manager.recv(100) for _ in range(3)]
    process.send_signal(signal.SIGTERM)
    while told[-1] != b"STOPPING=1":
        told.append(manager.recv(100))
    expect("told", (told[0], set(told[1:-1]), process.wait(LONGEST)), (b"READY=1", {b"WATCHDOG=1"}, 0))


def check_unit(folder):
    unit = folder / "flowhost.service"
    unit.write_text(pathlib.Path(UNIT).read_text().replace("@FLOWHOST@", FLOWHOST))
    if not shutil.which("systemd-analyze"):
        return print("no systemd-analyze: the unit is not judged")
    done = subprocess.run(["systemd-analyze", "security", "--offline=true", "--no-pager", unit], capture_output=True, text=True)
    exposure = re.search(r"exposure level for flowhost.service: ([0-9.]+)", done.stdout)
    if not exposure:
        return print("a systemd-analyze that judges no units offline")
    expect("exposure", float(exposure[1]) <= 1.5, True)


with tempfile.TemporaryDirectory() as name:
    check_messages(pathlib.Path(name), f"{name}/manager")
    check_messages(pathlib.Path(name), f"@flowhost-{name}")
    check_unit(pathlib.Path(name))
print("\n".join(failures) or "as it should be")
sys.exit(1 if failures else 0)
