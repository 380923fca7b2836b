#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""messages_test.py FLOWHOST PLUGIN FLOWGEN [MOCK_KAFKA PROTO]: flows as lines of a file and of standard output; with
MOCK_KAFKA all topics of a Kafka, read by kcat, whose broker leaves requests unanswered, goes away and comes back.
"""
import collections
import json
import pathlib
import re
import subprocess
import sys
import tempfile

from kafka import Kafka

failures = []


def expect(what, seen, wanted):
    if seen != wanted:
        failures.append(f"{what}: {seen!s:.200}, not {wanted!s:.200}")


def numbers(text):
    return {name: int(value) for name, value in re.findall(r"^(\w+) (\d+)$", text, re.M)}


def made(folder, name, *options):
    """a capture, and what its exporters say of it"""
    capture = folder / f"{name}.pcap"
    done = subprocess.run([FLOWGEN, "--write", capture, "--hosts", "2000", *options], capture_output=True, text=True,
                          check=True)
    return capture, numbers(done.stdout)


def replay(folder, *options, **how):
    return subprocess.run([FLOWHOST, "replay", "--plugin", PLUGIN, "--config", folder.parent / "policies", "--top",
                           "0", *options], text=True, check=False, **how)


def sums(flows):
    totals = collections.Counter()
    for flow in flows:
        totals.update(bytes=flow["bytes"], packets=flow["packets"])
    return totals["bytes"], totals["packets"]


def lines(folder):
    capture, said = made(folder, "mixed", "--format", "mixed", "--exporters", "8", "--records", "20000")
    file = folder / "flows.json"
    done = replay(folder, "--flows", file, capture, capture_output=True)
    expect("exit status", done.returncode, 0)
    expect("a summary beside a file", "Export datagrams" in done.stdout, True)
    flows = [json.loads(line) for line in file.read_text().splitlines()]
    expect("bytes and packets", sums(flows), (said["bytes"], said["packets"]))
    expect("exporters", len({flow["sampler_address"] for flow in flows}), 8)
    expect("numbers", [flow["number"] for flow in flows], list(range(1, len(flows) + 1)))
    expect("times", all(flow["time_flow_start_ns"] <= flow["time_flow_end_ns"] for flow in flows), True)

    done = replay(folder, "--flows", "-", capture, capture_output=True)
    expect("standard output alone has the lines", done.stdout, file.read_text())
    done = replay(folder, "--flows", "-", "--json", "-", capture, capture_output=True)
    expect("two at standard output", (done.returncode, "another output" in done.stderr), (2, True))
    done = replay(folder, "--flows", folder / "none" / "flows", capture, capture_output=True)
    expect("no such folder", (done.returncode, "No such file" in done.stderr), (1, True))
    done = replay(folder, "--flows", "/dev/full", capture, capture_output=True)
    expect("a full disk", (done.returncode, "never arrived" in done.stderr), (1, True))


def varint(value):
    out = b""
    while value >= 0x80:
        out, value = out + bytes([value & 0x7F | 0x80]), value >> 7
    return out + bytes([value])


def members(text):
    """of a message as protoc prints it"""
    found = {name: int(number) if number else word
             for name, number, word in re.findall(r'^  (\w+): (?:(\d+)|"(.*)")$', text, re.M)}
    for name, value in re.findall(r'key: "(\w+)"\s+value: (\d+)', text):
        found[f"columns.{name}"] = int(value)
    return found


def decode(cluster, topic, kind):
    """protobuf messages, one behind the other with their lengths in front"""
    wrapped, at, read = b"", 0, cluster.kcat(topic, "-D", "", "-f", "%R%s")
    while at < len(read):
        size = int.from_bytes(read[at:at + 4], "big")
        wrapped += b"\x0a" + varint(size) + read[at + 4:at + 4 + size]
        at += 4 + size
    outer = f'syntax = "proto3"; import "{PROTO.name}"; message All {{ repeated flowhost.{kind} all = 1; }}'
    with tempfile.TemporaryDirectory() as folder:
        (pathlib.Path(folder) / "all.proto").write_text(outer)
        text = subprocess.run(["protoc", "-I", PROTO.parent, "-I", folder, "--decode", "All", "all.proto"],
                              input=wrapped, capture_output=True, check=True).stdout.decode()
    return [members(part) for part in text.split("all {")[1:]]


def kafka(folder):
    capture, said = made(folder, "v9", "--format", "netflow9", "--exporters", "4", "--records", "5000", "--minutes", "3")
    cluster = Kafka(MOCK_KAFKA)
    done = replay(folder, "--kafka", cluster.brokers, capture, capture_output=True)
    expect("exit status", (done.returncode, done.stderr), (0, ""))
    partitions = cluster.read("flows").values()
    flows = [row for rows in partitions for row in rows]
    expect("bytes and packets", sums(flow for _, flow in flows), (said["bytes"], said["packets"]))
    expect("keys", all(key == flow["sampler_address"] for key, flow in flows), True)
    expect("each once", sorted(flow["number"] for _, flow in flows), list(range(1, len(flows) + 1)))
    expect("order", all(rows == sorted(rows, key=lambda row: row[1]["number"]) for rows in partitions), True)
    counters = cluster.all("counters")
    health = cluster.all("health")
    for tier in ("minute", "hour", "day"):
        total = sum(row["bytes"] for row in counters if (row["tier"], row["group"]) == (tier, "flowgens"))
        expect(f"bytes of exporters by {tier}", total, said["bytes"])
        rows = [row for row in health if (row["tier"], row["kind"]) == (tier, "exporter")]
        expect(f"records by {tier}", sum(row["records"] for row in rows), said["records"])
    cluster.end()


def no_answer(folder):
    """What requests without an answer brought is there, and is sent again: readers tell it by its number."""
    capture, said = made(folder, "v9", "--format", "netflow9", "--exporters", "4", "--records", "5000")
    cluster = Kafka(MOCK_KAFKA)
    cluster.tell("fail 3")
    done = replay(folder, "--kafka", cluster.brokers, capture, capture_output=True)
    expect("exit status", (done.returncode, "never arrived" in done.stderr), (0, False))
    flows = [flow for rows in cluster.read("flows").values() for _, flow in rows]
    by_number = {flow["number"]: flow for flow in flows}
    expect("bytes and packets", sums(by_number.values()), (said["bytes"], said["packets"]))
    cluster.end()


def broker_away(folder):
    capture, said = made(folder, "v5", "--format", "netflow5", "--exporters", "2", "--records", "3000")
    cluster = Kafka(MOCK_KAFKA)
    cluster.tell("down")
    process = subprocess.Popen([FLOWHOST, "replay", "--plugin", PLUGIN, "--config", folder.parent / "policies", "--top", "0",
                                "--kafka", cluster.brokers, capture], stdout=subprocess.DEVNULL,
                               stderr=subprocess.PIPE, text=True)
    expect("told that no broker is there", "down" in process.stderr.readline(), True)
    cluster.tell("up")
    left = process.stderr.read()
    expect("exit status", (process.wait(60), "takes messages again" in left), (0, True))
    expect("bytes and packets", sums(flow for rows in cluster.read("flows").values() for _, flow in rows),
           (said["bytes"], said["packets"]))
    cluster.end()


def protobuf(folder):
    """as protoc decodes it"""
    capture, said = made(folder, "v5", "--format", "netflow5", "--exporters", "2", "--records", "3000")
    cluster = Kafka(MOCK_KAFKA)
    done = replay(folder, "--kafka", cluster.brokers, "--kafka-format", "protobuf", capture, capture_output=True)
    expect("exit status", (done.returncode, done.stderr), (0, ""))
    flows = decode(cluster, "flows", "Flow")
    expect("bytes and packets", sums(flows), (said["bytes"], said["packets"]))
    expect("an address", flows[0]["src_addr"].count("."), 3)
    expect("records", sum(row["columns.records"] for row in decode(cluster, "health", "Health")
                          if (row["tier"], row["kind"]) == ("day", "exporter")), said["records"])
    expect("bytes of exporters", sum(row["columns.bytes"] for row in decode(cluster, "counters", "Counter")
                                     if (row["tier"], row["group"]) == ("day", "flowgens")), said["bytes"])
    cluster.end()


def main():
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([FLOWHOST, "check-config", "--plugin", PLUGIN, "--write-defaults", f"{folder}/policies"],
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        cases = [kafka, protobuf, no_answer, broker_away] if MOCK_KAFKA else [lines]
        for case in cases:
            place = pathlib.Path(folder) / case.__name__
            place.mkdir()
            case(place)
    for failure in failures:
        print(f"FAILED {failure}")
    return 1 if failures else 0


if __name__ == "__main__":
    FLOWHOST, PLUGIN, FLOWGEN = sys.argv[1:4]
    MOCK_KAFKA = sys.argv[4] if len(sys.argv) > 4 else None
    PROTO = pathlib.Path(sys.argv[5]) if MOCK_KAFKA else None
    sys.exit(main())
