#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""clickhouse_speed.py FLOWHOST PLUGIN FLOWGEN [RECORDS]: rows a second into a ClickHouse on this machine, what of the metering rate
that takes, and bytes a row. Of a release build, on a machine that does nothing else."""
import os
import pathlib
import resource
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).parent))
from clickhouse import Server  # noqa: E402

FLOWHOST, PLUGIN, FLOWGEN = sys.argv[1:4]
RECORDS = int(sys.argv[4]) if len(sys.argv) > 4 else 2_000_000
ROUNDS = 3


def run(folder, capture, *options):
    """seconds and processor seconds of a replay; the server's apart"""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    began = time.monotonic()
    subprocess.run([FLOWHOST, "replay", "--plugin", PLUGIN, "--config", folder / "policies", "--top", "0", *options, capture],
                   check=True, stdout=subprocess.DEVNULL)
    took = time.monotonic() - began
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return took, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def processor_seconds(process):
    fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        capture = folder / "capture.pcap"
        subprocess.run([FLOWGEN, "--format", "netflow9", "--records", str(RECORDS), "--hosts", "100000", "--exporters", "4", "--minutes",
                        "4", "--write", capture], check=True, stdout=subprocess.DEVNULL)
        server = Server(folder / "server")
        try:
            schema = subprocess.run([FLOWHOST, "clickhouse-schema", "--plugin", PLUGIN], check=True, capture_output=True, text=True).stdout
            best = {}
            for number in range(ROUNDS):
                server.make(f"flows{number}", schema)
                url = f"http://127.0.0.1:{server.port}/flows{number}"
                for what, options in (("metering", ["--interval", "60"]), ("store", ["--store", folder / f"store{number}"]),
                                      ("ClickHouse", ["--clickhouse", url])):
                    server_before = processor_seconds(server.process)
                    took, processor = run(folder, capture, *options)
                    mine = processor_seconds(server.process) - server_before
                    best[what] = min(best.get(what, (1e9, 0, 0)), (took, processor, mine))
            for what, (took, processor, of_server) in best.items():
                print(f"{what}: {RECORDS / took:,.0f} records/s, {took:.2f} s, {processor:.2f} s of processors, the server's {of_server:.2f} s")
            for table, rows, size, raw in server.ask(
                    "SELECT table, sum(rows), sum(bytes_on_disk), sum(data_uncompressed_bytes) FROM system.parts WHERE active AND "
                    "database = 'flows0' GROUP BY table ORDER BY sum(bytes_on_disk) DESC"):
                print(f"{table}: {int(rows):,} rows, {int(size) / int(rows):.1f} bytes a row on disk, {int(raw) / int(rows):.1f} before")
        finally:
            server.stop()


main()
