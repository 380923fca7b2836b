#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""kafka_clickhouse_test.py FLOWHOST PLUGIN MOCK_KAFKA: softflowd exports to a collector, which tells a Kafka, from which a
ClickHouse's tables read: what is there is what the exporter says it sent, also after every message was delivered twice.

Exit status: 0 as it should be, 1 not, 77 no softflowd here.
"""
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

sys.path[:0] = [str(pathlib.Path(__file__).parent), str(pathlib.Path(__file__).parents[1] / "integration")]
from checking import expect, failures, wait_for  # noqa: E402
from clickhouse import Server  # noqa: E402
from exporters import SAMPLES, SBIN, softflowd_totals  # noqa: E402
from kafka import Kafka  # noqa: E402

TOPICS = ("flows", "counters", "health")


def export(folder, kafka):
    """softflowd's own totals of what it sent a collector, which has ended"""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    log = folder / "log"
    collector = subprocess.Popen(
        [FLOWHOST, "listen", "--plugin", PLUGIN, "--config", folder / "policies", "--bind", "127.0.0.1", "--port",
         f"netflow={port}", "--kafka", kafka.brokers, "--collector", "here", "--top", "0"], stdout=subprocess.DEVNULL,
        stderr=log.open("w"))
    wait_for("a collector", lambda: "listening" in log.read_text(), 60)
    subprocess.run([sys.executable, SAMPLES / "make_traffic.py", "--clients", "40", folder / "office.pcap"], check=True,
                   stdout=subprocess.DEVNULL)
    said = subprocess.run(["softflowd", "-d", "-a", "-v", "9", "-r", folder / "office.pcap", "-p", folder / "pid", "-c", "none",
                           "-n", f"127.0.0.1:{port}"], check=True, capture_output=True, text=True,
                          env={**os.environ, "PATH": SBIN}).stdout
    time.sleep(0.5)
    collector.send_signal(signal.SIGTERM)
    expect("the collector's end", (collector.wait(30), "lost" in log.read_text()), (0, False))
    return softflowd_totals(said)


def judge(server, totals, when):
    number = lambda sql: tuple(int(value) for value in server.ask(sql, "flows")[0])
    whole = (totals.bytes, totals.packets, totals.records)
    for tier in ("minute", "hour", "day"):
        expect(f"{when}: {tier}s", number(f"SELECT sum(bytes), sum(packets), sum(records) FROM buckets WHERE tier = '{tier}'"),
               whole)
        expect(f"{when}: its counters by {tier}", number(f"SELECT sum(bytes) FROM flowgens_{tier}"), whole[:1])
        expect(f"{when}: health by {tier}", number(f"SELECT sum(records), sum(lost) FROM health_{tier}"), (totals.records, 0))
    expect(f"{when}: flows", number("SELECT sum(bytes_both), sum(packets + packets_rev) FROM flow_list_exact"), whole[:2])
    expect(f"{when}: datagrams and losses by number", number(
        "SELECT sum(came), sum(lost) FROM stream_losses"), number("SELECT sum(datagrams), 0 FROM health_minute"))


def test(folder):
    kafka = Kafka(MOCK_KAFKA)
    server = Server(folder / "server", profile="<stream_flush_interval_ms>500</stream_flush_interval_ms>",
                    extra="<kafka><auto_offset_reset>smallest</auto_offset_reset></kafka>")
    schema = subprocess.run([FLOWHOST, "clickhouse-schema", "--plugin", PLUGIN, "--kafka", kafka.brokers], check=True,
                            capture_output=True, text=True).stdout
    server.make("flows", schema)
    totals = export(folder, kafka)
    sent = {topic: len(kafka.all(topic)) for topic in TOPICS}
    read = lambda: {"flows": server.number("SELECT count() FROM raw_flows", "flows"),
                    "counters": sum(server.number(f"SELECT count() FROM raw_counters_{tier}", "flows")
                                    for tier in ("minute", "hour", "day")),
                    "health": sum(server.number(f"SELECT count() FROM raw_{table}", "flows")
                                  for table in ("buckets", "health", "losses", "streams"))}
    wait_for(f"all read of {sent}", lambda: read() == sent, 60)
    judge(server, totals, "read once")
    for database in ("groups", "meters"):
        expect(f"what {database} are called", server.number(f"SELECT count() > 10 FROM {database}", "flows"), 1)
    answer = json.loads(subprocess.run(
        [FLOWHOST, "top", "ethertypes", "--json", "--clickhouse", f"http://default@localhost:{server.port}/flows", "--from", "-1h",
         "--to", "now"], check=True, capture_output=True, text=True).stdout)
    expect("asked", sum(row["bytes"] for row in answer["rows"]), totals.bytes)
    inserted = server.number("SELECT value FROM system.events WHERE event = 'InsertedRows'")
    for topic in TOPICS:
        messages = kafka.kcat(topic, "-f", r"%k\t%s\n")
        subprocess.run(["kcat", "-b", kafka.brokers, "-P", "-t", f"flowhost.{topic}", "-K", "\t"], input=messages, check=True,
                       capture_output=True)
    marks = {topic: 2 * count for topic, count in sent.items()}
    expect("told twice", {topic: len(kafka.all(topic)) for topic in TOPICS}, marks)
    wait_for("all read again", lambda: server.number("SELECT value FROM system.events WHERE event = 'InsertedRows'") >= inserted
             + sum(sent.values()), 60)
    judge(server, totals, "read twice")
    server.stop()
    kafka.end()
    print(f"kafka_clickhouse: {totals.records} records, {sent} messages")


def main():
    if shutil.which("softflowd", path=SBIN) is None:
        return 77
    with tempfile.TemporaryDirectory() as folder:
        test(pathlib.Path(folder))
    for failure in failures:
        print(f"FAILED {failure}")
    return 1 if failures else 0


if __name__ == "__main__":
    FLOWHOST, PLUGIN, MOCK_KAFKA = sys.argv[1:4]
    sys.exit(main())
