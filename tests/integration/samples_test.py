#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""samples_test.py FLOWHOST PLUGIN SAMPLES [--tshark]: what flowhost makes of each sample equals what
its exporter says that it sent. With --tshark, a decoder that shares nothing with ours counts too.

Exit status: 0 equal, 1 not, 77 nothing to compare with (no tshark).
"""
import json
import math
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
import collectors

HOME6 = "2001:db8:3::"  # of IPv4, nothing is at home
SIGMA = 196  # percent, for 95 of 100 samples; a sample that is in the tree either passes or does not


def claims(text):
    """the totals at the head of a sample's text"""
    return {k: int(v) for k, v in re.findall(r"^(datagrams|records|packets|bytes|sampling): (\d+)$", text, re.M)}


def replay(flowhost, plugin, capture, folder):
    out = subprocess.run([flowhost, "replay", "--plugin", plugin, "--config", folder, "--json", "-", "--top", "0",
                          "--home", f"{HOME6}/48", "--home", "240.0.0.0/8", capture], capture_output=True, text=True,
                         check=True)
    return json.loads(out.stdout[out.stdout.index("{"):])


def keys_of(report, group_id):
    return next((g["keys"] for g in report["groups"] if g["id"] == group_id), [])


def check_directions(report):
    """the directions add up to all traffic, and what goes into home is what its hosts receive"""
    rows = {k["text"]: k for k in keys_of(report, "totals")}
    seen = {what: [sum(row[what] for text, row in rows.items() if text != "all")] for what in ("bytes", "packets")}
    expected = {what: [rows["all"][what]] for what in seen}
    hosts = [k for k in keys_of(report, "hosts6") if k["text"].startswith(HOME6[:-1])]
    for way, meter in (("into home", "bytes_in"), ("out of home", "bytes_out")):
        seen[way] = sum(rows[text]["bytes"] for text in (way, "within home") if text in rows)
        expected[way] = sum(host[meter] for host in hosts)
    return [f"directions: {what} {seen[what]}, not {expected[what]}" for what in seen if seen[what] != expected[what]]


def check_claims(name, report, text):
    claimed = claims(text)
    seen = collectors.total_row(report)
    seen["datagrams"] = sum(e["datagrams"] for e in report["exporters"])
    # One record may carry both directions.
    seen["records"] = report["records"] - report["books"]["reverse_records"]
    rate = claimed.pop("sampling", 1)
    if name.startswith("sflow") and rate > 1:
        within = SIGMA / math.sqrt(max(seen["packets"] / rate, 1)) / 100
        return [f"{what} {seen[what]}, about {expected} sent" for what, expected in
                ((what, claimed[what]) for what in ("packets", "bytes"))
                if abs(seen[what] - expected) > expected * within * (1 if what == "packets" else 2)]
    wrong = []
    for what, value in claimed.items():
        expected = value * rate if what in ("packets", "bytes") else value
        if seen[what] != expected:
            wrong.append(f"{what} {seen[what]}, the exporter says {expected}")
    return wrong


def check_tshark(name, report, capture):
    """counts of an independent decoder"""
    if "counters" in name:
        return []  # tshark gives a datagram up at counter blocks that it does not know
    told = (collectors.tshark_sflow(capture) if name.startswith("sflow") else
            collectors.tshark_netflow(capture, 10 if "sampled" in name else 1))
    seen = collectors.total_row(report) | {"records": report["records"]}
    return [f"{what} {value}, tshark says {getattr(told, what)}" for what, value in seen.items()
            if value != getattr(told, what)]


def main():
    flowhost, plugin, samples = sys.argv[1:4]
    with_tshark = "--tshark" in sys.argv
    if with_tshark and not shutil.which("tshark"):
        return 77
    failed = compared = 0
    with tempfile.TemporaryDirectory() as folder:
        for capture in sorted(pathlib.Path(samples).glob("*.pcap")):
            report = replay(flowhost, plugin, str(capture), folder)
            wrong = (check_tshark(capture.stem, report, str(capture)) if with_tshark else
                     check_claims(capture.stem, report, capture.with_suffix(".txt").read_text()) +
                     check_directions(report))
            compared += 1
            for line in wrong:
                failed += 1
                print(f"{capture.name}: {line}")
    print(f"{compared} samples compared")
    return 1 if failed or not compared else 0


if __name__ == "__main__":
    sys.exit(main())
