#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""service_test.py FLOWHOST PLUGIN [messages] [restrictions]: what a service manager is told by the collector, and what
servers give up."""
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time

FLOWHOST, PLUGIN = sys.argv[1:3]
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
                               env={**os.environ, "NOTIFY_SOCKET": name, "WATCHDOG_USEC": "300000"},
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    told = [manager.recv(100) for _ in range(3)]
    process.send_signal(signal.SIGTERM)
    while told[-1] != b"STOPPING=1":
        told.append(manager.recv(100))
    expect("told", (told[0], set(told[1:-1]), process.wait(LONGEST)), (b"READY=1", {b"WATCHDOG=1"}, 0))


RESTRICTED = {("NoNewPrivs", "1"), ("Seccomp", "2"), ("CapEff", "0" * 16)}


def privileges(process):
    """what the threads of a process have, each value once"""
    texts = [status.read_text() for status in pathlib.Path(f"/proc/{process}/task").glob("*/status")]
    return {pair for text in texts for pair in re.findall(r"^(NoNewPrivs|Seccomp|CapEff):\s*(\w+)$", text, re.M)}


def check_restrictions(folder):
    """of both servers: soon after they listen, and never where that is not wanted"""
    store, inherited = folder / "store", privileges(os.getpid())
    servers = {
        "listen": ["--plugin", PLUGIN, "--config", folder / "policies", "--bind", "127.0.0.1", "--port", f"netflow={free_port()}",
                   "--top", "0", "--instances", "2", "--store", store, "--state", folder / "state"],
        "serve": ["--store", store, "--http", f"127.0.0.1:{free_port()}"]}
    for name, words in servers.items():
        for extra, wanted in (["--no-sandbox"], inherited), ([], RESTRICTED):
            with (folder / "log").open("w") as log:
                process = subprocess.Popen([FLOWHOST, name, *words, *extra], stdout=subprocess.DEVNULL, stderr=log)
            end = time.time() + LONGEST
            while time.time() < end and not re.search("anybody|http:", (folder / "log").read_text()):
                time.sleep(0.02)
            while time.time() < end and privileges(process.pid) != wanted:
                time.sleep(0.02)
            expect(f"privileges of {name} {extra}", privileges(process.pid), wanted)
            process.send_signal(signal.SIGTERM)
            expect(f"end of {name} {extra}", process.wait(LONGEST), 0)
            expect(f"told by {name} {extra}", "capabilities" in (folder / "log").read_text(), False)


with tempfile.TemporaryDirectory() as name:
    if "messages" in sys.argv[3:]:
        check_messages(pathlib.Path(name), f"{name}/manager")
        check_messages(pathlib.Path(name), f"@flowhost-{name}")
    if "restrictions" in sys.argv[3:]:
        check_restrictions(pathlib.Path(name))
print("\n".join(failures) or "as it should be")
sys.exit(1 if failures else 0)
