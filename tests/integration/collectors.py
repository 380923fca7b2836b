# SPDX-License-Identifier: Apache-2.0
"""What flowhost and two collectors of Debian, which share nothing with it, make of a capture."""
import dataclasses
import json
import pathlib
import re
import signal
import socket
import struct
import subprocess
import time

import books
from exporters import Totals, quietly, runs

ETHERNET = 1
SFLOW_PORT = 6343


@dataclasses.dataclass(frozen=True)
class Metered:
    """what flowhost has metered: a record counts once, whether it tells one direction or both"""
    totals: Totals
    second_directions: int
    left_out: dict
    lost: int
    faults: list


def total_row(report):
    keys = next((group["keys"] for group in report["groups"] if group["id"] == "totals"), [])
    row = next((key for key in keys if key["key"] == "TOTALBW"), {"packets": 0, "bytes": 0})
    return {"packets": row["packets"], "bytes": row["bytes"]}


def flowhost(program, plugin, policies, capture):
    written = policies.parent / "flowhost.json"
    quietly([program, "replay", *(("--plugin", plugin) if plugin else ()), "--config", policies, "--json", written,
             "--top", "0", "--group", "totals", capture])
    report = json.loads(written.read_text())
    told, seen = report["books"], total_row(report)
    return Metered(Totals(report["records"] - told["reverse_records"], seen["packets"], seen["bytes"]),
                   told["reverse_records"], told.get("left_out", {}),
                   sum(e.get("sequence", {}).get("lost", 0) for e in report["exporters"]), books.faults(report))


def datagrams(capture):
    """source address and port, destination port, UDP payload of each packet"""
    data = pathlib.Path(capture).read_bytes()
    order = "<" if data[:4] == b"\xd4\xc3\xb2\xa1" else ">"
    link = struct.unpack_from(order + "I", data, 20)[0]
    at = 24
    while at < len(data):
        size = struct.unpack_from(order + "I", data, at + 8)[0]
        packet = data[at + 16 + (14 if link == ETHERNET else 0):at + 16 + size]
        yield (packet[12:16], *struct.unpack_from(">HH", packet, 20)), packet[28:]
        at += 16 + size


def waiting(port):
    """bytes in the buffer of the socket of this port on loopback, and datagrams that it has dropped"""
    for line in pathlib.Path("/proc/net/udp").read_text().splitlines()[1:]:
        words = line.split()
        if words[1] == f"0100007F:{port:04X}":
            return int(words[4].split(":")[1], 16), int(words[12])
    return None


def until(what, condition, seconds=20):
    end = time.time() + seconds
    while not condition():
        if time.time() > end:
            raise RuntimeError(f"gave up waiting until {what}")
        time.sleep(0.002)


def play(capture, port, every=16):
    """sends what is not sFlow to a collector, each exporter from an address of its own, as fast as it reads"""
    exporters = {}
    for number, ((address, source_port, port_there), payload) in enumerate(datagrams(capture)):
        if port_there == SFLOW_PORT:
            continue
        key = (address, source_port)
        if key not in exporters:
            exporters[key] = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            exporters[key].bind((f"127.{len(exporters) // 250 + 1}.0.{len(exporters) % 250 + 1}", 0))
        exporters[key].sendto(payload, ("127.0.0.1", port))
        if number % every == 0:
            until("nfcapd has read", lambda: waiting(port)[0] == 0)
    until("nfcapd has read", lambda: waiting(port)[0] == 0)
    for exporter in exporters.values():
        exporter.close()
    if waiting(port)[1]:
        raise RuntimeError(f"nfcapd has lost {waiting(port)[1]} datagrams")


def nfcapd(capture, folder, rate=1):
    """nfcapd collects into a folder, with the rate as a default"""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    folder.mkdir()
    daemon = subprocess.Popen([runs("nfcapd"), "-w", folder, "-b", "127.0.0.1", "-p", str(port), "-t", "3600", "-s",
                               str(rate), "-B", "8000000"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        until("nfcapd listens", lambda: waiting(port) is not None)
        play(capture, port)
    finally:
        daemon.send_signal(signal.SIGTERM)
        daemon.wait(20)


def nfdump(capture, folder, rate=1):
    """what nfdump adds up"""
    nfcapd(capture, folder, rate)
    says = quietly([runs("nfdump"), "-R", folder, "-I"])
    return Totals(*(int(re.search(rf"^{what}: (\d+)$", says, re.M).group(1)) for what in ("Flows", "Packets", "Bytes")))


def tshark_fields(capture, protocol, fields):
    """the values of each field, in the order of the capture"""
    command = [runs("tshark"), "-r", capture, "-d", "udp.port==2055,cflow", "-d", "udp.port==4739,cflow", "-d",
               "udp.port==6343,sflow", "-Y", protocol, "-T", "fields", "-E", "occurrence=a"]
    for field in fields:
        command += ["-e", field]
    columns = [[] for _ in fields]
    for line in quietly(command).splitlines():
        for column, values in zip(columns, line.split("\t")):
            column += [int(v, 0) for v in values.split(",") if v]
    return columns


def tshark_netflow(capture, rate=1):
    octets, packets = tshark_fields(capture, "cflow", ["cflow.octets", "cflow.packets"])
    # A direction without bytes is no record.
    return Totals(sum(1 for o in octets if o), sum(packets) * rate, sum(octets) * rate)


def tshark_sflow(capture):
    samples, sizes, rates = tshark_fields(
        capture, "sflow", ["sflow_245.numsamples", "sflow_245.header.frame_length", "sflow.flow_sample.sampling_rate"])
    return Totals(sum(samples), sum(rates), sum(size * rate for size, rate in zip(sizes, rates, strict=True)))
