#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""moving_test.py FLOWHOST PLUGIN MOCK_KAFKA: exporters that move from one collector to another decode there at once, by
the templates and sampling rates that collectors tell each other by a topic.
"""
import collections
import json
import pathlib
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

from checking import expect, failures, wait_for
from kafka import Kafka

RATE = 100
BYTES, PACKETS = 700, 3  # of each record
RECORDS = 5              # of each datagram


def part(kind, body):
    body += bytes(-len(body) % 4)
    return struct.pack("!HH", kind, 4 + len(body)) + body


class Exporter:
    """of NetFlow v9, whose templates say nothing of sampling: options do"""
    FIELDS = {256: [(8, 4), (12, 4), (7, 2), (11, 2), (4, 1), (2, 4), (1, 4)],
              # the same under the same number, later
              "changed": [(1, 4), (2, 4), (8, 4), (12, 4), (4, 1), (7, 2), (11, 2)]}

    def __init__(self, address, domain=7):
        self.address, self.domain, self.sent, self.kind = address, domain, 0, 256
        self.socket = socket.socket(socket.AF_INET6 if ":" in address else socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind((address, 0))

    def send(self, collector, *sets):
        head = struct.pack("!HHIIII", 9, len(sets), 5000, int(time.time()), self.sent, self.domain)
        self.sent += 1
        self.socket.sendto(head + b"".join(sets), ("::1" if ":" in self.address else "127.0.0.1", collector.port))

    def teach(self, collector):
        fields = self.FIELDS[self.kind]
        template = struct.pack("!HH", 256, len(fields)) + b"".join(struct.pack("!HH", *field) for field in fields)
        options = struct.pack("!HHHHHHHHH", 300, 4, 8, 1, 4, 34, 4, 35, 1)
        data = struct.pack("!IIB", 0, RATE, 1)
        self.send(collector, part(0, template), part(1, options))
        self.send(collector, part(300, data))

    def count(self, collector):
        values = {8: b"\x0a\1\0\1", 12: b"\x0a\2\0\1", 7: b"\x20\0", 11: b"\1\xbb", 4: b"\6", 2: PACKETS.to_bytes(4, "big"),
                  1: BYTES.to_bytes(4, "big")}
        record = b"".join(values[field] for field, _ in self.FIELDS[self.kind])
        self.send(collector, part(256, record * RECORDS))


class Collector:
    def __init__(self, name, folder, kafka):
        with socket.socket(socket.AF_INET6, socket.SOCK_DGRAM) as free:
            free.bind(("::", 0))
            self.port = free.getsockname()[1]
        self.name, self.folder = name, folder / name
        self.folder.mkdir()
        self.json = self.folder / "out.json"
        self.process = subprocess.Popen(
            [FLOWHOST, "listen", "--plugin", PLUGIN, "--config", self.folder / "policies", "--bind", "127.0.0.1", "--bind",
             "::1", "--port", f"netflow={self.port}", "--collector", name, "--kafka", kafka.brokers, "--interval", "1",
             "--instances", "2", "--json", self.json, "--top", "0"], stdout=subprocess.DEVNULL,
            stderr=(self.folder / "log").open("w"))
        wait_for(f"{name} at work", lambda: "listening" in self.log())

    def log(self):
        return (self.folder / "log").read_text()

    def rows(self):
        return json.loads(self.json.read_text())["exporters"] if self.json.exists() else []

    def end(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        expect(f"{self.name} ends", self.process.wait(30), 0 if number == signal.SIGTERM else -number)


def counted(kafka):
    """bytes by collector and exporter"""
    sums = collections.Counter()
    for flow in kafka.all("flows"):
        sums[flow["collector"], flow["sampler_address"]] += flow["bytes"]
    return sums


def moves(folder):
    kafka = Kafka(MOCK_KAFKA)
    first, second = (Collector(name, folder, kafka) for name in ("first", "second"))
    exporters = [Exporter(address) for address in ("127.0.0.11", "127.0.0.12", "::1")]
    told = lambda: {(row["sampler_address"], row["kind"]) for row in kafka.all("templates")}
    for exporter in exporters:
        exporter.teach(first)
    wait_for("told", lambda: len(told()) == 2 * len(exporters))
    time.sleep(0.5)  # to be read

    for exporter in exporters:
        exporter.count(first)
        exporter.count(second)
    # What is new is told by who heard it, and who heard the old has it from there.
    exporters[0].kind = "changed"
    exporters[0].teach(second)
    wait_for("the new template told", lambda: any(row["collector"] == "second" for row in kafka.all("templates")))
    time.sleep(0.5)
    exporters[0].count(first)
    third = Collector("third", folder, kafka)
    wait_for("told what was read", lambda: "7 templates and 3 sampling rates learnt from Kafka topic" in third.log(), 5)
    # What is older than what is known, and what is nothing, changes nothing.
    stale = next(row for row in kafka.all("templates") if (row["collector"], row["kind"], row["sampler_address"]) ==
                 ("first", "templates", exporters[0].address))
    kafka.put("templates", json.dumps({**stale, "collector": "late", "told": 1}), "no JSON",
              json.dumps({**stale, "collector": "odd", "bytes": stale["bytes"][:-3]}), '{"kind":"rate"}')
    time.sleep(0.5)
    for exporter in exporters:
        exporter.count(third)
    wait_for("all metered", lambda: sum(row["records"] for row in third.rows()) == len(exporters) * RECORDS, 10)
    for one in (first, second, third):
        expect(f"{one.name} left nothing out", one.rows() and [row["sets_without_template"] for row in one.rows()],
               [0] * len(one.rows()))
        one.end()
    whole = RATE * RECORDS * BYTES
    wanted = {(one, exporter.address): whole for one in ("first", "second", "third") for exporter in exporters}
    wanted["first", exporters[0].address] *= 2
    expect("bytes, each at its rate", dict(counted(kafka)), wanted)
    keys = [key for rows in kafka.read("templates").values() for key, _ in rows if key]
    expect("said once by each who was told", sorted(collections.Counter(keys).values()), 6 * [1] + 3 * [2])
    places = collections.defaultdict(set)
    for partition, rows in kafka.read("templates").items():
        for key, _ in filter(lambda row: row[0], rows):
            places[key.split(" ")[0]].add(partition)
    expect("an exporter's in one partition", {len(one) for one in places.values()}, {1})
    kafka.end()


def no_broker(folder):
    """a collector starts without, and says so"""
    kafka = Kafka(MOCK_KAFKA)
    kafka.tell("down")
    alone = Collector("alone", folder, kafka)
    wait_for("told that it could not be read", lambda: "could not be read to its end" in alone.log())
    exporter = Exporter("127.0.0.11")
    exporter.teach(alone)
    exporter.count(alone)
    kafka.tell("up")
    wait_for("told later", lambda: kafka.all("templates"))
    alone.end()
    expect("bytes", sum(counted(kafka).values()), RATE * RECORDS * BYTES)
    kafka.end()


def main():
    with tempfile.TemporaryDirectory() as folder:
        for case in (moves, no_broker):
            place = pathlib.Path(folder) / case.__name__
            place.mkdir()
            case(place)
    for failure in failures:
        print(f"FAILED {failure}")
    return 1 if failures else 0


if __name__ == "__main__":
    FLOWHOST, PLUGIN, MOCK_KAFKA = sys.argv[1:4]
    sys.exit(main())
