#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""questions_test.py FLOWHOST PLUGIN FLOWGEN: answers straight from captures against what the exporter claims."""
import json
import pathlib
import subprocess
import sys
import tempfile

FLOWHOST, PLUGIN, FLOWGEN = sys.argv[1:4]
failures = []


def expect(what, seen, wanted):
    if seen != wanted:
        failures.append(f"{what}: {seen}, not {wanted}")


def ask(capture, *words):
    done = subprocess.run([FLOWHOST, *words, "--json", "--read", capture, "--plugin", PLUGIN],
                          check=True, capture_output=True, text=True, env={"HOME": folder, "TMPDIR": folder})
    return json.loads(done.stdout)


def check(format):
    capture = f"{folder}/{format}.pcap"
    said = subprocess.run([FLOWGEN, "--format", format, "--records", "20000", "--hosts", "500", "--exporters", "2",
                           "--minutes", "3", "--write", capture], check=True, capture_output=True, text=True).stdout
    claims = {line.split()[0]: float(line.split()[1]) for line in said.splitlines()}
    totals = ask(capture, "top", "totals")["rows"][0]
    expect(f"{format}: totals", (totals["key"], totals["bytes"], totals["packets"]),
           ("all", claims["bytes"], claims["packets"]))
    flows = ask(capture, "flows", "--group-by", "proto")["total"]
    expect(f"{format}: flows", (flows["bytes"], flows["packets"], flows["flows"]),
           (claims["bytes"], claims["packets"], claims["records"]))
    # Counters and flows are two ways to one sum.
    counted = {row["key"]: row["bytes"] for row in ask(capture, "top", "hosts", "--top", "20")["rows"]}
    summed = {row["key"]: row["bytes"] for row in ask(capture, "flows", "--group-by", "host", "--top", "20")["rows"]}
    expect(f"{format}: hosts", counted, summed)
    series = ask(capture, "series", "--step", "1m")["rows"]
    expect(f"{format}: series", sum(row["bytes"] or 0 for row in series), claims["bytes"])


with tempfile.TemporaryDirectory() as folder:
    for each in ("netflow5", "netflow9", "ipfix"):
        check(each)
    left = [path.name for path in pathlib.Path(folder).glob("flowhost-*")]
    expect("stores left behind", left, [])
print("\n".join(failures) or "answers agree with what was claimed")
sys.exit(1 if failures else 0)
