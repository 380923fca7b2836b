#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""floods.py [--short] [--seconds N] [--memory MB] [--address-space MB] [--instances N] FLOWHOST PLUGIN [FLOOD...]: strangers that
fill memory.

One collector on loopback with a budget of memory takes one flood after another, each as fast as loopback gives, beside a
true exporter: NetFlow v9, 50,000 records a second, its templates and its sampling rate sent once, at the start. One line
each: datagrams a second of the flood, the most resident memory meanwhile and its ratio to the budget, and of the true exporter
the records sent, metered and told as lost, as the database has them in the end. Then the bytes that are counted for it,
which tell whether a record was metered at another rate, and the seconds to the end by SIGTERM. With --short floods
are slow and take seconds, whatever memory that takes; the first goes on until meters are replaced.

Exit status: 0 as it should be, 1 not.
"""
import argparse
import contextlib
import itertools
import multiprocessing
import os
import pathlib
import re
import resource
import signal
import socket
import sqlite3
import struct
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "scale"))
from checking import rest  # noqa: E402

RATE = 7  # the true exporter's sampling rate
RECORDS = 30  # in its datagrams
BYTES = 100  # of its records
HOST = 0x0A070707  # that they are of
MOST = {"plug-in": 1.5, "host": 1.2}  # times the budget


def sender(port, address="127.0.0.1", own_port=0):
    made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    made.bind((address, own_port))
    made.connect(("127.0.0.1", port))
    return made


def v9(number, domain, *sets):
    return struct.pack(">HHIIII", 9, len(sets), 1000, int(time.time()), number, domain) + b"".join(
        struct.pack(">HH", set_id, 4 + len(body)) + body for set_id, body in sets)


def template(number, *fields):
    return struct.pack(">HH", number, len(fields)) + b"".join(struct.pack(">HH", *field) for field in fields)


def v5(records):
    return bytearray(struct.pack(">HHIIIIBBH", 5, records, 1000, int(time.time()), 0, 0, 0, 0, 0) + struct.pack(
        ">IIIHHIIIIHHBBBBHHBBH", 0, 0, 0, 1, 2, 1, 40, 100, 900, 1024, 443, 0, 24, 6, 0, 64500, 64501, 24, 24, 0) * records)


# What strangers send, for ever.
def random_v5(port, records=30):
    """NetFlow v5 of random addresses, ports and AS numbers"""
    stranger = sender(port, "127.9.0.1")
    datagram = v5(records)
    places = [at for at in (*range(8), 32, 33, 34, 35, 40, 41, 42, 43)]
    while True:
        chance = os.urandom(records * len(places))
        for i, at in enumerate(places):
            datagram[24 + at::48] = chance[i * records:(i + 1) * records]
        yield stranger.send(datagram)


def largest_v5(port):
    """the same in datagrams as long as UDP has them"""
    return random_v5(port, 1364)


def made_up(port, datagram_of):
    for number in itertools.count():
        address = f"127.{10 + number % 200}.{number // 200 % 250}.{1 + number // 50000 % 250}"
        with sender(port, address) as stranger:
            for _ in range(4):
                yield stranger.send(datagram_of(number))


def template_ports(port):
    """templates of 15 fields from another address and port each"""
    fields = [(field, 4) for field in (8, 12, 1, 2, 7, 11, 4, 5, 10, 14, 21, 22, 16, 17, 6)]
    return made_up(port, lambda number: v9(number, number, (0, template(256 + number % 1000, *fields))))


def dense_templates(port):
    """templates without a field, 340 in a datagram, of ever new domains"""
    stranger = sender(port, "127.9.0.2")
    body = b"".join(template(256 + number) for number in range(340))
    for number in itertools.count():
        yield stranger.send(v9(number, number, (0, body)))


def made_up_exporters(port):
    """v5 and IPFIX without a record, from another exporter each, of random domains"""
    def datagram(number):
        if number % 2:
            return struct.pack(">HHIIIIBBH", 5, 0, 1000, int(time.time()), 0, number, 0, number % 256, 0)
        return struct.pack(">HHIII HH", 10, 24, int(time.time()), number, number, 256, 8) + bytes(4)
    return made_up(port, datagram)


def made_up_rates(port):
    """sampling rates of made-up exporters"""
    rate = (1, struct.pack(">HHHHHHH", 256, 4, 4, 1, 4, 34, 4) + bytes(2))
    return made_up(port, lambda number: v9(number, 0, rate, (256, struct.pack(">II", 1, 100))))


def application_texts(port):
    """applications of random names, and flows of them"""
    stranger = sender(port, "127.9.0.3")
    fields = [(8, 4), (12, 4), (1, 4), (2, 4), (7, 2), (11, 2), (95, 4), (96, 24), (94, 32)]
    stranger.send(v9(0, 0, (0, template(256, *fields))))
    for number in itertools.count():
        records = b"".join(
            chance[:8] + struct.pack(">II", 40, 1) + chance[8:12] + b"\3" + chance[12:15] + chance[:28].hex()[:56].encode()
            for chance in (os.urandom(28) for _ in range(18)))
        yield stranger.send(v9(number + 1, 0, (256, records)))


# name: what is sent, who holds the memory, and datagrams a second of a slow one
FLOODS = {
    "template_ports": (template_ports, "plug-in", 20_000),
    "random_v5": (random_v5, "host", 400),
    "dense_templates": (dense_templates, "plug-in", 400),
    "made_up_exporters": (made_up_exporters, "host", 4000),
    "made_up_rates": (made_up_rates, "plug-in", 4000),
    "application_texts": (application_texts, "host", 400),
    "largest_v5": (largest_v5, "host", 10),
}


def attack(make, port, rate, sent, stop):
    pause = max(1, rate // 200)  # after so many
    with contextlib.suppress(ConnectionRefusedError):  # the collector has ended
        for _ in make(port):
            sent.value += 1
            if stop.is_set():
                break
            if rate and sent.value % pause == 0:
                time.sleep(pause / rate)


def export(port, sent, own_port, stop):
    """the true exporter"""
    exporter = sender(port)
    own_port.value = exporter.getsockname()[1]
    fields = [(8, 4), (12, 4), (1, 4), (2, 4), (7, 2), (11, 2), (4, 1), (10, 2), (14, 2)]
    rate = (1, struct.pack(">HHHHHHH", 300, 4, 4, 1, 4, 34, 4) + bytes(2))
    exporter.send(v9(0, 7, (0, template(299, *fields)), rate, (300, struct.pack(">II", 1, RATE))))
    body = b"".join(struct.pack(">IIIIHHBHH", HOST, 0xC0000201, BYTES, 1, 1024 + n, 443, 6, 1, 2) for n in range(RECORDS))
    body += bytes(-len(body) % 4)
    start = time.monotonic()
    for number in itertools.count(1):
        if stop.is_set():
            return
        with contextlib.suppress(OSError):  # the collector has ended
            exporter.send(v9(number, 7, (299, body)))
            sent.value = number * RECORDS
        time.sleep(max(0, start + number * RECORDS / ARGUMENTS.true_rate - time.monotonic()))


class Collector:
    def __init__(self, folder):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        (folder / "policies").mkdir()
        self.folder, self.log, self.database, self.store = folder, folder / "log", folder / "flows.db", folder / "store"
        memory = ["--memory", f"{ARGUMENTS.memory}M"] if ARGUMENTS.memory else []
        store = ["--store", self.store] if ARGUMENTS.store else []
        with (folder / "summary").open("w") as out, self.log.open("w") as log:
            self.process = subprocess.Popen(
                [ARGUMENTS.flowhost, "listen", "--plugin", ARGUMENTS.plugin, "--config", folder / "policies", "--bind",
                 "127.0.0.1", "--port", f"netflow={self.port}", "--sqlite", self.database, "--interval", "5", "--top", "50",
                 "--instances", str(ARGUMENTS.instances), "--state", folder / "state", *memory, *store],
                stdin=subprocess.DEVNULL, stdout=out, stderr=log, preexec_fn=self.limit)
        end = time.time() + 30
        while f":{self.port:04X} " not in pathlib.Path("/proc/net/udp").read_text():
            if time.time() > end or self.process.poll() is not None:
                raise RuntimeError(f"no collector: {self.log.read_text()}")
            time.sleep(0.02)

    @staticmethod
    def limit():
        if ARGUMENTS.address_space:
            resource.setrlimit(resource.RLIMIT_AS, (ARGUMENTS.address_space << 20,) * 2)

    def take_peak(self):
        """MB, since last asked"""
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        pathlib.Path(f"/proc/{self.process.pid}/clear_refs").write_text("5")
        return int(re.search(r"VmHWM:\s+(\d+)", status).group(1)) / 1024

    def end(self):
        start = time.monotonic()
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(30)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        return time.monotonic() - start

    def ask(self, question, *values, of=None):
        with contextlib.closing(sqlite3.connect(of or self.database)) as database:
            return [value or 0 for value in database.execute(question, values).fetchone()]


def flood(collector, name, true_sent):
    make, holder, slow = FLOODS[name]
    rate = slow if ARGUMENTS.short else ARGUMENTS.rate
    stop, sent = multiprocessing.Event(), multiprocessing.Value("q", 0)
    stranger = multiprocessing.Process(target=attack, args=(make, collector.port, rate, sent, stop), daemon=True)
    before = true_sent.value
    collector.take_peak()
    start = time.monotonic()
    stranger.start()
    time.sleep(ARGUMENTS.seconds)
    while ARGUMENTS.short and time.monotonic() < start + 120 and REPLACED not in collector.log.read_text(errors="replace"):
        time.sleep(0.2)
    rate = sent.value / (time.monotonic() - start)
    stop.set()
    stranger.terminate()
    stranger.join()
    if collector.process.poll() is not None:
        print(f"{name:<18}{rate:>10,.0f}  the collector has ended with {collector.process.returncode}", flush=True)
        return False
    peak = collector.take_peak()
    ratio = peak / ARGUMENTS.memory if ARGUMENTS.memory else 0
    good = ratio < MOST[holder] or ARGUMENTS.short
    print(f"{name:<18}{rate:>10,.0f}{peak:>8.0f}{ratio:>7.2f}{true_sent.value - before:>12,}  {'ok' if good else 'memory'}",
          flush=True)
    return good


def main():
    good = True
    with tempfile.TemporaryDirectory() as name:
        collector = Collector(pathlib.Path(name))
        stop = multiprocessing.Event()
        sent, own_port = multiprocessing.Value("q", 0), multiprocessing.Value("i", 0)
        exporter = multiprocessing.Process(target=export, args=(collector.port, sent, own_port, stop), daemon=True)
        exporter.start()
        time.sleep(1)
        print(f"{'flood':<18}{'floods/s':>10}{'MB':>8}{'ratio':>7}{'sent':>12}")
        for each in ARGUMENTS.floods or FLOODS:
            if collector.process.poll() is None:
                good = flood(collector, each, sent) and good
        time.sleep(1)
        stop.set()
        exporter.join()
        rest(collector.process.pid, 60 if ARGUMENTS.short else 0.5)
        seconds = collector.end()
        status = collector.process.returncode
        metered, lost, here, rejected, undecoded, moves = collector.ask(
            "SELECT sum(records), sum(lost), sum(lost_here) + sum(dropped_here), sum(rejected), sum(sets_without_template), "
            "sum(restarts) + sum(jumps) FROM exporters WHERE port = ? AND address = '127.0.0.1'", own_port.value)
        counted, = collector.ask("SELECT sum(bytes_in + bytes_out) FROM hosts WHERE text = '10.7.7.7'")
        print(f"true exporter: {sent.value:,} sent, {metered:,} metered, {lost * RECORDS:,} told as lost on the way, "
              f"{here * RECORDS:,} as dropped here, {rejected * RECORDS:,} as rejected, {undecoded * RECORDS:,} without template, "
              f"{moves} restarts and jumps; {counted / max(1, metered) / BYTES:.2f} times their bytes counted, "
              f"rate {RATE}; {seconds:.1f} s to the end, status {status}")
        log = collector.log.read_text(errors="replace")
        was_replaced = REPLACED in log or not ARGUMENTS.short
        if ARGUMENTS.verbose:
            print(log)
        # The options record at the start is one, without addresses.
        missing = sent.value - metered - (lost + here + rejected + undecoded) * RECORDS
        # At an end in haste, what waits is told without names.
        waited = sum(int(number.replace(",", "")) for number in
                     re.findall(r"([\d,]+) datagrams? that (?:waited for a meter|arrived late)", log))
        checks = {"records missing": -RECORDS <= missing <= RECORDS * (1 + waited), "rejected": rejected == 0, "without template": undecoded == 0,
                  "another rate": counted == metered * BYTES * RATE or metered == 0,
                  "nothing metered": metered > 0, "status": status == 0, "no meter was replaced": was_replaced, "time to the end": seconds < 12}
        if ARGUMENTS.store:
            stored = collector.ask("SELECT sum(records), sum(lost + lost_here + dropped), sum(refused) FROM health_minute "
                                   "WHERE port = ? AND exporter = '127.0.0.1'", own_port.value, of=collector.store / "counters.sqlite")
            flows = sum(collector.ask("SELECT sum(records) FROM flow_list WHERE src = '10.7.7.7'", of=file)[0]
                        for file in collector.store.glob("flows/*.sqlite"))
            print(f"store: {stored[0]:,} metered, {stored[1] * RECORDS:,} lost; {flows:,} in flows that there was room for")
            checks["store"] = stored == [metered, lost + here, rejected]
        for fault in (what for what, is_good in checks.items() if not is_good):
            good = False
            print(f"fault: {fault}{f' ({missing:,})' if fault == 'records missing' else ''}")
        print(*(line for line in log.splitlines() if "memory" in line or "let go" in line), sep="\n")
    sys.exit(not good)


parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("--seconds", type=float, default=60, help="of each flood (default: 60)")
parser.add_argument("--memory", type=int, default=256, metavar="MB", help="the budget; 0 for none said (default: 256)")
parser.add_argument("--address-space", type=int, default=0, metavar="MB", help="of the collector (default: no limit)")
parser.add_argument("--instances", type=int, default=1)
parser.add_argument("--rate", type=int, default=0, help="most datagrams a second of a flood (default: no limit)")
parser.add_argument("--true-rate", type=int, default=50_000, help="records a second of the true exporter")
parser.add_argument("--store", action="store_true", help="keep a store as well")
parser.add_argument("--verbose", action="store_true", help="show the log")
parser.add_argument("flowhost")
parser.add_argument("plugin")
parser.add_argument("floods", nargs="*", metavar="FLOOD", help=", ".join(FLOODS))
parser.add_argument("--short", action="store_true")
ARGUMENTS = parser.parse_args()
if ARGUMENTS.short:
    ARGUMENTS.seconds, ARGUMENTS.memory, ARGUMENTS.true_rate = 4, 64, 3000
REPLACED = "for fresh ones"
main()
