#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Three sets of books beside each other: what exporters that run here say that they have sent, what flowhost
has metered, and what a collector of Debian has (nfdump; for sFlow and NetFlow v1 tshark).

    tests/integration/beside.py                     all cases, on the release build
    tests/integration/beside.py --short             those of the test run
    tests/integration/beside.py sampled egress      those with one of these words in their name

Records, packets and bytes are equal, or flowhost has a row of what it left out that has the difference, to the
record; second directions are no records of their own. As root, Open vSwitch exports live, else as it did when the
samples were made. Exit status: 0 all explained, 1 not, 77 a program is missing.
"""
import argparse
import dataclasses
import math
import pathlib
import sys
import tempfile

sys.dont_write_bytecode = True
import collectors
import exporters

ROOT = pathlib.Path(__file__).resolve().parents[2]
LIBRARY_DEFAULTS = """<OmbrelPluginConfiguration><Policy><CountLeftOut>true</CountLeftOut></Policy>
</OmbrelPluginConfiguration>"""
OPTIONS_DATA = "no_addresses"  # records about the exporter itself, which nobody else counts
WITHOUT_BYTES = (OPTIONS_DATA, "zero_bytes")
SIGMA = 390  # percent, for all but one of 10,000 runs
NETFLOW1 = "tshark, for nfcapd takes no more than 24 records of v1, and softflowd sends 30"
ANNOUNCED = "nfcapd -s 10, for it passes over how softflowd tells its rate"
IGNORES_B = "softflowd has -b for IPFIX alone, and passes over it here"
LOSSES = "--records 60220 --exporters 3 --drop-every 50"  # every exporter has some behind the last left out


@dataclasses.dataclass(frozen=True)
class Case:
    name: str
    exporter: str
    options: str
    known: str = ""  # what a reader has to know
    short: bool = False  # one of the test run
    defaults: bool = False  # with the library's defaults instead of the policies that flowhost writes


CASES = [
    Case("NetFlow v1", "softflowd", "-v 1", NETFLOW1),
    Case("NetFlow v5", "softflowd", "-v 5", short=True),
    Case("NetFlow v5 -b", "softflowd", "-v 5 -b", IGNORES_B),
    Case("NetFlow v5 sampled", "softflowd", "-v 5 -s 10"),
    Case("NetFlow v9", "softflowd", "-v 9 -6", "marks the way back as egress", short=True),
    Case("NetFlow v9 -b", "softflowd", "-v 9 -6 -b", IGNORES_B),
    Case("NetFlow v9, VLANs", "softflowd", "-v 9 -6 -T vlan"),
    Case("NetFlow v9, MAC addresses", "softflowd", "-v 9 -6 -T ether"),
    Case("NetFlow v9, egress rule", "softflowd", "-v 9 -6", "KeepEgressRecords off", short=True, defaults=True),
    Case("NetFlow v9 sampled", "softflowd", "-v 9 -6 -s 10", ANNOUNCED, short=True),
    Case("IPFIX", "softflowd", "-v 10 -6"),
    Case("IPFIX -b", "softflowd", "-v 10 -6 -b", short=True),
    Case("IPFIX -b, milliseconds", "softflowd", "-v 10 -6 -b -A milli"),
    Case("IPFIX -b, addresses alone", "softflowd", "-v 10 -6 -b -T ip"),
    Case("IPFIX sampled", "softflowd", "-v 10 -6 -s 10", ANNOUNCED, short=True),
    Case("IPFIX -b sampled", "softflowd", "-v 10 -6 -b -s 10", ANNOUNCED),
    Case("NetFlow v5 of a switch", "openvswitch", "netflow", "whole frames went in"),
    Case("sFlow, 1 in 10", "openvswitch", "sflow", "so much went in, of IPv4 and IPv6", short=True),
    Case("sFlow, 1 in 10, IPv6 off", "openvswitch", "sflow", "so much went in; MeterIPv6Samples off", defaults=True),
    Case("sFlow of IPv6, all", "openvswitch", "sflow-ipv6", "so much went in; the agent has an IPv6 address",
         short=True),
    Case("flowgen NetFlow v5", "flowgen", "--format netflow5 --records 400000 --exporters 5"),
    Case("flowgen NetFlow v9", "flowgen", "--format netflow9 --records 400000 --exporters 5"),
    Case("flowgen IPFIX", "flowgen", "--format ipfix --records 400000 --exporters 5"),
    Case("flowgen sFlow", "flowgen", "--format sflow --records 100000 --exporters 5 --sampling-rate 3"),
    Case("flowgen mixed", "flowgen", "--format mixed --records 20011 --exporters 5 --sampling-rate 3", short=True),
    Case("flowgen NetFlow v5, losses", "flowgen", f"--format netflow5 {LOSSES}"),
    Case("flowgen NetFlow v9, losses", "flowgen", f"--format netflow9 {LOSSES}"),
    Case("flowgen IPFIX, losses", "flowgen", f"--format ipfix {LOSSES}"),
    Case("flowgen sFlow, losses", "flowgen", f"--format sflow {LOSSES}"),
]


def export(case, folder, options):
    if case.exporter == "softflowd":
        return exporters.softflowd(folder, case.options)
    if case.exporter == "flowgen":
        return exporters.flowgen(folder, case.options, options.flowgen)
    return exporters.openvswitch(folder, case.options, options.live)


def metered(case, sent, folder, options):
    policies = folder / "policies"
    if case.defaults:
        policies.mkdir()
        for name in ("NetflowCounterPolicy.xml", "SFlowCounterPolicy.xml"):
            (policies / name).write_text(LIBRARY_DEFAULTS)
    return collectors.flowhost(options.flowhost, options.plugin, policies, sent.capture)


def second(case, sent, folder):
    """another collector's name and totals"""
    if case.name == "NetFlow v1":
        return "tshark", collectors.tshark_netflow(sent.capture)
    parts = []
    if "sFlow" not in case.name:
        parts.append(("nfdump", collectors.nfdump(sent.capture, folder / "nfcapd", sent.rate)))
    if "sFlow" in case.name or "mixed" in case.name:
        parts.append(("tshark", collectors.tshark_sflow(sent.capture)))
    return " + ".join(tool for tool, _ in parts), exporters.Totals(
        *(sum(getattr(totals, what) for _, totals in parts) for what in ("records", "packets", "bytes")))


def unexplained(who, theirs, seen, missing, silent):
    """what differs between flowhost and somebody, without a row that says so"""
    wrong = []
    if theirs.records is not None and theirs.records != seen.totals.records + missing:
        wrong.append(f"records of {who}")
    for what in ("packets", "bytes"):
        more = getattr(theirs, what) - getattr(seen.totals, what)
        if more < 0 or more > 0 and missing == silent:
            wrong.append(f"{what} of {who}")
    return wrong


def far_off(sent, seen):
    """an estimate of what went in is as good as its number of samples lets it be"""
    within = SIGMA / math.sqrt(max(seen.packets // sent.rate, 1)) / 100
    return [f"estimated {what}" for what, times in (("packets", 1), ("bytes", 2))
            if abs(getattr(seen, what) - getattr(sent.totals, what)) > getattr(sent.totals, what) * within * times]


def judge(sent, seen, tool, theirs):
    """what is explained, and what is not"""
    left_out = {reason: count for reason, count in seen.left_out.items() if reason != OPTIONS_DATA}
    missing = sum(left_out.values())
    silent = sum(count for reason, count in left_out.items() if reason in WITHOUT_BYTES)
    wrong = list(seen.faults) + unexplained(tool, theirs, seen, missing, silent)
    if sent.estimated:
        wrong += far_off(sent, theirs)
    else:
        wrong += unexplained("the exporter", sent.totals, seen, missing, silent)
        if (theirs.packets, theirs.bytes) != (sent.totals.packets, sent.totals.bytes):
            wrong.append(f"{tool} beside the exporter")
    if sent.lost is not None and seen.lost != sent.lost:
        wrong.append(f"{seen.lost} lost, not {sent.lost}")
    explained = [f"left out: {count} {reason.replace('_', ' ')}" for reason, count in left_out.items()]
    if sent.lost:
        explained.append(f"{seen.lost:,} lost on the way")
    return explained, wrong


def row(who, totals, *remarks):
    records = "?" if totals.records is None else f"{totals.records:,}"
    told = f"  {who:16} {records:>9} {totals.packets:>12,} {totals.bytes:>16,}  {'; '.join(filter(None, remarks))}"
    print(told.rstrip())


def compare(case, folder, options):
    """prints a case; whether it is explained"""
    sent = export(case, folder, options)
    seen = metered(case, sent, folder, options)
    tool, theirs = second(case, sent, folder)
    explained, wrong = judge(sent, seen, tool, theirs)
    ways = f"{seen.second_directions} second directions" if seen.second_directions else ""
    verdict = "UNEXPLAINED: " + "; ".join(wrong) if wrong else "explained" if explained else "equal"
    if sent.estimated and not wrong:
        verdict += ", the estimate within its error"
    recorded = " (the sample)" if case.exporter == "openvswitch" and not options.live else ""
    print(f"{case.name}: {case.exporter} {case.options}{recorded}")
    row("exporter", sent.totals, case.known)
    row("flowhost", seen.totals, ways, *explained)
    row(tool, theirs, verdict)
    sys.stdout.flush()
    return not wrong


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("words", nargs="*", metavar="WORD", help="cases with one of these words in their name")
    parser.add_argument("--short", action="store_true", help="the cases of the test run, Open vSwitch from samples")
    parser.add_argument("--flowhost", type=pathlib.Path, help="another than that of the release build")
    parser.add_argument("--plugin", type=pathlib.Path, help="the library, where it does not lie beside flowhost")
    parser.add_argument("--flowgen", type=pathlib.Path, help="another than that of the bench build")
    options = parser.parse_args()
    for what, preset in (("flowhost", "release"), ("flowgen", "bench")):
        if getattr(options, what) is None:
            exporters.quietly([ROOT / "tools/build", preset, what, *(("flowhandlers",) if what == "flowhost" else ())])
            setattr(options, what, ROOT / "build" / preset / what)
    options.live = not options.short and exporters.can_switch()
    return options


def main():
    options = arguments()
    cases = [case for case in CASES if (case.short or not options.short) and
             (not options.words or any(word.lower() in case.name.lower() for word in options.words))]
    print(f"{'':18} {'records':>9} {'packets':>12} {'bytes':>16}")
    bad = 0
    try:
        for case in cases:
            with tempfile.TemporaryDirectory() as folder:
                bad += not compare(case, pathlib.Path(folder), options)
    except exporters.Missing as missing:
        print(f"no {missing} here")
        return 1 if bad else 77
    print(f"{len(cases)} cases, {bad} not explained")
    return 1 if bad or not cases else 0


if __name__ == "__main__":
    sys.exit(main())
