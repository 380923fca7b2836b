#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""books_test.py FLOWHOST PLUGIN FLOWGEN SAMPLES [CORPORA...]: whatever arrives, everything is in a row of the books, and
three instances report what one does.

Plays the samples, made traffic of which a part is lost, rates that an exporter tells on one port for the data on
another, and corpora: folders of single datagrams, named *.dat, and of folders of inputs of the fuzz targets; and these
once more with damage.

Exit status: 0 as it should be, 1 not.
"""
import json
import pathlib
import random
import re
import socket
import struct
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
import books

NETFLOW, SFLOW = 2055, 6343
# Beside what flowhost writes: everything that leaves more out, or takes more in.
STRICT = {"CheckPacketsForCorruption": "true", "EnableShimTunnel": "true", "AllowVariableLengthStrings": "true",
          "IgnoreAllEgress": "true", "MeterZeroFlows": "true", "MeterBothPorts": "false"}
FILTERED = {"FilterHostsExclude": "10.0.0.1,10.0.0.2", "KeepEgressRecords": "false", "SkipUndecodedSamples": "false",
            "MeterIPv6Samples": "false", "Count64Bit": "false", "TemplatesPerDomain": "false"}
# Of two exporters, one of which tells its own, and of one that sends nothing.
RATES = "<SamplingRates>" + "".join(f'<Rate router="192.0.2.{number}" rate="{number + 6}"/>' for number in (1, 2, 9)) + \
    "</SamplingRates>"
DATAGRAMS = {}  # by capture
failures = []


def fail(what, text):
    failures.append(f"{what}: {text}")
    print(failures[-1])


class Capture:
    """a capture of datagrams, a millisecond apart"""

    def __init__(self, path):
        self.path, self.time, self.file = path, 1_700_000_000_000, path.open("wb")
        self.file.write(struct.pack("<IHHIIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 101))

    def add(self, source, port, payload):
        DATAGRAMS.setdefault(self.path, []).append((source, port, payload))
        udp = struct.pack("!HHHH", source[1], port, 8 + len(payload), 0) + payload
        packet = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 0, 0, 64, 17, 0, socket.inet_aton(source[0]),
                             socket.inet_aton("198.51.100.1")) + udp
        self.file.write(struct.pack("<IIII", self.time // 1000, self.time % 1000 * 1000, len(packet), len(packet)))
        self.file.write(packet)
        self.time += 1

    def done(self):
        self.file.close()
        return self.path


def replay(capture, policies, instances):
    out = subprocess.run([FLOWHOST, "replay", "--plugin", PLUGIN, "--config", policies, "--json", "-", "--instances",
                          str(instances), capture], capture_output=True, text=True, errors="replace")
    if out.returncode != 0:
        fail(capture.name, f"flowhost ends with {out.returncode}: {out.stderr[-2000:]}")
        return None
    return json.loads(out.stdout[out.stdout.index("{"):])


def write_policies(folder, changes, beside=""):
    """what flowhost writes, with other values"""
    folder.mkdir()
    subprocess.run([FLOWHOST, "check-config", "--plugin", PLUGIN, "--quiet", "--write-defaults", folder], check=True,
                   capture_output=True)
    for path in folder.iterdir():
        text = path.read_text()
        for key, value in changes.items():
            text = re.sub(f"<{key}>[^<]*<", f"<{key}>{value}<", text)
        path.write_text(text.replace("</OmbrelPluginConfiguration>", beside + "</OmbrelPluginConfiguration>"))
    return folder


def differences(one, other, at=""):
    """where two documents differ"""
    if isinstance(one, dict) and isinstance(other, dict):
        for key in sorted(one.keys() | other.keys()):
            yield from differences(one.get(key), other.get(key), f"{at}/{key}")
    elif isinstance(one, list) and isinstance(other, list) and len(one) == len(other):
        for index, pair in enumerate(zip(one, other)):
            yield from differences(*pair, f"{at}/{index}")
    elif one != other:
        yield f"{at} {str(one)[:300]} and {str(other)[:300]}"


def check(capture, policies):
    what = f"{capture.name} ({policies.name})"
    one, three = replay(capture, policies, 1), replay(capture, policies, 3)
    if one is None or three is None:
        return one
    for fault in books.faults(one):
        fail(what, fault)
    for difference in list(differences(one, three))[:5]:
        fail(what, f"one and three instances differ: {difference}")
    return one


def rates_on_two_ports(folder):
    """exporters tell their rate on one port and send their data from others"""
    capture = Capture(folder / "rates.pcap")
    options = struct.pack("!HHHHHHHHHH", 1, 20, 256, 4, 4, 1, 4, 34, 4, 0) + struct.pack("!HHII", 256, 12, 0, 100)
    template = struct.pack("!HHHHHHHHHHHH", 0, 24, 257, 4, 8, 4, 12, 4, 1, 4, 2, 4)
    for number in (0, 2, 3):
        exporter = f"192.0.2.{number + 1}"
        capture.add((exporter, 50000), NETFLOW, struct.pack("!HHIIII", 9, 2, 0, 0, 0, 0) + options)
    for number in range(12):
        exporter = f"192.0.2.{number % 4 + 1}"
        record = struct.pack("!IIII", 0x0A000101, 0x0A000102 + number, 1000, 10)
        data = template + struct.pack("!HH", 257, 20) + record
        capture.add((exporter, 50001 + number), NETFLOW, struct.pack("!HHIIII", 9, 2, 0, 0, 0, 0) + data)
    return capture.done()


def check_rates(folder, editions):
    capture = rates_on_two_ports(folder)
    for policies, rates in zip(editions, ((100, 0, 100, 100), (100, 8, 100, 100))):
        check(capture, policies)
        report = replay(capture, policies, 2)
        totals = next(g["keys"] for g in report["groups"] if g["id"] == "totals")
        seen = next(k["bytes"] for k in totals if k["key"] == "TOTALBW")
        if seen != sum(3 * 1000 * (rate or 1) for rate in rates):
            fail("rates", f"bytes of two instances are {seen}")
        shown = [int(e.get("sampling_rate", 0)) for e in report["exporters"] if e["port"] != 50000]
        if shown != [rate for rate in rates for _ in range(3)]:
            fail("rates", f"rates shown for two instances are {shown}")


def made_traffic(folder, policies):
    """what was sent is metered, or lost on the way"""
    for name, unit in (("netflow5", "records"), ("netflow9", "datagrams"), ("ipfix", "records"), ("sflow", "datagrams"),
                       ("mixed", None)):
        path = folder / f"{name}.pcap"
        # So many that every exporter has some behind the last that is lost.
        out = subprocess.run([FLOWGEN, "--format", name, "--records", "20220", "--hosts", "400", "--exporters", "5",
                              "--drop-every", "40", "--write", path], check=True, capture_output=True, text=True).stdout
        report, claims = check(path, policies), dict(line.split() for line in out.splitlines())
        seen = [report["records"], sum(e["sequence"]["lost"] for e in report["exporters"])]
        claimed = [int(claims["records"]), int(claims[f"left_out_{unit}"]) if unit else seen[1]]
        if name == "sflow":
            seen.append(sum(e["sequence"]["lost_samples"] for e in report["exporters"]))
            claimed.append(int(claims["left_out_records"]))
        if seen != claimed:
            fail(path.name, f"metered and lost {seen}, sent {claimed}")


def busy_exporter(folder, policies):
    """the lanes of others help the one of an exporter that sends more than it can take"""
    for name in ("netflow5", "sflow"):
        path = folder / f"busy-{name}.pcap"
        subprocess.run([FLOWGEN, "--format", name, "--records", "60000", "--hosts", "400", "--realistic", "--drop-every",
                        "40", "--write", path], check=True, capture_output=True)
        check(path, policies)


def damaged(payload, dice):
    """most with some bytes of another value, above all near the front, some cut, some sent to the other port"""
    payload = bytearray(payload)
    for _ in range(dice.choice((0, 1, 1, 2, 4)) if payload else 0):
        at = dice.randrange(len(payload) if dice.random() < 0.5 else min(len(payload), 64))
        payload[at] = dice.choice((0, 1, 2, 4, 255, dice.randrange(256)))
    return bytes(payload[:dice.randrange(len(payload) + 1)] if dice.random() < 0.2 else payload)


def damaged_capture(folder, capture):
    dice = random.Random(capture.name)
    damage = Capture(folder / f"damaged-{capture.name}")
    for _ in range(4):
        for source, port, payload in DATAGRAMS[capture]:
            damage.add(source, port if dice.random() < 0.95 else NETFLOW + SFLOW - port, damaged(payload, dice))
    return damage.done()


def fuzz_inputs(folder, corpus):
    """each input's exporters have addresses of their own; what is a message of a channel comes as a datagram too"""
    capture = Capture(folder / f"{corpus.parent.name}-{corpus.name}.pcap")
    port = SFLOW if corpus.name == "sflow" else NETFLOW
    for number, path in enumerate(sorted(corpus.iterdir())):
        data, at = path.read_bytes(), 1
        while at + 3 <= len(data):
            exporter, length = struct.unpack_from("!BH", data, at)
            address = socket.inet_ntoa(struct.pack("!I", 0xAC100000 + number * 2 + (exporter & 1)))
            capture.add((address, 50000 + (exporter >> 1 & 1)), port, data[at + 3:at + 3 + length])
            at += 3 + length
    return capture.done()


def single_datagrams(folder, corpus):
    """of one device each family of names; its templates come first"""
    capture, devices = Capture(folder / "datagrams.pcap"), {}
    for path in sorted(corpus.glob("*.dat"), key=lambda p: ("tpl" not in p.name, p.name)):
        device = re.split(r"_(opttpl|tpl|data)", path.stem)[0]
        number = devices.setdefault(device, len(devices) + 1)
        capture.add((f"192.0.2.{number}", 50000), NETFLOW, path.read_bytes())
    return capture.done()


def corpus_captures(folder, corpora):
    if any(corpora.glob("*.dat")):
        yield single_datagrams(folder, corpora)
    for target in ("netflow", "sflow", "channel"):
        if (corpora / target).is_dir():
            yield fuzz_inputs(folder, corpora / target)


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        usual = write_policies(folder / "usual", {})
        strict = write_policies(folder / "strict", STRICT)
        filtered = write_policies(folder / "filtered", FILTERED, RATES)
        check_rates(folder, (usual, filtered))
        made_traffic(folder, usual)
        busy_exporter(folder, usual)
        captures = sorted(SAMPLES.glob("*.pcap"))
        for capture in captures:
            check(capture, usual)
        hostile = [capture for corpora in CORPORA for capture in corpus_captures(folder, corpora)]
        hostile += [damaged_capture(folder, capture) for capture in hostile]
        for capture in hostile:
            for policies in (usual, strict, filtered):
                check(capture, policies)
    print(f"{8 + len(captures) + len(hostile)} captures, {len(failures)} faults")
    return bool(failures)


FLOWHOST, PLUGIN, FLOWGEN = sys.argv[1:4]
SAMPLES, *CORPORA = map(pathlib.Path, sys.argv[4:])
sys.exit(main())
