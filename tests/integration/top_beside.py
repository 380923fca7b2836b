#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The twenty largest hosts, ports and AS numbers by bytes, packets and flows, as flowhost and nfdump have them of the
same datagrams, and how long each took.

    tests/integration/top_beside.py                      300,000 records of each format, on the release build
    tests/integration/top_beside.py --records 10000000 netflow9

nfcapd takes the datagrams on loopback. Exit status: 0 the same, 1 not, 77 a program is missing.
"""
import argparse
import json
import pathlib
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
import collectors
import exporters

ROOT = pathlib.Path(__file__).resolve().parents[2]
FORMATS = ("netflow5", "netflow9", "ipfix")
# What nfdump calls it, and what flows and tiers of flowhost do; which flows. One that has a key at both ends, as
# ICMP has port 0, counts for it once in flowhost and twice in nfdump.
KEYS = {"ip": ("host", "hosts", "any"), "port": ("port", None, "proto tcp or proto udp"), "as": ("as", "as", "any")}
ORDERS = ("bytes", "packets", "flows")
TOP = 20
# AS numbers of a side at home are told with this.
POLICY = """<OmbrelPluginConfiguration><Policy><MeterLinkAS>true</MeterLinkAS><Count64Bit>true</Count64Bit>
<MergeMultipleSources>false</MergeMultipleSources><MergeHTTP>false</MergeHTTP><MergeHTTPS>false</MergeHTTPS>
<MergeDNS>false</MergeDNS><KeepEgressRecords>true</KeepEgressRecords></Policy></OmbrelPluginConfiguration>"""
# A network in which nobody is, so that counters tell all AS numbers.
NOWHERE = "192.0.2.0/24"


def timed(command):
    began = time.monotonic()
    out = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
    return out, time.monotonic() - began


def of_nfdump(folder, key, order, flows):
    """rows of key, bytes, packets and flows, largest first"""
    out, seconds = timed([exporters.runs("nfdump"), "-R", folder, "-s", f"{key}/{order}", "-n", str(TOP + 1), "-N", "-q",
                          "-o", "csv", flows])
    rows = [line.split(",") for line in out.splitlines() if line][1:]  # what columns are called depends on the key
    return [(row[4].strip(), int(row[9]), int(row[7]), int(row[5])) for row in rows], seconds


def of_flowhost(options, store, *words):
    out, seconds = timed([options.flowhost, *words, "--store", store, "--json", "--from", "@1", "--top", str(TOP + 1)])
    rows = [row for row in json.loads(out)["rows"] if row["key"] != "(others)"]
    return [(row["key"].removeprefix("AS"), row["bytes"], row.get("packets"), row.get("flows")) for row in rows], seconds


def differing(theirs, ours, order):
    """what the two say of the largest; who is last among equals is nobody's matter"""
    at = 1 + ORDERS.index(order)
    ours_by_key = {row[0]: row for row in ours}
    wrong = [(row, ours_by_key.get(row[0])) for row in theirs[:TOP]
             if row[at] != theirs[-1][at] and any(mine not in (None, his) for mine, his in
                                                  zip(ours_by_key.get(row[0], ("?",)), row))]
    if [row[at] for row in theirs[:TOP]] != [row[at] for row in ours[:TOP]]:
        wrong.append(("values", [row[at] for row in theirs[:TOP]], [row[at] for row in ours[:TOP]]))
    return wrong


def compare(format, folder, options):
    folder.mkdir()
    capture = folder / "made.pcap"
    exporters.quietly([options.flowgen, "--format", format, "--records", str(options.records), "--hosts",
                       str(options.hosts), "--exporters", "4", "--minutes", "50", "--realistic", "--write", capture])
    collectors.nfcapd(capture, folder / "nfcapd")
    (folder / "policies").mkdir()
    (folder / "policies" / "NetflowCounterPolicy.xml").write_text(POLICY)
    exporters.quietly([options.flowhost, "replay", *(("--plugin", options.plugin) if options.plugin else ()),
                       "--config", folder / "policies", "--home", NOWHERE, "--top", "0", "--store", folder / "store",
                       capture])
    wrong = 0
    for key, (field, group, flows) in KEYS.items():
        for order in ORDERS:
            theirs, their_time = of_nfdump(folder / "nfcapd", key, order, flows)
            ours, our_time = of_flowhost(options, folder / "store", "flows", *([flows] if flows != "any" else []),
                                         "--group-by", field, "--by", order)
            faults = differing(theirs, ours, order)
            told = f"{format:9} {key:5} by {order:8} nfdump {their_time:6.2f} s  flows {our_time:6.2f} s"
            if group and order == "bytes":
                counted, counter_time = of_flowhost(options, folder / "store", "top", group)
                faults += differing([row[:2] + (None, None) for row in theirs],
                                    [row[:2] + (None, None) for row in counted], order)
                told += f"  top {counter_time:6.2f} s"
            print(f"{told}  {'DIFFERS: ' + str(faults[:3]) if faults else 'the same'}", flush=True)
            wrong += bool(faults)
    return wrong


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("formats", nargs="*", metavar="FORMAT", help=", ".join(FORMATS))
    parser.add_argument("--records", type=int, default=300_000)
    parser.add_argument("--hosts", type=int, default=20_000)
    parser.add_argument("--flowhost", type=pathlib.Path, default=ROOT / "build/release/flowhost")
    parser.add_argument("--plugin", type=pathlib.Path, help="the library, where it does not lie beside flowhost")
    parser.add_argument("--flowgen", type=pathlib.Path, default=ROOT / "build/release/flowgen")
    return parser.parse_args()


def main():
    options = arguments()
    try:
        with tempfile.TemporaryDirectory() as name:
            wrong = [compare(format, pathlib.Path(name) / format, options) for format in options.formats or FORMATS]
    except exporters.Missing as missing:
        print(f"no {missing} here")
        return 77
    return 1 if any(wrong) else 0


sys.exit(main())
