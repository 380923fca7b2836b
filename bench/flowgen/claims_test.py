#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""claims_test.py FLOWGEN FLOWHOST PLUGIN: what flowgen says that it made is what flowhost meters, what
a socket receives, and what the sequence numbers tell.

Exit status: 0 equal, 1 not.
"""
import json
import pathlib
import socket
import struct
import subprocess
import sys
import tempfile

FORMATS = ("netflow5", "netflow9", "ipfix", "sflow", "mixed")
IPFIX_RECORD = 58


def flowgen(*options, status=0):
    """the numbers that flowgen prints, without the time it took"""
    run = subprocess.run([FLOWGEN, *map(str, options)], capture_output=True, text=True)
    if run.returncode != status:
        sys.exit(f"flowgen {options} ends with {run.returncode}: {run.stderr}")
    numbers = dict(line.split() for line in run.stdout.splitlines())
    numbers.pop("seconds", None)
    return {name: int(value) for name, value in numbers.items()}


def flowhost(capture):
    """the same numbers as flowhost sees them, the hosts of each address range, what went wrong"""
    run = subprocess.run([FLOWHOST, "replay", "--plugin", PLUGIN, "--config", capture.parent / "policies", "--json",
                          "-", "--group", "totals", "--group", "hosts", "--top", "0", capture],
                         capture_output=True, text=True, check=True)
    report = json.loads(run.stdout[run.stdout.index("{"):])
    keys = {group["id"]: group["keys"] for group in report["groups"]}
    total = next(key for key in keys["totals"] if key["key"] == "TOTALBW")
    exporters = report["exporters"]
    seen = {"datagrams": sum(e["datagrams"] for e in exporters), "records": report["records"],
            "datagram_bytes": sum(e["bytes"] for e in exporters),
            "bytes": total["bytes"], "packets": total["packets"]}
    faults = sum(e["rejected"] + e["sets_without_template"] for e in exporters)
    hosts = [key["text"] for key in keys["hosts"]]
    home = sum(host.startswith("10.") for host in hosts)
    return seen, len(exporters), (home, len(hosts) - home), faults


def datagrams(capture):
    """time, exporter and UDP payload of each packet"""
    data = capture.read_bytes()
    at = 24
    while at < len(data):
        seconds, _, size, _ = struct.unpack_from("<IIII", data, at)
        frame = data[at + 16:at + 16 + size]
        yield seconds, frame[26:30], frame[42:]
        at += 16 + size


def sequence(payload):
    """the number of a datagram and that of the one behind it, and the clock of its header if it has one"""
    version = struct.unpack_from(">H", payload)[0]
    if version == 5:
        first, records = struct.unpack_from(">I", payload, 16)[0], struct.unpack_from(">H", payload, 2)[0]
        return first, first + records, struct.unpack_from(">I", payload, 8)[0]
    if version == 9:
        first = struct.unpack_from(">I", payload, 12)[0]
        return first, first + 1, struct.unpack_from(">I", payload, 8)[0]
    if version == 10:
        clock, first = struct.unpack_from(">II", payload, 4)
        sets = payload[16:]
        if sets[:2] == b"\0\2":
            sets = sets[struct.unpack_from(">H", sets, 2)[0]:]
        return first, first + (struct.unpack_from(">H", sets, 2)[0] - 4) // IPFIX_RECORD, clock
    first = struct.unpack_from(">I", payload, 16)[0]
    return first, first + 1, None


def gaps(capture):
    """what is missing between the datagrams of each exporter: records of v5 and IPFIX, else datagrams"""
    expected = {}
    missing = 0
    for seconds, exporter, payload in datagrams(capture):
        first, behind, clock = sequence(payload)
        check(f"{capture.name}: a header's clock", clock or seconds, seconds)
        missing += first - expected.get(exporter, first)
        expected[exporter] = behind
    return missing


def sample_gaps(capture):
    """what is missing between the samples of each source"""
    expected = {}
    missing = 0
    for _, exporter, payload in datagrams(capture):
        at = 28
        for _ in range(struct.unpack_from(">I", payload, 24)[0]):
            _, length, number, source = struct.unpack_from(">IIII", payload, at)
            missing += number - expected.get((exporter, source), 1)
            expected[exporter, source] = number + 1
            at += 8 + length
    return missing


def check(what, seen, claimed):
    if seen != claimed:
        sys.exit(f"{what}: {seen}, flowgen claims {claimed}")


def check_metered(folder):
    for name in FORMATS:
        capture = folder / f"{name}.pcap"
        claims = flowgen("--format", name, "--records", 20_011, "--hosts", 3000, "--exporters", 5, "--minutes", 2,
                         "--sampling-rate", 3, "--write", capture)
        seen, exporters, hosts, faults = flowhost(capture)
        check(f"{name}: metered", seen, {what: claims[what] for what in seen})
        check(f"{name}: records", claims["records"], 20_011)
        check(f"{name}: exporters, hosts at home and outside, faults", (exporters, hosts, faults), (5, (1500, 1500), 0))
        check(f"{name}: gaps", gaps(capture), 0)
        last = max(seconds for seconds, _, _ in datagrams(capture))
        check(f"{name}: the last second", last, 1_700_000_119)


def check_fresh_hosts(folder):
    capture = folder / "fresh.pcap"
    flowgen("--records", 6000, "--hosts", 1000, "--minutes", 3, "--fresh-hosts", "--write", capture)
    check("fresh hosts", flowhost(capture)[2], (1500, 1500))


# So many records that every exporter, and every source of samples, has some behind the last left out.
def check_left_out(folder):
    for name, unit in (("netflow5", "records"), ("netflow9", "datagrams"), ("ipfix", "records"), ("sflow", "datagrams")):
        capture = folder / "gaps.pcap"
        options = "--format", name, "--records", 60_220, "--exporters", 3, "--drop-every", 50, "--write", capture
        claims = flowgen(*options)
        seen = flowhost(capture)[0]
        check(f"{name} with gaps: metered", seen, {what: claims[what] for what in seen})
        check(f"{name} with gaps: all records", claims["records"] + claims["left_out_records"], 60_220)
        check(f"{name}: gaps", gaps(capture), claims[f"left_out_{unit}"])
        if name == "sflow":
            check("gaps in samples", sample_gaps(capture), claims["left_out_records"])
        again = capture.read_bytes()
        flowgen(*options)
        check(f"{name}: the same seed again", capture.read_bytes() == again, True)


# Slowly enough for any machine: the socket holds all of it.
def check_sent():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as collector:
        collector.bind(("127.0.0.1", 0))
        collector.settimeout(10)
        to = f"127.0.0.1:{collector.getsockname()[1]}"
        claims = flowgen("--records", 1500, "--exporters", 2, "--batch", 8, "--rate", 1000, "--send", to)
        received = [collector.recvfrom(2000) for _ in range(claims["datagrams"])]
    check("sent bytes", sum(len(payload) for payload, _ in received), claims["datagram_bytes"])
    check("sent records", sum(payload[3] for payload, _ in received), claims["records"])
    check("sending addresses", len({address for _, (address, _) in received}), 2)
    check("nobody listens", flowgen("--records", 90, "--send", to, status=1)["send_errors"] > 0, True)
    for wrong in ("192.0.2.1:2055", "localhost:2055", "127.0.0.1:0"):
        flowgen("--send", wrong, status=2)


FLOWGEN, FLOWHOST, PLUGIN = sys.argv[1:]
with tempfile.TemporaryDirectory() as temporary:
    check_metered(pathlib.Path(temporary))
    check_fresh_hosts(pathlib.Path(temporary))
    check_left_out(pathlib.Path(temporary))
    check_sent()
