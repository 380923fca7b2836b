#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""ask_page.py ADDRESS URL CONTROL: sends something to an address that softflowd sees, has it export that over its control
socket, and waits until the collector at the URL shows it: the page with all its files, a question, and metrics."""
import json
import re
import socket
import sys
import time
import urllib.parse
import urllib.request

ADDRESS, URL, CONTROL = sys.argv[1:4]
DATAGRAMS, BYTES = 500, 1000


def get(path):
    with urllib.request.urlopen(URL + path, timeout=30) as answer:
        return answer.read().decode()


def ask(question, **parameters):
    return json.loads(get(f"/api/{question}?from=-1h&" + urllib.parse.urlencode(parameters)))["rows"]


def tell(command):
    """softflowd something; its answer"""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as control:
        control.connect(CONTROL)
        control.sendall(f"{command}\n".encode())
        return b"".join(iter(lambda: control.recv(65536), b"")).decode()


def shown():
    """bytes of all traffic"""
    return max((row["bytes"] for row in ask("top", group="totals")), default=0)


def exported():
    """bytes that it says it has exported, of all protocols"""
    tell("expire-all")
    table = tell("statistics")
    rows = re.findall(r"\(\d+\): +(\d+) +(\d+) ", table[table.index("Per-protocol"):])
    return sum(int(octets) for octets, _ in rows)


before = shown()  # of the history
for _ in range(DATAGRAMS):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.sendto(bytes(BYTES), (ADDRESS, 9))
    time.sleep(0.005)  # a burst is more than a capture takes
page = get("/")
files = re.findall(r'(?:src|href)="([a-z.]+\.(?:js|css))"', page)
files += re.findall(r'from "\./(\w+\.js)"', get("/main.js"))
assert len(files) > 10 and all(get("/" + name) for name in files), files

# A capture on a busy machine misses some.
began = time.time()
while (seen := shown() - before) != (sent := exported()) or sent == 0:
    assert time.time() - began < 150, f"{seen} of {sent} bytes after 150 seconds"
    time.sleep(3)
assert sent > DATAGRAMS * BYTES / 2, sent
exporter = next(row for row in ask("exporters") if row["version"] == "NetFlow v9")
assert abs(exporter["clock_offset_ms"]) < 60_000, exporter
records = re.search(r'^flowhost_exporter_records_total\{exporter="127.0.0.1",version="NetFlow v9"\} (\d+)', get("/metrics"), re.M)
assert records and int(records[1]) > DATAGRAMS / 2, records
print(f"the page, its {len(files)} files, /api and /metrics show the {sent} bytes that softflowd saw")
