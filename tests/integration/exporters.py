# SPDX-License-Identifier: Apache-2.0
"""Exporters that run here, and what they say themselves that they have sent."""
import dataclasses
import os
import pathlib
import re
import shutil
import subprocess
import sys

SAMPLES = pathlib.Path(__file__).resolve().parents[2] / "samples"
SBIN = os.environ["PATH"] + ":/usr/sbin"


class Missing(Exception):
    """a program that is not installed"""


@dataclasses.dataclass(frozen=True)
class Totals:
    records: int | None  # None where nobody says so
    packets: int
    bytes: int


@dataclasses.dataclass
class Export:
    capture: pathlib.Path
    totals: Totals  # scaled by the sampling rate
    rate: int = 1
    estimated: bool = False  # the totals are what went in, of which every rate-th packet was told on average
    lost: int | None = None  # flows, datagrams or records that are missing, as the format counts them


def runs(command):
    path = shutil.which(command, path=SBIN)
    if path is None:
        raise Missing(command)
    return path


def quietly(command, **options):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))}\n{done.stdout}{done.stderr}")
    return done.stdout


def numbers(text):
    """lines of the form `name: number` or `name number`"""
    return {name: int(value) for name, value in re.findall(r"^(\w+):? (\d+)$", text, re.M)}


def softflowd_totals(said):
    """of the statistics that softflowd prints at its end"""
    table = said[said.index("Per-protocol statistics"):]
    rows = [tuple(map(int, row)) for row in re.findall(r"\(\d+\): +(\d+) +(\d+) ", table)]
    return Totals(int(re.search(r"Flows exported: \d+ \((\d+) records\)", said).group(1)),
                  sum(packets for _, packets in rows), sum(octets for octets, _ in rows))


def softflowd(folder, options):
    """reads the traffic of an office and exports to a recorder on loopback"""
    traffic, capture = folder / "office.pcap", folder / "export.pcap"
    if not traffic.exists():
        quietly([sys.executable, SAMPLES / "make_traffic.py", "--clients", "40", traffic])
    said = quietly([sys.executable, SAMPLES / "record_udp.py", "--exporter", "10.1.0.254", "--show-port", "2055",
                    capture, runs("softflowd"), "-d", "-a", "-r", traffic, "-p", folder / "softflowd.pid", "-c", "none",
                    "-n", "127.0.0.1:{port}", *options.split()])
    one, rate = softflowd_totals(said), int((re.findall(r"-s (\d+)", options) or [1])[0])
    return Export(capture, Totals(one.records, one.packets * rate, one.bytes * rate), rate)


# Of the datagrams that are left out, sequence numbers tell what the format numbers.
LOST = {"netflow5": "left_out_records", "netflow9": "left_out_datagrams", "ipfix": "left_out_records",
        "sflow": "left_out_datagrams"}


def flowgen(folder, options, program):
    capture = folder / "export.pcap"
    says = numbers(quietly([program, *options.split(), "--write", capture]))
    lost = LOST.get(options.split()[1])
    return Export(capture, Totals(says["records"], says["packets"], says["bytes"]), lost=lost and says[lost])


def sample(name, folder=SAMPLES):
    says = numbers((folder / f"{name}.txt").read_text())
    rate = says.get("sampling", 1)
    totals = Totals(says.get("records"), says["packets"], says["bytes"])
    if name.startswith("sflow"):  # what went in; one in `rate` is told
        if rate == 1:
            totals = dataclasses.replace(totals, records=totals.packets)
        return Export(folder / f"{name}.pcap", totals, rate, estimated=rate > 1)
    return Export(folder / f"{name}.pcap", Totals(totals.records, totals.packets * rate, totals.bytes * rate), rate)


def can_switch():
    """whether Open vSwitch can be run here, in network namespaces of its own"""
    programs = ("ovs-vswitchd", "ovsdb-server", "nsenter", "ip", "unshare")
    return os.geteuid() == 0 and all(shutil.which(program, path=SBIN) for program in programs) and \
        subprocess.run(["unshare", "--net", "true"], check=False, capture_output=True).returncode == 0


def openvswitch(folder, kind, live):
    """the switch itself, or what it exported when the samples were made"""
    name = {"sflow": "sflow5-openvswitch", "sflow-ipv6": "sflow5-ipv6-openvswitch",
            "netflow": "netflow5-openvswitch"}[kind]
    if not live:
        return sample(name)
    quietly([SAMPLES / "make_openvswitch_samples", folder, kind])
    return sample(name, folder)
