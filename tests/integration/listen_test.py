#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""listen_test.py FLOWHOST PLUGIN FLOWGEN SAMPLES FAKE_PLUGIN: a collector on loopback, with real and made exporters
that send at once, while its policy and its home AS feed are edited; then the same collector restarted.

Exit status: 0 as it should be, 1 not, 77 no softflowd here.
"""
import atexit
import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import sqlite3
import struct
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
import books

POLICY = """<OmbrelPluginConfiguration><Policy>
  <ReloadConfigCheckSeconds>60</ReloadConfigCheckSeconds><HomeASNumbersFile>homeas</HomeASNumbersFile>
  <HomeASNumbers>64500</HomeASNumbers><MeterMasks>%s</MeterMasks><CountLeftOut>true</CountLeftOut>
</Policy></OmbrelPluginConfiguration>
"""
failures = []


def expect(what, seen, wanted):
    if seen != wanted:
        failures.append(f"{what}: {seen}, not {wanted}")


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Collector:
    """a running flowhost listen; what it says is kept in a file"""

    def __init__(self, folder, *options, plugin=None, protocols=("netflow", "sflow"), environment=(),
                 stdout=None):
        self.log = folder / "log"
        self.ports = {protocol: free_port() for protocol in protocols}
        ports = [word for protocol, port in self.ports.items() for word in ("--port", f"{protocol}={port}")]
        self.process = subprocess.Popen(
            [FLOWHOST, "listen", "--plugin", plugin or PLUGIN, "--config", folder / "policies", "--data",
             folder / "feeds", "--bind", "127.0.0.1", *ports, "--log-level", "information", "--json",
             folder / "out.json", "--top", "3", "--group", "totals", *options],
            stdout=stdout or (folder / "summary").open("w"), stderr=self.log.open("w"), env=dict(os.environ, **dict(environment)))
        self.json, self.summary = folder / "out.json", folder / "summary"
        atexit.register(self.process.kill)  # where the test ends before it
        self.wait_for("listening on 127.0.0.1")

    def wait_for(self, text, times=1, seconds=60, meanwhile=lambda: None):
        """until so many lines of the log match a text"""
        end = time.time() + seconds
        while len(re.findall(text, self.log.read_text(errors="replace"), re.M)) < times:
            if time.time() > end or self.process.poll() is not None:
                sys.exit(f"flowhost never said {text!r}:\n{self.log.read_text(errors='replace')}")
            meanwhile()
            time.sleep(0.02)

    def signal(self, number):
        self.process.send_signal(number)

    def end(self):
        self.signal(signal.SIGTERM)
        status = self.process.wait(60)
        return status, json.loads(self.json.read_text())


class Exporters:
    """made ones, once more every time they have sent all; slow, so that a socket's buffer holds what a busy
    machine lets wait"""

    def __init__(self, collector):
        self.collector, self.runs = collector, []

    def keep_on(self):
        if not self.runs or self.runs[-1].poll() is not None:
            self.runs.append(subprocess.Popen(
                [FLOWGEN, "--format", "mixed", "--records", "4000", "--hosts", "500", "--exporters", "8", "--seed",
                 str(len(self.runs)), "--send", f"127.0.0.1:{self.collector.ports['netflow']}", "--sflow-port",
                 str(self.collector.ports["sflow"]), "--rate", "200"], stdout=subprocess.PIPE, text=True))

    def claims(self):
        """what each says that it has sent, when it has"""
        return [claims(run.communicate()[0]) for run in self.runs]


def totals(report):
    keys = next(g["keys"] for g in report["groups"] if g["id"] == "totals")
    row = next(k for k in keys if k["key"] == "TOTALBW")
    return {"records": report["records"], "bytes": row["bytes"], "packets": row["packets"],
            "datagrams": sum(e["datagrams"] for e in report["exporters"])}


def claims(text):
    found = {k: int(v) for k, v in re.findall(r"^(\w+):? (\d+)$", text, re.M)}
    return {k: found[k] for k in ("records", "bytes", "packets", "datagrams")}


def payloads(capture):
    data, at = capture.read_bytes(), 24
    while at < len(data):
        size = struct.unpack_from("<I", data, at + 8)[0]
        yield data[at + 16 + 42:at + 16 + size]
        at += 16 + size


def write_policy(folder, masks, age):
    """atomically, with a time in the past that tells the editions apart"""
    draft = folder / "policies" / "draft"
    draft.write_text(POLICY % masks)
    when = time.time() - age
    os.utime(draft, (when, when))
    draft.rename(folder / "policies" / "NetflowCounterPolicy.xml")


def start_softflowd(folder, port):
    subprocess.run([sys.executable, SAMPLES / "make_traffic.py", "--office", "3", folder / "office.pcap"], check=True,
                   stdout=subprocess.DEVNULL)
    said = (folder / "softflowd.txt").open("w")
    return subprocess.Popen([shutil.which("softflowd", path=os.environ["PATH"] + ":/usr/sbin"), "-d", "-a", "-v", "9",
                             "-6", "-T", "vlan", "-r", folder / "office.pcap", "-p", folder / "softflowd.pid", "-c", "none",
                             "-n", f"127.0.0.1:{port}", "not ether src 02:00:0a:00:00:01"], stdout=said, stderr=subprocess.DEVNULL)


def run_live(folder):
    (folder / "policies").mkdir()
    (folder / "feeds").mkdir()
    (folder / "feeds" / "incoming_1_homeas").write_text("64501\n")
    write_policy(folder, "true", 300)
    collector = Collector(folder, "--instances", "2", "--interval", "3600", "--state", folder / "state")
    collector.wait_for("incoming_1_homeas", 2)

    made = Exporters(collector)
    real = start_softflowd(folder, collector.ports["netflow"])
    collector.wait_for("Broadcasted", meanwhile=made.keep_on)

    # A newer feed and another policy, taken into use while datagrams arrive.
    (folder / "feeds" / "incoming_2_homeas").write_text("64502\n64503\n")
    write_policy(folder, "false", 200)
    collector.signal(signal.SIGHUP)
    collector.wait_for("SIGHUP: Netflowv5 Meter [12] has reloaded ", 2, meanwhile=made.keep_on)
    collector.wait_for("incoming_2_homeas", 2)
    # A broken one is told, and does no harm.
    good = (folder / "policies" / "NetflowCounterPolicy.xml").read_text()
    (folder / "policies" / "NetflowCounterPolicy.xml").write_text(good.replace("</Policy>", "</Polic"))
    collector.signal(signal.SIGHUP)
    collector.wait_for("a policy cannot be used, see above; the one in force stays")
    write_policy(folder, "false", 100)

    claimed = made.claims()
    real.wait(60)
    collector.signal(signal.SIGUSR1)
    status, report = collector.end()
    expect("exit status", status, 0)
    said = (folder / "softflowd.txt").read_text()
    expect("lost here", report["lost_datagrams"], {"kernel": 0, "queue": 0})
    expect("books", books.faults(report), [])
    for entry in report["exporters"]:
        expect(f"faults of {entry['port']}", (entry["sequence"]["lost"], entry["rejected"]), (0, 0))
    seen = totals(report)
    exported = int(re.search(r"Flows exported: (\d+)", said).group(1))
    expect("records", seen["records"] - sum(c["records"] for c in claimed), exported)
    table = said[said.index("Per-protocol statistics"):]
    rows = [tuple(map(int, row)) for row in re.findall(r"\(\d+\): +(\d+) +(\d+) ", table)]
    for index, what in enumerate(("bytes", "packets")):
        expect(what, seen[what] - sum(c[what] for c in claimed), sum(row[index] for row in rows))
    expect("summaries", collector.summary.read_text().count("Flow records"), 2)


def run_reloaded(folder):
    """the policies are those that flowhost writes, and nobody sends anything"""
    collector = Collector(folder)
    netflow, sflow = (folder / "policies" / f"{name}CounterPolicy.xml" for name in ("Netflow", "SFlow"))

    def reload(*told):
        collector.signal(signal.SIGHUP)
        for text in told:
            collector.wait_for(f"SIGHUP: {text}")

    def edit(policy, seconds):
        policy.write_text(policy.read_text().replace("<MeterMAC>true", "<MeterMAC>false"))
        os.utime(policy, (time.time() + seconds,) * 2)

    reload(f"Netflowv5 Meter 1 has not reloaded {netflow}: it is unchanged",
           f"SFlow  Meter 1 has not reloaded {sflow}: it is unchanged")
    edit(netflow, 10)
    edit(sflow, 10)
    reload(f"Netflowv5 Meter 1 has reloaded {netflow}", "SFlow  Meter 1 has not .* and that takes a restart")
    edit(netflow, 5)
    reload("Netflowv5 Meter 1 has not .* its time is no newer than before")
    netflow.unlink()
    reload("Netflowv5 Meter 1 has not .* cannot be read: No such file")
    netflow.write_text("<OmbrelPluginConfiguration/>")
    os.utime(netflow, (time.time() + 20,) * 2)
    collector.signal(signal.SIGHUP)
    collector.wait_for("SIGHUP: Netflowv5 Meter 1 has reloaded", 2)
    expect("datagrams", collector.end()[1]["exporters"], [])
    # This one never looks.
    collector = Collector(folder)
    edit(netflow, 30)
    reload("Netflowv5 Meter 1 has not .* ReloadConfigCheckSeconds was below 60")
    collector.end()


def with_padding(message):
    """behind the template sets of an IPFIX message"""
    at, out = 16, b""
    while at < len(message):
        number, length = struct.unpack_from(">HH", message, at)
        padding = bytes(3 if number == 2 else 0)
        out += struct.pack(">HH", number, length + len(padding)) + message[at + 4:at + length] + padding
        at += length
    return struct.pack(">HH", 10, 16 + len(out)) + message[4:16] + out


def run_restarted(folder):
    capture = folder / "ipfix.pcap"
    subprocess.run([FLOWGEN, "--format", "ipfix", "--records", "60", "--hosts", "10", "--write", capture], check=True,
                   stdout=subprocess.DEVNULL)
    datagrams = list(map(with_padding, payloads(capture)))
    exporter = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    exporter.bind(("127.0.0.1", 0))
    port = exporter.getsockname()[1]
    for number, state in enumerate(("new", "kept", "damaged")):
        if state == "damaged":
            archive = folder / "state" / "templates"
            archive.write_bytes(archive.read_bytes()[:-30])
        collector = Collector(folder, "--state", folder / "state", "--instances", str(1 + number % 2))
        exporter.sendto(datagrams[min(number, 1)], ("127.0.0.1", collector.ports["netflow"]))
        # It is metered before the end, whenever that comes.
        status, report = collector.end()
        expect(f"{state}: exit status", status, 0)
        seen = next(e for e in report["exporters"] if e["port"] == port)
        expect(f"{state}: records", (seen["records"] > 0, seen["sets_without_template"], seen["templates"] > 0),
               (False, 1, False) if state == "damaged" else (True, 0, True))
        said = collector.log.read_text()
        expect(f"{state}: told", "is damaged and now stands aside" in said, state == "damaged")
        expect(f"{state}: restored", " restored from " in said, state == "kept")


def run_over_ipv6(folder):
    """an exporter keeps its templates over restarts, and is never shown as what stands for it"""
    capture = folder / "ipfix.pcap"
    subprocess.run([FLOWGEN, "--format", "ipfix", "--records", "60", "--hosts", "10", "--write", capture], check=True,
                   stdout=subprocess.DEVNULL)
    datagrams = list(payloads(capture))
    exporter = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
    try:
        exporter.bind(("::1", 0))
    except OSError:
        print("no IPv6 here")
        return
    (folder / "policies").mkdir()
    (folder / "policies" / "NetflowCounterPolicy.xml").write_text(
        "<OmbrelPluginConfiguration><Policy><MergeMultipleSources>false</MergeMultipleSources></Policy>"
        "</OmbrelPluginConfiguration>")
    for number, state in enumerate(("new", "kept", "damaged")):
        if state == "damaged":
            (folder / "state" / "stand-ins").write_text("nonsense")
        collector = Collector(folder, "--bind", "::1", "--state", folder / "state", "--group", "flowgens", "--group",
                              "flowintfs", "--group", "flows", "--split-flows", "--csv", folder / "csv", "--sqlite", folder / "flows.db")
        collector.wait_for("listening on ::1")
        exporter.sendto(datagrams[min(number, 1)], ("::1", collector.ports["netflow"]))
        status, report = collector.end()
        expect(f"{state}: exit status", status, 0)
        seen = report["exporters"][0]
        expect(f"{state}: exporter", (seen["address"], seen["port"]), ("::1", exporter.getsockname()[1]))
        expect(f"{state}: records", (seen["records"] > 0, seen["sets_without_template"]),
               (False, 1) if state == "damaged" else (True, 0))
        written = [report_file.read_text() for report_file in (folder / "csv").iterdir()]
        written += [collector.summary.read_text(), json.dumps(report),
                    "\n".join(sqlite3.connect(folder / "flows.db").iterdump())]
        expect(f"{state}: shown", [text for text in written if "240.0.0.1" in text or "F0.00.00.01" in text], [])
        if state == "damaged":
            expect("told", "stand-ins is damaged and now stands aside" in collector.log.read_text(), True)
            continue
        for group, text in (("flowgens", r"^::1$"), ("flowintfs", r"^::1 if \d+$"), ("flows", r" at ::1 if \d+/\d+$")):
            keys = next(g["keys"] for g in report["groups"] if g["id"] == group)
            expect(f"{state}: {group}", [k["text"] for k in keys if not re.search(text, k["text"])], [])


def run_port_taken(folder):
    """the other ports carry on"""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
        taken.bind(("127.0.0.1", 0))
        port = taken.getsockname()[1]
        collector = Collector(folder, "--port", f"netflow={port}")
        collector.wait_for(f"UDP port 127.0.0.1:{port} cannot be had: Address already in use")
        status, _ = collector.end()
        expect("exit status with a port taken", status, 1)


def run_silent(folder):
    """who stops sending is told once, by the real address, as is that he sends again; who may not send is not heard"""
    collector = Collector(folder, "--bind", "::1", "--silent-after", "2", "--interval", "1",
                          "--allow", "::ffff:127.0.0.0/126", "--allow", "::1")
    datagram = struct.pack("!HHIIIIHH", 5, 1, 0, 0, 0, 0, 0, 0) + bytes(48)
    there = collector.ports["netflow"]
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as steady, \
            socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as first, \
            socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as stranger, \
            socket.socket(socket.AF_INET6, socket.SOCK_DGRAM) as second:
        steady.bind(("127.0.0.2", 0))
        first.bind(("127.0.0.3", 0))
        stranger.bind(("127.0.0.4", 0))
        stranger.sendto(datagram, ("127.0.0.1", there))
        silent = ["127.0.0.3"]
        first.sendto(datagram, ("127.0.0.1", there))
        try:
            second.sendto(datagram, ("::1", there))
            silent.append("::1")
        except OSError:
            print("no IPv6 here")
        keep_on = lambda: steady.sendto(datagram, ("127.0.0.1", there))
        for exporter in silent:
            collector.wait_for(rf"^flowhost: {exporter} has sent nothing for 2.0 s \(last \d\d:\d\d:\d\d\)$",
                               meanwhile=keep_on)
        first.sendto(datagram, ("127.0.0.1", there))
        collector.wait_for(r"^flowhost: 127.0.0.3 sends again$", meanwhile=keep_on)
        status, report = collector.end()
    expect("exit status of the silent", status, 0)
    expect("who was heard", {exporter["address"] for exporter in report["exporters"]}, {"127.0.0.2", *silent})
    expect("strangers", " 1 of sources that --allow does not name" in collector.summary.read_text(), True)
    said = collector.log.read_text()
    expect("told of the silent", [said.count(f" {e} has sent nothing") for e in ("127.0.0.2", *silent)],
           [0] + [1] * len(silent))


def run_flooded(folder):
    """every datagram is metered or told as lost, once: here, or on the way as its number says"""
    gate = folder / "gate"
    collector = Collector(folder, "--interval", "3600", plugin=FAKE_PLUGIN, protocols=("fake",),
                          environment={"FAKE_PLUGIN_GATE": str(gate)})
    here = ("127.0.0.1", collector.ports["fake"])
    datagrams, queued = 1600, 1024  # of this size in a queue
    on_the_way = 7

    def datagram(number, size, letter):
        return struct.pack("!HHIIIIHH", 5, 1, 0, 0, 0, number, 0, 0) + bytes(size) + letter

    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as exporter:
        exporter.sendto(datagram(0, 48, b"W"), here)
        for number in range(1, datagrams - 1):
            missing = on_the_way if number > datagrams - 100 else 0  # while the queue is full
            exporter.sendto(datagram(number + missing, 65000, b"."), here)
            if number % 8 == 0:
                time.sleep(0.004)
        collector.signal(signal.SIGUSR1)
        gate.touch()
        while "Flow records" not in collector.summary.read_text():
            time.sleep(0.02)
        exporter.sendto(datagram(datagrams - 1 + on_the_way, 48, b"."), here)  # none is lost unseen
    status, report = collector.end()
    lost, seen = report["lost_datagrams"], report["exporters"][0]
    expect("exit status of the flooded", status, 0)
    expect("metered and lost", seen["datagrams"] + lost["kernel"] + lost["queue"], datagrams)
    expect("books of the flooded", books.faults(report), [])
    expect("records of the flooded", seen["records"], seen["datagrams"])
    expect("a full queue", lost["queue"] > 0 or lost["kernel"] + queued + 32 > datagrams, True)
    if lost["kernel"] == 0:
        expect("lost on the way", seen["sequence"]["lost"], on_the_way)


def run_ended_by_plugin(folder, ends=lambda collector: None):
    """what waited when the plug-in ended the process is told as lost, in all lanes"""
    gate = folder / "gate"
    collector = Collector(folder, "--interval", "3600", "--instances", "4", plugin=FAKE_PLUGIN, protocols=("fake",),
                          environment={"FAKE_PLUGIN_GATE": str(gate)})
    here = ("127.0.0.1", collector.ports["fake"])
    exporters = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(16)]
    for exporter in exporters:
        for number in range(52):
            kind = {0: b"W", 25: b"B"}.get(number, b".")
            exporter.sendto(b"\0\5" + bytes(27) + kind, here)
    time.sleep(0.5)
    ends(collector)
    gate.touch()
    expect("exit status of the ended", collector.process.wait(60), 255)
    report = json.loads(collector.json.read_text())
    lost = report["lost_datagrams"]
    expect("metered and lost", sum(e["datagrams"] for e in report["exporters"]) + lost["kernel"] + lost["queue"], 16 * 52)
    expect("lost", lost["queue"] > 0, True)


def run_ended_twice(folder):
    """the same while the collector itself ends, and waits for the lanes"""
    def ends(collector):
        collector.signal(signal.SIGTERM)
        time.sleep(1.5)
    run_ended_by_plugin(folder, ends)


def run_late(folder):
    """what an exporter sends through the end is metered or told, and nothing else is"""
    gate = folder / "gate"
    collector = Collector(folder, "--interval", "3600", "--no-sandbox", plugin=FAKE_PLUGIN, protocols=("fake",),
                          environment={"FAKE_PLUGIN_GATE": str(gate)})
    sent = 0
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as exporter:
        exporter.connect(("127.0.0.1", collector.ports["fake"]))
        with contextlib.suppress(ConnectionRefusedError):  # by the one before
            while True:
                exporter.send(b"\0\5" + bytes(27) + (b"." if sent else b"W"))
                sent += 1
                if sent == 500:
                    collector.signal(signal.SIGTERM)
                if sent == 1500:
                    gate.touch()
                time.sleep(0.001)
    expect("exit status of the late", collector.process.wait(60), 0)
    report = json.loads(collector.json.read_text())
    told = re.findall(r"^flowhost: ([\d,]+) datagrams? that arrived late, while it ended, (?:is|are) not metered$",
                      collector.log.read_text(), re.M)
    late = sum(int(number.replace(",", "")) for number in told)
    lost = report["lost_datagrams"]
    expect("late ones", late > 500, True)
    expect("metered, lost and late", report["exporters"][0]["datagrams"] + lost["kernel"] + lost["queue"] + late, sent - 1)


def run_given_up(folder):
    """a lane that was given up finds its policy broken while a last report waits for a terminal that takes nothing:
    one of the two ends the process"""
    gate = folder / "gate"
    read_end, full = os.pipe()
    os.set_blocking(full, False)
    with contextlib.suppress(BlockingIOError):
        while True:
            os.write(full, bytes(4096))
    os.set_blocking(full, True)
    collector = Collector(folder, "--interval", "3600", plugin=FAKE_PLUGIN, protocols=("fake",), stdout=full,
                          environment={"FAKE_PLUGIN_GATE": str(gate)})
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as exporter:
        for kind in (b".", b"E"):
            exporter.sendto(b"\0\5" + bytes(27) + kind, ("127.0.0.1", collector.ports["fake"]))
            time.sleep(0.1)
    collector.signal(signal.SIGTERM)
    collector.wait_for("meter 1 is at one datagram of 127.0.0.1")
    gate.touch()
    expect("exit status of the given up", collector.process.wait(60), 1)
    said = collector.log.read_text()
    for text in ("the plug-in ended the process", "standard output takes nothing: 1 report is not written"):
        expect(f"told by the given up: {text}", said.count(text), 1)
    os.close(read_end)
    os.close(full)


def main():
    if shutil.which("softflowd", path=os.environ["PATH"] + ":/usr/sbin") is None:
        sys.exit(77)
    for scenario in (run_live, run_reloaded, run_restarted, run_over_ipv6, run_port_taken, run_silent, run_flooded,
                     run_ended_by_plugin, run_ended_twice, run_late, run_given_up):
        with tempfile.TemporaryDirectory() as folder:
            scenario(pathlib.Path(folder))
    print("\n".join(failures) or
          "live totals, reload, feed, restart, IPv6, a taken port, silence, a flood and sudden ends are as they should be")
    sys.exit(bool(failures))


FLOWHOST, PLUGIN, FLOWGEN = sys.argv[1:4]
SAMPLES, FAKE_PLUGIN = map(pathlib.Path, sys.argv[4:])
main()
