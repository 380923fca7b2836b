#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""stress.py [--short] [--keep-on] [--verbose] FLOWHOST PLUGIN [CASE...]: what neighbours and strangers may do to a collector.

Each case starts a collector on loopback with a true exporter (NetFlow v5), has something hang or somebody flood it, and
ends it with SIGTERM. One line each: datagrams a second of the attack, peak of resident memory, lines of the log, seconds
to the end, records of the true exporter sent, metered (as the database has them, or JSON where it has none) and told as lost,
datagrams of anybody that still waited in the end, and what was wrong.
With --short a case takes some 3 s and attacks are slow, else 20 and they are as fast as can be. Cases in which minutes have
to pass have a clock that runs faster, which libfaketime gives them; where it is missing they are left out.

Exit status: 0 as it should be, 1 not.
"""
import argparse
import contextlib
import fcntl
import itertools
import json
import multiprocessing
import os
import pathlib
import re
import signal
import socket
import sqlite3
import struct
import subprocess
import sys
import tempfile
import time

LONGEST_END = 10  # seconds from SIGTERM to the end of the process
MOST_MEMORY = 400  # MB
MOST_LINES = 1000  # of the log
FAKETIME = next(pathlib.Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1"), None)
PACE = 60  # of a faked clock: a minute takes a second


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def sender(port, address="127.0.0.1"):
    made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    made.bind((address, 0))
    made.connect(("127.0.0.1", port))
    return made


# What attackers send, for ever.
def cut_ipfix(port):
    """24 bytes each, and the length of the set is another every time: the meter has a message on every one"""
    exporter = sender(port)
    for number in itertools.count():
        yield exporter.send(struct.pack(">HHIII HH", 10, 24, 0, number, 0, 256, 9 + number % 65000) + bytes(4))


def strangers(port):
    """a flood of whoever is not allowed to send"""
    exporter = sender(port, "127.9.9.9")
    while True:
        yield exporter.send(struct.pack(">HHIII HH", 10, 24, 0, 0, 0, 256, 9) + bytes(4))


def v9(*sets):
    return struct.pack(">HHIIII", 9, len(sets), 1000, 1_700_000_000, 1, 0) + b"".join(
        struct.pack(">HH", number, 4 + len(body)) + body for number, body in sets)


RATE_TEMPLATE = (1, struct.pack(">HHHHHHH", 256, 4, 4, 1, 1, 34, 1) + bytes(2))  # a scope and a rate of one byte each


def dear_datagrams(port):
    """thousands of exporters have told a rate; then each record of a datagram has all of them told again"""
    for number in range(RATES):
        with sender(port, f"127.1.{number // 250}.{number % 250 + 1}") as exporter:
            exporter.send(v9(RATE_TEMPLATE, (256, b"\1\2" * 2)))
        if number % 20 == 0:
            time.sleep(0.002)
        yield
    with sender(port, "127.2.0.1") as exporter:
        exporter.send(v9(RATE_TEMPLATE))
        while True:
            yield exporter.send(v9((256, b"\1\3" * 32700)))
            time.sleep(0.1)


def attack(make, port, sent, stop):
    with contextlib.suppress(ConnectionRefusedError):  # the collector has ended
        for _ in make(port):
            sent.value += 1
            if stop.is_set():
                break
            if ARGUMENTS.short and sent.value % 100 == 0:
                time.sleep(0.005)


def export(port, sent, own_port, stop):
    """a true exporter: 500 datagrams of 30 records a second"""
    exporter = sender(port)
    own_port.value = exporter.getsockname()[1]
    records = b"".join(struct.pack(">IIIHHIIIIHHBBBBHHBBH", 0x0A000001 + n, 0xC0000201, 0, 1, 2, 10, 1000, 100, 900, 1024, 443,
                                   0, 24, 6, 0, 64500, 64501, 24, 24, 0) for n in range(30))
    start = time.monotonic()
    for number in itertools.count():
        if stop.is_set():
            return
        with contextlib.suppress(OSError):  # it has not begun to listen, or has ended
            exporter.send(struct.pack(">HHIIIIBBH", 5, 30, 1000, int(time.time()), 0, number * 30, 0, 0, 0) + records)
            sent.value = (number + 1) * 30
        time.sleep(max(0, start + number / 500 - time.monotonic()))


def full_pipe():
    reader, writer = os.pipe()
    fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
    os.write(writer, bytes(4000))
    return reader, writer


class Clock:
    """of a collector: it runs faster, and can be set"""

    def __init__(self, folder):
        self.file, self.started = folder / "clock", time.time()
        self.set("+0")
        self.environment = {
            "LD_PRELOAD": str(FAKETIME), "FAKETIME_TIMESTAMP_FILE": str(self.file), "FAKETIME_NO_CACHE": "1",
            "FAKETIME_DONT_FAKE_MONOTONIC": "1", "NO_FAKE_STAT": "1",
            "ASAN_OPTIONS": "verify_asan_link_order=0:" + os.environ.get("ASAN_OPTIONS", "")}

    def slow_down(self):
        """goes on from where it is as fast as ours: what is granted for an end is as short as the clock is fast"""
        self.set(f"+{(time.time() - self.started) * (PACE - 1):.0f}", 1)

    def set(self, text, pace=PACE):
        self.file.with_suffix(".new").write_text(f"{text} x{pace}\n")
        self.file.with_suffix(".new").rename(self.file)


class Collector:
    def __init__(self, folder, full=(), options=(), policy="", locked=False, has_clock=False):
        (folder / "policies").mkdir()
        if policy:
            (folder / "policies" / "NetflowCounterPolicy.xml").write_text(
                f"<OmbrelPluginConfiguration><Policy>{policy}</Policy></OmbrelPluginConfiguration>")
        self.folder, self.port, self.log, self.database = folder, free_port(), folder / "log", folder / "flows.db"
        if locked:
            self.lock = sqlite3.connect(self.database)
            self.lock.execute("BEGIN EXCLUSIVE")
        self.summary, self.store = folder / "summary", folder / "store"
        self.clock = Clock(folder) if has_clock else None
        self.pipes = [full_pipe() for _ in full]
        streams = {"stdout": (folder / "summary").open("w"), "stderr": self.log.open("w")}
        streams.update({name: pipe[1] for name, pipe in zip(full, self.pipes)})
        self.process = subprocess.Popen(
            [ARGUMENTS.flowhost, "listen", "--plugin", ARGUMENTS.plugin, "--config", folder / "policies", "--bind", "127.0.0.1",
             "--port", f"netflow={self.port}", "--sqlite", self.database, "--json",
             folder / "out.json", "--interval", "60" if has_clock else "1", "--top", "50", *options,
             *(["--store", self.store] if has_clock else [])],
            stdin=subprocess.DEVNULL, env=dict(os.environ, **self.clock.environment) if has_clock else None, **streams)
        for stream in (streams["stdout"], streams["stderr"], *(pipe[1] for pipe in self.pipes)):
            if not isinstance(stream, int):
                stream.close()
        for _, writer in self.pipes:
            os.close(writer)
        inode = f":{self.port:04X} "
        end = time.time() + 30
        while inode not in pathlib.Path("/proc/net/udp").read_text():
            if time.time() > end or self.process.poll() is not None:
                raise RuntimeError(f"no collector: {self.log.read_text()}")
            time.sleep(0.02)

    def peak(self):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(re.search(r"VmHWM:\s+(\d+)", status).group(1)) // 1024

    def end(self):
        """seconds, and None where it had to be killed"""
        if self.clock:
            self.clock.slow_down()
            time.sleep(0.5)  # it is looked at when somebody asks for the time
        start = time.monotonic()
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(3 * LONGEST_END)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            return None
        return time.monotonic() - start

    def records(self, port):
        """metered and told as lost, of an exporter"""
        try:
            with contextlib.closing(sqlite3.connect(self.database)) as database:
                row = database.execute("SELECT sum(records), sum(lost), sum(lost_here), sum(dropped_here) FROM exporters "
                                       "WHERE port = ? AND lost_unit = 'flows'", (port,)).fetchone()
        except sqlite3.Error:
            row = ()
        if not row or row[0] is None:
            row = self.records_shown(port)
        metered, lost, here, dropped = (value or 0 for value in row)
        return metered, lost + here + 30 * dropped

    def records_shown(self, port):
        """of the run, where the database is not to be had"""
        with contextlib.suppress(OSError, ValueError):
            for exporter in json.loads((self.folder / "out.json").read_text())["exporters"]:
                if exporter["port"] == port:
                    lost = exporter["sequence"]
                    return exporter["records"], lost["lost"], lost["lost_here"], exporter.get("dropped_here")
        return (0,) * 4


# What happens meanwhile, in cases with a clock; and what is to be found in the end: a fault, or none.
def set_clock(collector, seconds):
    for text in ("+400d", "-2h", "+0"):
        time.sleep(seconds / 4)
        collector.clock.set(text)
    time.sleep(seconds / 4)


def lock_database(collector, seconds):
    time.sleep(seconds / 3)
    with contextlib.closing(sqlite3.connect(collector.database, timeout=30)) as lock:
        lock.execute("BEGIN EXCLUSIVE")
        time.sleep(seconds / 3)
    time.sleep(seconds / 3)


def remove_databases(collector, seconds):
    time.sleep(seconds / 2)
    collector.database.unlink()
    (collector.store / "counters.sqlite").unlink()
    time.sleep(seconds / 2)


def minutes(collector):
    """records by minute, in the database and in the store; and those of datagrams that were held back: the time of a
    thread is faked as well, so that one that waits for a processor seems to use it"""
    found = []
    for file, table, rejected in ((collector.database, "exporters", "rejected"),
                                  (collector.store / "counters.sqlite", "health_minute", "refused")):
        question = f"SELECT bucket / 60 * 60, sum(records) + 30 * sum(ifnull({rejected}, 0)) FROM {table} GROUP BY 1"
        with contextlib.closing(sqlite3.connect(file)) as database:
            found.append(dict(database.execute(question)))
    return found


def all_minutes(collector, sent):
    """each has its own records, and all of them are there"""
    for found in minutes(collector):
        if sum(found.values()) != sent:
            return f"{sum(found.values()):,} records in {len(found)} minutes"
        if len(found) < SECONDS_OF_CLOCK / 2 or max(found.values()) > 3 * sent / SECONDS_OF_CLOCK:
            return f"minutes of others: {found}"
    return None


def later_minutes(collector, sent):
    log = collector.log.read_text()
    told = [name for name in ("flows.db was removed", "counters.sqlite was removed") if name not in log]
    if told:
        return f"not told: {told}"
    return next((f"nothing goes on: {found}" for found in minutes(collector) if not 0.2 * sent < sum(found.values()) < 0.8 * sent),
                None)


# name, what hangs, what is sent, options
CASES = {
    "distinct_lines": dict(attack=cut_ipfix),
    "strangers": dict(attack=strangers, options=("--allow", "127.0.0.1")),
    "full_stderr": dict(attack=cut_ipfix, full=("stderr",)),
    "full_stdout": dict(full=("stdout",)),
    "full_both": dict(attack=cut_ipfix, full=("stdout", "stderr")),
    "locked_database": dict(locked=True),
    "clock_leaps": dict(meanwhile=set_clock, found=all_minutes),
    "lock_for_minutes": dict(meanwhile=lock_database, found=all_minutes),
    "removed_databases": dict(meanwhile=remove_databases, found=later_minutes),
    "dear_datagrams": dict(attack=dear_datagrams, options=("--instances", "2"),
                           policy="<TemplatesPerDomain>false</TemplatesPerDomain>"),
}


def run(name, folder, attack_with=None, meanwhile=None, found=None, **how):
    faults = []
    full = how.get("full", ())
    collector = Collector(folder, has_clock=meanwhile is not None, **how)
    stop = multiprocessing.Event()
    sent, own_port, attacks = (multiprocessing.Value(kind, 0) for kind in ("q", "i", "q"))
    senders = [multiprocessing.Process(target=export, args=(collector.port, sent, own_port, stop), daemon=True)]
    if attack_with:
        senders.append(multiprocessing.Process(target=attack, args=(attack_with, collector.port, attacks, stop), daemon=True))
    start = time.monotonic()
    for each in senders:
        each.start()
    if meanwhile:
        meanwhile(collector, SECONDS_OF_CLOCK)
    else:
        time.sleep(SECONDS)
    rate = attacks.value / (time.monotonic() - start)
    peak = collector.peak()
    if ARGUMENTS.keep_on:
        seconds = collector.end()
    stop.set()
    senders[0].join()
    time.sleep(0.2)
    if not ARGUMENTS.keep_on:
        seconds = collector.end()
    for each in senders[1:]:
        each.terminate()
        each.join()
    metered, told = collector.records(own_port.value)
    log = collector.log.read_text(errors="replace")
    lines = log.count("\n")
    waited = sum(int(number.replace(",", "")) for number in re.findall(r"([\d,]+) datagrams that waited for a meter", log))
    if seconds is None or seconds > LONGEST_END + GRACE:
        faults.append("was not ended by SIGTERM")
    if peak > MOST_MEMORY and not meanwhile:
        faults.append("memory")
    if lines > MOST_LINES:
        faults.append("log lines")
    if found:
        faults += filter(None, [found(collector, sent.value)])
    elif metered + told + 30 * waited < sent.value * (0.5 if attack_with else 1):
        faults.append("records missing")
    if full == ("stderr",) and not ARGUMENTS.short and "Standard error has taken nothing" not in collector.summary.read_text():
        faults.append("a stuck log is not told")
    if attack_with is strangers and "warning" in log:
        faults.append("strangers are metered")
    if attack_with is cut_ipfix and "stderr" not in full and " more like it from 1 exporter in " not in log:
        faults.append("log lines are not summed")
    if ARGUMENTS.verbose:
        print(log)
    shown = f"{seconds:.1f}" if seconds is not None else "never"
    print(f"{name:<18}{rate:>10,.0f}{peak:>8}{lines:>10,}{shown:>8}{sent.value:>12,}{metered:>12,}{told:>10,}{waited:>10,}  "
          f"{', '.join(faults) or 'ok'}", flush=True)
    return not faults


def main():
    print(f"{'case':<18}{'attack/s':>10}{'MB':>8}{'lines':>10}{'end s':>8}{'sent':>12}{'metered':>12}{'lost':>10}{'waited':>10}")
    good = True
    for name in ARGUMENTS.cases or CASES:
        case = dict(CASES[name])
        if "meanwhile" in case and not FAKETIME:
            print(f"{name:<18}  no libfaketime here")
            continue
        with tempfile.TemporaryDirectory() as folder:
            good = run(name, pathlib.Path(folder), attack_with=case.pop("attack", None), **case) and good
    sys.exit(not good)


parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("--short", action="store_true")
parser.add_argument("--keep-on", action="store_true", help="the exporters send on while the collector ends")
parser.add_argument("--verbose", action="store_true", help="show the log of each case")
parser.add_argument("flowhost")
parser.add_argument("plugin")
parser.add_argument("cases", nargs="*", metavar="CASE", help=", ".join(CASES))
ARGUMENTS = parser.parse_args()
GRACE = 2 if ARGUMENTS.short else 0  # other tests run beside
SECONDS = 3 if ARGUMENTS.short else 20
SECONDS_OF_CLOCK = 8 if ARGUMENTS.short else 20
RATES = 2000 if ARGUMENTS.short else 20000
main()
