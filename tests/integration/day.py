#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A day of NetFlow v5 in a store, and ten questions about it whose answers are known: they are counted here, from
the bytes of the capture, by nobody who has to do with flowhost.

    tests/integration/day.py                          10 million flows of 24 hours, on the release build
    tests/integration/day.py --records 100000000      so many
    tests/integration/day.py --hours 3 --records 40000   the test run
    tests/integration/day.py --keep DIR --show           with the answers as people read them; DIR keeps capture,
                                                         store and truth, and has them the next time

Rows of hours and days have to be exact for every key that they keep, answers from flows exact to the byte. Times
are of the wall clock, process and all. Exit status: 0 all as it should be, 1 not.
"""
import argparse
import array
import collections
import ipaddress
import json
import os
import pathlib
import pickle
import shlex
import struct
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
BEGIN = 1700000000  # of flowgen's captures: 2023-11-14 22:13:20 UTC
DAY = 1700006400
EVENING = DAY - 3600
SAMPLING = 500
EXPORTERS = 4
LOSER, SILENT = 0xC0000201, 0xC0000204
INTERFACE, PORT = 3, 443
LARGE = 10**9
SILENCE_MS = 300_000
RECORD = struct.Struct(">IIIHHIIIIHHBBBBHHBBH")
GLOBAL_HEADER, FRAME, HEADERS = 24, 16, 14 + 20 + 8
SKETCH = 1 << 22

Flow = collections.namedtuple("Flow", "time exporter src dst sport dport proto inp out bytes packets first last src_as dst_as")


def text(address):
    return str(ipaddress.IPv4Address(address))


def is_home(address):
    return address >> 24 == 10


def datagrams(path):
    """time in seconds, exporter, place of the payload and its bytes"""
    with open(path, "rb") as capture:
        capture.read(GLOBAL_HEADER)
        while frame := capture.read(FRAME):
            seconds, _, size, _ = struct.unpack("<IIII", frame)
            packet = capture.read(size)
            yield seconds, int.from_bytes(packet[26:30], "big"), frame, packet


def flows(path):
    for seconds, exporter, _, packet in datagrams(path):
        payload = packet[HEADERS:]
        _, _, uptime, unix, nanos = struct.unpack_from(">HHIII", payload)
        started = unix * 1000 + nanos // 1_000_000 - uptime
        for (src, dst, _, inp, out, packets, size, first, last, sport, dport, _, _, proto, _, src_as, dst_as, _, _,
             _) in RECORD.iter_unpack(payload[24:]):
            yield Flow(seconds, exporter, src, dst, sport, dport, proto, inp, out, size * SAMPLING, packets * SAMPLING,
                       started + first, started + last, src_as, dst_as)


class Truth:
    """what the ten answers have to be"""

    def __init__(self, options):
        self.end = DAY + options.hours * 3600
        self.quiet = DAY + options.hours * 3600 * 3 // 4  # from when on an exporter is silent
        self.lost = 0
        self.night = (DAY + 3600, DAY + 7200)
        self.late = (self.end - 3600, self.end)
        self.host = None
        self.sums = {what: {} for what in ("hosts", "totals", "as", "interface", "application", "host")}
        self.peers = {self.late[0]: set(), EVENING: set()}
        self.sketches = {name: array.array("Q", bytes(8 * SKETCH)) for name in ("large", "ports")}
        self.counted = 0

    def add(self, what, key, flow):
        sums = self.sums[what].setdefault(key, [0, 0])
        sums[0] += flow.bytes
        sums[1] += flow.packets

    def prepare(self, made, path):
        """an exporter says its rate, one falls silent, one loses datagrams: what flowgen does not make"""
        number = 0
        with open(path, "wb") as out:
            out.write(open(made, "rb").read(GLOBAL_HEADER))
            for seconds, exporter, frame, packet in datagrams(made):
                if seconds >= self.end or exporter == SILENT and seconds >= self.quiet:
                    continue
                if exporter == LOSER and self.night[0] <= seconds < self.night[0] + 360:
                    number += 1
                    if number % 3 == 0:
                        self.lost += (len(packet) - HEADERS - 24) // 48
                        continue
                at = HEADERS + 22
                out.write(frame + packet[:at] + struct.pack(">H", 0x4000 | SAMPLING) + packet[at + 2:])

    def count(self, path, flows_alone):
        for flow in flows(path):
            if self.host is None and is_home(flow.src):
                self.host = flow.src
            self.count_host(flow)
            self.sketches["large"][hash(key_of(flow)) % SKETCH] += flow.bytes
            if flow.time >= DAY:
                self.counted += 1
                self.sketches["ports"][hash((flow.sport, flow.dport)) % SKETCH] += flow.bytes
            if not flows_alone:
                self.count_keys(flow)

    def count_host(self, flow):
        if self.host not in (flow.src, flow.dst):
            return
        if self.night[0] <= flow.time < self.night[1] and flow.src == self.host:
            self.add("host", f"{text(flow.dst)} {flow.dport}", flow)
        hour = flow.time // 3600 * 3600
        if hour in self.peers:
            self.peers[hour].add(text(flow.dst if flow.src == self.host else flow.src))

    def count_keys(self, flow):
        hour = flow.time // 3600 * 3600
        if hour == self.night[0]:
            for address in (flow.src, flow.dst):
                self.add("hosts", text(address), flow)
        way = {(True, False): "out of home", (False, True): "into home"}[is_home(flow.src), is_home(flow.dst)]
        self.add("totals", (hour, "all"), flow)
        self.add("totals", (hour, way), flow)
        if flow.time < DAY:
            return
        for address, number in ((flow.src, flow.src_as), (flow.dst, flow.dst_as)):
            if not is_home(address):
                self.add("as", f"AS{number}", flow)
        if flow.exporter == LOSER and INTERFACE in (flow.inp, flow.out):
            self.add("interface", flow.time // 300 * 300, flow)
        if PORT in (flow.sport, flow.dport):
            self.add("application", hour, flow)

    def large(self, path):
        """flows with more than a number of bytes: parts with at most five minutes between them are one"""
        found = collections.defaultdict(lambda: collections.defaultdict(list))
        for flow in flows(path):
            key = key_of(flow)
            if self.sketches["large"][hash(key) % SKETCH] > LARGE and flow.time >= DAY:
                found[key][flow.time // 60].append(flow)
        wholes = []
        for minutes in found.values():
            rows = sorted((min(f.first for f in part), max(f.last for f in part), sum(f.bytes for f in part),
                           sum(f.packets for f in part)) for part in minutes.values())
            whole = list(rows[0])
            for row in rows[1:] + [(float("inf"),) * 4]:
                if row[0] <= whole[1] + SILENCE_MS:
                    whole = [whole[0], max(whole[1], row[1]), whole[2] + row[2], whole[3] + row[3]]
                    continue
                wholes.append(whole)
                whole = list(row)
        return [whole for whole in wholes if whole[2] > LARGE]

    def ports(self, path, least):
        """groups of two ports that have so much at least"""
        found = collections.Counter()
        for flow in flows(path):
            pair = (flow.sport, flow.dport)
            if flow.time >= DAY and self.sketches["ports"][hash(pair) % SKETCH] >= least:
                found[pair] += flow.bytes
        return {f"{sport} {dport}": sums for (sport, dport), sums in found.items() if sums >= least}


def key_of(flow):
    """which flow, from either side"""
    ends = ((flow.src, flow.sport, flow.inp), (flow.dst, flow.dport, flow.out))
    return (flow.exporter, flow.proto, *(ends if ends[0] < ends[1] else ends[::-1]))


class Day:
    def __init__(self, options, folder):
        self.options, self.folder = options, folder
        self.truth = Truth(options)
        self.failures, self.times = [], []

    def make(self):
        kept = self.folder / "truth.pickle"
        if kept.exists():
            self.truth = pickle.loads(kept.read_bytes())
            return
        store, capture = self.folder / "store", self.folder / "day.pcap"
        minutes = (self.truth.end - BEGIN) // 60 + 1
        made = self.folder / "made.pcap"
        subprocess.run([self.options.flowgen, "--format", "netflow5", "--records", str(self.options.records), "--hosts",
                        str(self.options.hosts), "--exporters", str(EXPORTERS), "--minutes", str(minutes), "--write",
                        made], check=True, stdout=subprocess.DEVNULL)
        self.truth.prepare(made, capture)
        made.unlink()
        began = time.monotonic()
        subprocess.run([self.options.flowhost, "replay", *self.plugin(), "--config", self.folder / "policies", "--top",
                        "0", "--store", store, capture], check=True, stdout=subprocess.DEVNULL)
        print(f"replayed into the store in {time.monotonic() - began:.1f} s")
        self.truth.count(capture, self.options.flows_alone)
        files = list((store / "flows").glob("*.sqlite"))
        kept.write_bytes(pickle.dumps(self.truth))
        print(f"{self.truth.counted:,} records of the day; files of flows: {sum(f.stat().st_size for f in files):,} bytes")

    def plugin(self):
        return ("--plugin", self.options.plugin) if self.options.plugin else ()

    def ask(self, *words, show=True):
        """the answer, and how long it took"""
        command = [self.options.flowhost, *words, "--utc", "--store", self.folder / "store"]
        began = time.monotonic()
        process = subprocess.Popen([*command, "--json"], stdout=subprocess.PIPE, text=True)
        out = process.stdout.read()
        _, status, used = os.wait4(process.pid, 0)
        seconds = time.monotonic() - began
        self.times.append((shlex.join(map(str, words)), seconds, used.ru_utime + used.ru_stime, used.ru_maxrss / 1024))
        if status != 0:
            raise SystemExit(f"day: {shlex.join(map(str, command))} failed")
        if self.options.show and show:
            print(f"\n$ flowhost {shlex.join(map(str, words))}", flush=True)
            subprocess.run(command, check=True)
        return json.loads(out)

    def expect(self, what, seen, wanted):
        if seen != wanted:
            self.failures.append(f"{what}: {str(seen)[:300]}, not {str(wanted)[:300]}")

    def span(self, begin, end):
        return "--from", f"@{begin}", "--to", f"@{end}"

    def expect_keys(self, what, answer, truth, most):
        """the largest of all, each with all that it has, and the others with the rest"""
        rows = {row["key"]: [row["bytes"], row.get("packets")] for row in answer["rows"] if row["key"] != "(others)"}
        has_packets = all(packets is not None for _, packets in rows.values())
        pick = (lambda sums: list(sums)) if has_packets else (lambda sums: [sums[0], None])
        self.expect(f"{what}: keys", rows, {key: pick(truth[key]) if key in truth else None for key in rows})
        self.expect(f"{what}: largest", sorted(row[0] for row in rows.values()),
                    sorted(sums[0] for sums in sorted(truth.values(), reverse=True)[:most]))
        self.expect(f"{what}: sum", sum(row["bytes"] for row in answer["rows"]), sum(sums[0] for sums in truth.values()))

    def ask_tiers(self):
        truth, sums = self.truth, self.truth.sums
        self.expect_keys("hosts", self.ask("top", "hosts", *self.span(*truth.night), "--top", "1000"), sums["hosts"], 1000)
        whole = self.span(DAY, truth.end)
        series = self.ask("series", "--interface", f"{text(LOSER)}:{INTERFACE}", *whole, "--step", "5m")
        self.expect("interface", {row["time_ms"] // 1000: row["bytes"] or 0 for row in series["rows"]},
                    {at: sums["interface"].get(at, [0])[0] for at in range(DAY, truth.end, 300)})
        self.expect_keys("as", self.ask("top", "as", *whole, "--top", "1000"), sums["as"], 1000)
        series = self.ask("series", "--application", str(PORT), *whole, "--step", "1h")
        self.expect("application", {row["time_ms"] // 1000: (row["bytes"], round(row["share"], 6)) for row in series["rows"]},
                    {at: (sums["application"][at][0], round(sums["application"][at][0] / sums["totals"][at, "all"][0], 6))
                     for at in range(DAY, truth.end, 3600)})
        losses = self.ask("losses", *whole)["rows"]
        self.expect("losses", [(row["key"], row["what"], row["count"], row["unit"]) for row in losses],
                    [(text(LOSER), "on the way: sequence", truth.lost, "flows")])
        silent = {row["key"]: row["silent"][:22] for row in self.ask("exporters", *whole)["rows"] if row.get("silent")}
        self.expect("silent", silent, {text(SILENT): time.strftime("since %Y-%m-%d %H:%M", time.gmtime(truth.quiet))})
        compared = self.ask("compare", "totals", *self.span(*truth.late), "--against", f"@{EVENING}")
        self.expect("compared", {row["key"]: (row["bytes"], row["bytes_before"]) for row in compared["rows"]},
                    {way: (sums["totals"][truth.late[0], way][0], sums["totals"][EVENING, way][0])
                     for way in ("all", "out of home", "into home")})

    def ask_flows(self):
        truth, capture = self.truth, self.folder / "day.pcap"
        host = text(truth.host)
        whole = self.span(DAY, truth.end)
        answer = self.ask("flows", f"src {host}", *self.span(*truth.night), "--group-by", "dst,dport", "--top", "1000000")
        self.expect_keys("host", answer, truth.sums["host"], 1000000)
        peers = self.ask("compare", "hosts", "--of", host, "--new-peers", *self.span(*truth.late), "--against",
                         f"@{EVENING}", "--top", "1000000")
        self.expect("new peers", {row["key"] for row in peers["rows"]},
                    truth.peers[truth.late[0]] - truth.peers[EVENING])
        large = self.ask("flows", f"bytes > {LARGE}", *whole, "--sort", "duration", "--top", "1000000", show=False)
        self.expect("some are large", bool(large["rows"]), True)
        self.expect("large", sorted((row["bytes"], row["packets"], row["duration_ms"]) for row in large["rows"]),
                    sorted((size, packets, last - first) for first, last, size, packets in truth.large(capture)))
        self.ask("flows", *whole, "--top", "10")
        self.ask("flows", f"host {host} and port {PORT}", *whole)
        groups = self.ask("flows", *whole, "--group-by", "sport,dport", "--top", "100")
        rows = {row["key"]: row["bytes"] for row in groups["rows"] if row["key"] != "(others)"}
        self.expect("groups", rows, truth.ports(capture, min(rows.values())))
        everything = self.ask("flows", *whole, "--group-by", "src,sport,dst,dport,proto", "--top", "10")
        for what, answer in (("groups", groups), ("all groups", everything)):
            self.expect(f"{what}: records", answer["total"]["flows"], truth.counted)

    def tell(self):
        print(f"\n{'wall s':>7} {'CPU s':>7} {'MiB':>6}  question")
        for words, seconds, used, peak in self.times:
            print(f"{seconds:7.2f} {used:7.2f} {peak:6.0f}  {words}")
        print("\n".join(self.failures) or "all answers are true")


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--records", type=int, default=10_750_000, help="from 22:13 of the day before on")
    parser.add_argument("--hosts", type=int, default=20_000)
    parser.add_argument("--hours", type=int, default=24, help="of the day, 2 or more")
    parser.add_argument("--flows-alone", action="store_true", help="the questions that flows answer")
    parser.add_argument("--show", action="store_true", help="answers as people read them, too")
    parser.add_argument("--keep", type=pathlib.Path, help="make capture and store here")
    parser.add_argument("--flowhost", type=pathlib.Path, default=ROOT / "build/release/flowhost")
    parser.add_argument("--plugin", type=pathlib.Path, help="the library, where it does not lie beside flowhost")
    parser.add_argument("--flowgen", type=pathlib.Path, default=ROOT / "build/release/flowgen")
    return parser.parse_args()


def main():
    options = arguments()
    with tempfile.TemporaryDirectory() as name:
        folder = options.keep or pathlib.Path(name)
        folder.mkdir(exist_ok=True)
        day = Day(options, folder)
        day.make()
        if not options.flows_alone:
            day.ask_tiers()
        day.ask_flows()
        day.tell()
    return 1 if day.failures else 0


if __name__ == "__main__":
    sys.exit(main())
