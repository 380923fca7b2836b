#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""clickhouse_questions.py FLOWHOST PLUGIN FLOWGEN [HOURS [RECORDS]]: seconds that questions take over HOURS (24) of RECORDS (4.2
million) flow rows each, and the server's processor time. One hour is replayed; the server copies it to the others, later and with
other client ports."""
import os
import pathlib
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).parent))
from clickhouse import Server  # noqa: E402

FLOWHOST, PLUGIN, FLOWGEN = sys.argv[1:4]
HOURS, RECORDS = (int(word) for word in [*sys.argv[4:6], *["24", "4200000"][len(sys.argv) - 4:]])
START = 1699999980
OTHER = {"bucket": "bucket + {0}", "block": "block + {0}", "first_ms": "first_ms + {0}000", "last_ms": "last_ms + {0}000",
         "last_seen": "last_seen + {0}", "sport": "bitXor(sport, if(sport > 1024, intDiv({0}, 3600), 0))",
         "dport": "bitXor(dport, if(dport > 1024, intDiv({0}, 3600), 0))"}
TABLES = {"raw_flows": "1", "raw_counters_minute": "1", "raw_counters_hour": "1", "raw_buckets": "tier != 'day'",
          "raw_health": "tier != 'day'"}


def grow(server):
    for table, condition in TABLES.items():
        columns = [name for name, in server.ask(f"SELECT name FROM system.columns WHERE database = 'flows' AND table = '{table}'")]
        for hour in range(1, HOURS):
            values = ", ".join(OTHER.get(name, name).format(3600 * hour) for name in columns)
            server.ask(f"INSERT INTO {table} ({', '.join(columns)}) SELECT {values} FROM {table} WHERE {condition} AND "
                       f"bucket < {START + 3600 - 60}", "flows")


def processor_seconds(process):
    fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def questions(host):
    day, hour = (["--from", f"@{START}", "--to", f"@{START + 3600 * HOURS}"], ["--from", f"@{START + 60}", "--to", f"@{START + 3000}"])
    later = ["--against", f"@{START}"]
    return {"hosts of an hour": ["top", "hosts", *hour], "what a host talked to in an hour": ["flows", f"src {host}", "--group-by",
                                                                                            "dst,dport", *hour],
            "an interface, by 5 minutes": ["series", "--interface", "192.0.2.1:3", "--step", "5m", *day], "AS numbers": ["top", "as", *day],
            "an application, by hours": ["series", "--application", "443", "--step", "1h", *day], "losses": ["losses", *day],
            "exporters": ["exporters", *day], "an hour beside another": ["compare", "totals", *hour, *later],
            "new peers of a host in an hour": ["compare", "hosts", "--of", host, "--new-peers", *hour, *later],
            "all flows of a host": ["flows", f"host {host}", *day], "flows over 1 MB": ["flows", "bytes > 1M", *day],
            "the ten largest flows": ["flows", *day], "sums by service": ["flows", "--group-by", "service", *day],
            "sums by source and service": ["flows", "--group-by", "src,service", *day]}


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        server = Server(folder / "server")
        try:
            server.make("flows", subprocess.run([FLOWHOST, "clickhouse-schema", "--plugin", PLUGIN], check=True, capture_output=True,
                                                text=True).stdout)
            url = f"http://127.0.0.1:{server.port}/flows"
            subprocess.run([FLOWGEN, "--format", "netflow9", "--records", str(RECORDS), "--hosts", "100000", "--exporters", "4",
                            "--minutes", "58", "--write", folder / "hour.pcap"], check=True, stdout=subprocess.DEVNULL)
            subprocess.run([FLOWHOST, "replay", "--plugin", PLUGIN, "--config", folder / "policies", "--top", "0", "--clickhouse", url,
                            folder / "hour.pcap"], check=True, stdout=subprocess.DEVNULL)
            grow(server)
            print(f"{server.number('SELECT count() FROM raw_flows', 'flows'):,} flow rows; load {os.getloadavg()[0]:.1f}", flush=True)
            host = server.ask("SELECT key FROM hosts_hour ORDER BY bytes DESC LIMIT 1", "flows")[0][0]
            for what, words in questions(host).items():
                began, before = time.monotonic(), processor_seconds(server.process)
                subprocess.run([FLOWHOST, *words, "--json", "--clickhouse", url], check=True, stdout=subprocess.DEVNULL)
                print(f"{what}: {time.monotonic() - began:.2f} s, {processor_seconds(server.process) - before:.2f} s of the server's "
                      f"processors, load {os.getloadavg()[0]:.1f}", flush=True)
        finally:
            server.stop()


main()
