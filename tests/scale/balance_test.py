#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""balance_test.py FLOWHOST PLUGIN BALANCE: nginx with BALANCE/nginx.conf and BALANCE/collector-health in front of
three collectors, eight exporters before it, each in a network namespace of its own; one collector is killed.

Exit status: 0 as it should be, 1 not, 77 no network namespaces here.
"""
import atexit
import json
import os
import pathlib
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

EXPORTERS = [f"10.9.0.{number}" for number in range(11, 19)]
COLLECTORS = [f"10.9.{number}.2" for number in (1, 2, 3)]
BALANCER = ("10.9.0.1", 2055)
RECORDS = 10  # of a datagram
PAUSE = 0.05  # between two datagrams of an exporter
PREFIX = f"flow{os.getpid()}"
failures = []


def expect(what, is_so):
    if not is_so:
        failures.append(what)


def datagram(number):
    """of NetFlow v5: as many flows as RECORDS, of 100 bytes in one packet each"""
    now = time.time()
    flows = b"".join(struct.pack("!4s4s4sHHIIIIHHBBBBHHBBH", bytes([10, 1, 0, one]), bytes([10, 2, 0, one]), bytes(4), 1, 2,
                                 1, 100, 1000, 2000, 4000 + one, 443, 0, 16, 6, 0, 0, 0, 24, 24, 0)
                     for one in range(RECORDS))
    return struct.pack("!HHIIIIBBH", 5, RECORDS, 3000, int(now), 0, number * RECORDS, 0, 0, 0) + flows


def send():
    """as the exporters, until told to end; then what each has sent"""
    sockets = []
    for number, address in enumerate(EXPORTERS):
        sockets.append(socket.socket(socket.AF_INET, socket.SOCK_DGRAM))
        sockets[-1].bind((address, 40000 + number))
    sent, ended = 0, []
    signal.signal(signal.SIGTERM, lambda *_: ended.append(True))
    while not ended:
        for one in sockets:
            one.sendto(datagram(sent), BALANCER)
        sent += 1
        time.sleep(PAUSE)
    print(sent)


def run(*words):
    subprocess.run([str(word) for word in words], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)


def inside(name, *words, **options):
    process = subprocess.Popen(["ip", "netns", "exec", f"{PREFIX}{name}", *map(str, words)], **options)
    atexit.register(end, process)
    return process


def end(process):
    """that of nginx would leave its workers behind if it were killed at once"""
    process.terminate()
    try:
        process.wait(10)
    except subprocess.TimeoutExpired:
        process.kill()


def connect(name, addresses, near_address):
    """a wire from the balancer's namespace into another, which finds everybody through the balancer"""
    near = f"{PREFIX}{name}"[-15:]
    run("ip", "netns", "add", f"{PREFIX}{name}")
    atexit.register(subprocess.run, ["ip", "netns", "del", f"{PREFIX}{name}"], check=False)
    run("ip", "-n", f"{PREFIX}b", "link", "add", near, "type", "veth", "peer", "name", "wire", "netns", f"{PREFIX}{name}")
    run("ip", "-n", f"{PREFIX}b", "addr", "add", f"{near_address}/24", "dev", near)
    run("ip", "-n", f"{PREFIX}b", "link", "set", near, "up")
    for device in ("lo", "wire"):
        run("ip", "-n", f"{PREFIX}{name}", "link", "set", device, "up")
    for address in addresses:
        run("ip", "-n", f"{PREFIX}{name}", "addr", "add", f"{address}/24", "dev", "wire")
    run("ip", "-n", f"{PREFIX}{name}", "route", "add", "default", "via", near_address)


def network():
    run("ip", "netns", "add", f"{PREFIX}b")
    atexit.register(subprocess.run, ["ip", "netns", "del", f"{PREFIX}b"], check=False)
    run("ip", "-n", f"{PREFIX}b", "link", "set", "lo", "up")
    connect("x", EXPORTERS, BALANCER[0])
    for number, address in enumerate(COLLECTORS, 1):
        connect(f"c{number}", [address], f"10.9.{number}.1")


class Collector:
    def __init__(self, number, folder):
        self.address, self.folder = COLLECTORS[number - 1], folder / f"c{number}"
        self.folder.mkdir()
        self.json = self.folder / "out.json"
        self.process = inside(
            f"c{number}", FLOWHOST, "listen", "--plugin", PLUGIN, "--config", self.folder / "policies", "--bind",
            self.address, "--port", "netflow=2055", "--http", f"{self.address}:8055", "--http-open", "--interval", 1,
            "--json", self.json, "--top", 0, stdout=subprocess.DEVNULL, stderr=(self.folder / "log").open("w"))

    def exporters(self):
        """records and losses by address, as of the last report; all ports are to be the exporters' own"""
        rows = json.loads(self.json.read_text())["exporters"]
        for row in rows:
            expect(f"an exporter as it calls itself: {row['address']}:{row['port']}",
                   (row["address"], row["port"]) in zip(EXPORTERS, range(40000, 41000)))
        return {row["address"]: (row["records"], row["sequence"]["lost"]) for row in rows}

    def end(self, number=signal.SIGTERM):
        # of `ip netns exec`, which becomes the program
        self.process.send_signal(number)
        return self.process.wait(30)


def wait_for(what, is_so, seconds=30):
    end = time.monotonic() + seconds
    while not is_so():
        if time.monotonic() > end:
            raise SystemExit(f"balance_test: {what} never was")
        time.sleep(0.1)


def balancer(folder):
    """nginx as configured, in a folder of its own, and what looks after its collectors: a killed one refuses at once, one
    of a busy machine may be slow"""
    (folder / "nginx.conf").write_text(
        f"pid {folder}/pid;\nerror_log {folder}/error.log;\nuser root;\n" +
        (BALANCE / "nginx.conf").read_text().replace("modules/", "/usr/lib/nginx/modules/"))
    nginx = f"nginx -p {folder} -c {folder}/nginx.conf"
    health = inside("b", BALANCE / "collector-health", *[word for one in COLLECTORS for word in ("--collector", one)],
                    "--write", folder / "collectors.conf", "--then", f"! test -e {folder}/pid || {nginx} -s reload",
                    "--every", "0.5", "--patience", "10", stdout=(folder / "health").open("w"))
    wait_for("collectors.conf", (folder / "collectors.conf").exists)
    inside("b", *nginx.split(), "-g", "daemon off;")
    wait_for("nginx", lambda: (folder / "pid").exists())
    return health


def test(folder):
    collectors = [Collector(number, folder) for number in (1, 2, 3)]
    for one in collectors:
        wait_for("a collector", lambda one=one: "listening" in (one.folder / "log").read_text())
    balancer(folder)
    exporters = inside("x", sys.executable, __file__, "--send", stdout=subprocess.PIPE, text=True)
    wait_for("an exporter everywhere", lambda: all(one.json.exists() and one.exporters() for one in collectors))
    time.sleep(2)

    victim = collectors[0]
    before = victim.exporters()
    expect(f"exporters spread: {[len(one.exporters()) for one in collectors]}",
           sorted(address for one in collectors for address in one.exporters()) == EXPORTERS)
    victim.end(signal.SIGKILL)
    killed = time.monotonic()
    wait_for("a collector taken out", lambda: "does not answer" in (folder / "health").read_text())
    wait_for("exporters elsewhere", lambda: before.keys() <= {
        address for one in collectors[1:] for address in one.exporters()})
    away = time.monotonic() - killed
    time.sleep(2)
    exporters.terminate()
    sent = int(exporters.communicate(timeout=30)[0]) * RECORDS
    time.sleep(1)
    for one in collectors[1:]:
        expect("a collector's end", one.end() == 0)
    judge(sent, before, [one.exporters() for one in collectors[1:]], away)
    print(f"balance: {sent} records of each exporter, {len(before)} exporters moved after {away:.1f} s")


def judge(sent, before, after, away):
    """who was not moved has lost nothing; who was, no more than was sent meanwhile, and in the time
    that a report takes, which under a sanitizer is long; of that the new collector may tell some, as a worker of
    nginx that ends can still take a datagram behind the first that a new one has passed on"""
    for address in EXPORTERS:
        seen = [one[address] for one in after if address in one]
        expect(f"{address} at one collector: {seen}", len(seen) == 1)
        if not seen:
            continue
        records, lost = seen[0]
        if address not in before:
            expect(f"{address}: {records} of {sent} records, {lost} lost", (records, lost) == (sent, 0))
        else:
            missing = sent - records - before[address][0]
            expect(f"{address}: {missing} records missing in {away:.1f} s, {lost} lost where it went",
                   lost <= missing <= (away + 3) / PAUSE * RECORDS and missing > 0)


def main():
    try:
        network()
    except (OSError, subprocess.CalledProcessError) as error:
        print(f"balance_test: no network namespaces here: {getattr(error, 'stderr', error)}")
        return 77
    with tempfile.TemporaryDirectory() as folder:
        test(pathlib.Path(folder))
    for failure in failures:
        print(f"FAILED {failure}")
    return 1 if failures else 0


if __name__ == "__main__":
    if sys.argv[1:] == ["--send"]:
        sys.exit(send())
    FLOWHOST, PLUGIN, BALANCE = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
    sys.exit(main())
