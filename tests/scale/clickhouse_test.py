#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""clickhouse_test.py FLOWHOST PLUGIN FLOWGEN [AWAY [TEST]]: what a ClickHouse has afterwards, to the record: beside the embedded store,
sent twice, by servers and collectors that die, through a spool. The server is away for AWAY seconds under load (default 3)."""
import concurrent.futures
import http.client
import json
import os
import pathlib
import re
import shlex
import socket
import sqlite3
import struct
import subprocess
import sys
import tempfile
import time
import urllib.parse

sys.path.insert(0, str(pathlib.Path(__file__).parent))
from checking import rest  # noqa: E402
from clickhouse import Server, Wire, free_port  # noqa: E402

FLOWHOST, PLUGIN, FLOWGEN = sys.argv[1:4]
AWAY = float(sys.argv[4]) if len(sys.argv) > 4 else 3
ONLY = sys.argv[5] if len(sys.argv) > 5 else ""
failures = []
TOTALS = "SELECT sum(bytes), sum(packets), sum(records) FROM buckets WHERE tier = '{}'"
SPAN = ["--utc", "--json", "--from", "2023-11-14 22:13", "--to", "2023-11-14 23:25"]
# What the manual asks, and more of each kind.
QUESTIONS = """
top hosts
flows 'src 10.0.0.5' --group-by dst,dport
series --interface 127.0.0.1:3 --step 5m
top as
series --application 443 --step 10m
losses
exporters
flows 'bytes > 50k' --sort duration
compare hosts --of 10.0.0.5 --new-peers --against '2023-11-14 21:00'
compare hosts --of 10.0.0.5 --new-peers --against '2023-11-14 22:00' --top 3
compare totals --against '2023-11-14 22:30'
compare hosts --against '2023-11-14 22:30'
top as --by bytes_source_home
top interfaces --step 10m
top protocols
series --step 5m
"""
FILTERS = """
tcp
net 10.0.0.0/8 and not port 443
src or dst port 53,443
exporter 127.0.0.1
exporter ::/0
in interface 1
interface 1-3
as 64500-65000
not as 1-70000
as 0
ipv6
src net ::/0
src and dst net 10.0.0.0/8
duration > 10
bps > 10k
packets < 5 or port 80
(bytes > 2k or packets > 3) and src port > 1023
not (bytes > 2k)
dst port < 1024 and pps > 0.5
vrf red,blue
user "o'brien\\?"
app "x') OR 1 = 1 --"
mac 00:00:00:00:00:01
not mac 02:00:5e:3f:27:5c
mac 00:00:00:00:00:00
nexthop 0.0.0.0/0
proto 6-17
"""
GROUPS = ("src,dport", "host --step 5m", "service", "port,proto", "exporter,interface", "as", "src_as,dst_as", "next_hop,bgp_next_hop",
          "vrf,app,user,tag --step 10m", "mac", "src_mac,dst_mac", "in,out", "sport --step 5m", "host,port,exporter", "proto,dst")
ORDERS = ("bytes", "packets", "flows", "duration", "first", "last")
# Every row as it came, those that came twice as well.
RAW_FLOWS = "SELECT count(), sum(bytes + bytes_rev), sum(packets + packets_rev), sum(records) FROM raw_flows"


def expect(what, seen, wanted):
    if seen != wanted:
        failures.append(f"{what}: {str(seen)[:600]}, not {str(wanted)[:600]}")


def numbers(row):
    return tuple(int(value) for value in row)


def later(capture, seconds):
    """the capture as it would be so much later"""
    data = bytearray(capture.read_bytes())
    at = 24
    while at < len(data):
        time_of, _, length, _ = struct.unpack_from("<IIII", data, at)
        struct.pack_into("<I", data, at, time_of + seconds)
        at += 16 + length
    capture.write_bytes(data)
    return capture


class Place:
    """a database of its own in the server, with the tables"""
    made = 0

    def __init__(self, server, schema):
        Place.made += 1
        self.name, self.server = f"flows{Place.made}", server
        server.make(self.name, schema)

    def url(self, wire=None, scheme="http"):
        return f"{scheme}://default@localhost:{(wire or self.server).port}/{self.name}"

    def ask(self, sql):
        return self.server.ask(sql, self.name)

    def totals(self, tier="minute"):
        return numbers(self.ask(TOTALS.format(tier))[0])

    def raw(self):
        return numbers(self.ask(RAW_FLOWS)[0])


class Test:
    def __init__(self, folder):
        self.folder, self.server = folder, Server(folder / "server")
        self.schema = subprocess.run([FLOWHOST, "clickhouse-schema", "--plugin", PLUGIN], check=True, capture_output=True,
                                     text=True).stdout
        # Two hours, of few minutes: each part of a table is dozens of files.
        first, second = (self.make(name, "--format", "mixed", "--exporters", "4", "--records", "8000", "--hosts", "300", "--minutes",
                                   "4", "--realistic", "--seed", name) for name in "12")
        self.captures = [first[0], later(second[0], 3600)]
        self.claimed = tuple(a + b for a, b in zip(first[1], second[1]))
        # What it is without any trouble.
        self.whole = self.place()
        expect("replay", self.replay(self.whole.url(), *self.captures).returncode, 0)

    def place(self):
        return Place(self.server, self.schema)

    def make(self, name, *options):
        capture = self.folder / f"{name}.pcap"
        said = subprocess.run([FLOWGEN, *options, "--write", capture], check=True, capture_output=True, text=True).stdout
        found = {key: int(value) for key, value in re.findall(r"^(\w+):? (\d+)$", said, re.M)}
        return capture, (found["bytes"], found["packets"], found["records"])

    def replay(self, url, *captures, options=()):
        return subprocess.run([FLOWHOST, "replay", "--plugin", PLUGIN, "--config", self.folder / "policies", "--top", "0",
                               "--clickhouse", url, *options, *captures], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)

    def listen(self, url, *options):
        return Collector([FLOWHOST, "listen", "--plugin", PLUGIN, "--config", self.folder / "policies", "--top", "0", "--bind",
                          "127.0.0.1", "--clickhouse", url, "--collector", "here", *options])

    # ---

    def test_beside_the_store(self):
        """the same questions have the same answers, and the tables the same rows"""
        store = self.folder / "store"
        subprocess.run([FLOWHOST, "replay", "--plugin", PLUGIN, "--config", self.folder / "policies", "--top", "0", "--store", store,
                        *(f"--store-keys={tier}=50000" for tier in ("minute", "hour", "day")), *self.captures], check=True,
                       stdout=subprocess.DEVNULL)
        for tier in ("minute", "hour", "day"):
            expect(f"claimed by {tier}", self.whole.totals(tier), self.claimed)
        expect("flows as claimed", self.whole.raw()[1:], self.claimed)
        self.name_some(store)
        asked = [shlex.split(line) for line in QUESTIONS.split("\n") if line]
        for at, filter_text in enumerate(line for line in FILTERS.split("\n") if line):
            asked += [["flows", filter_text, "--sort", ORDERS[at % 6], "--top", "20"], ["series", filter_text, "--step", "10m"],
                      ["flows", filter_text, "--group-by", *GROUPS[at % len(GROUPS)].split(), "--top", "5"]]
        for at, group in enumerate(GROUPS):
            asked += [["flows", "--group-by", *group.split(), "--sort", ORDERS[at % 6], "--top", str(at)]]
        with concurrent.futures.ThreadPoolExecutor(2) as two:
            list(two.map(lambda words: self.check_answer(words, store), asked))

    def check_answer(self, words, store):
        of_store, of_server = (subprocess.run([FLOWHOST, words[0], *SPAN, *source, *words[1:]], capture_output=True, text=True)
                               for source in (["--store", store], ["--clickhouse", self.whole.url()]))
        expect(" ".join(words), (of_server.stderr, of_server.stdout), ("", of_store.stdout))

    def name_some(self, store):
        """texts and MAC addresses, which the captures have not"""
        set_to = {"vrf": ("red", "dport = 443"), "app": ("a b", "dport = 443"), "user": ("o'brien\\?", "sport = 53"),
                  "tag": ("t", "proto = 17")}
        for hour in (store / "flows").glob("*.sqlite"):
            with sqlite3.connect(hour) as database:
                for number, (column, (text, condition)) in enumerate(set_to.items(), 1000):
                    database.execute("INSERT INTO texts VALUES (?, ?)", (number, text))
                    database.execute(f"UPDATE flows SET {column} = ? WHERE {condition}", (number,))
                database.execute("UPDATE flows SET src_mac = x'000000000001' WHERE in_if = 1")
        for column, (text, condition) in set_to.items():
            quoted = text.replace("\\", "\\\\").replace("'", "\\'")
            self.server.change("raw_flows", f"UPDATE {column} = '{quoted}' WHERE {condition}", self.whole.name)
        self.server.change("raw_flows", "UPDATE src_mac = unhex('000000000001') WHERE in_if = 1", self.whole.name)

    def test_page(self):
        """the API and the report answer as they do of a store; without the server they say so"""
        store, place, answers = self.folder / "page-store", self.place(), []
        subprocess.run([FLOWHOST, "replay", "--plugin", PLUGIN, "--config", self.folder / "policies", "--top", "0", "--store", store,
                        *(f"--store-keys={tier}=50000" for tier in ("minute", "hour", "day")), self.captures[0]], check=True,
                       stdout=subprocess.DEVNULL)
        expect("page: replay", self.replay(place.url(), self.captures[0]).returncode, 0)
        span = "utc=1&from=2023-11-14+22:13&to=2023-11-14+22:17"
        for source in (["--store", store], ["--clickhouse", place.url()]):
            report = self.folder / f"{source[0]}.html"
            subprocess.run([FLOWHOST, "report", *source, "--utc", "--from", "2023-11-14 22:13", "--to", "2023-11-14 22:17", "-o", report],
                           check=True)
            answers.append([re.sub(r'"now":\d+', "", report.read_text())])
            with Page(source) as page:
                status = json.loads(page.get("status?utc=1")[1])
                answers[-1] += [status["groups"], status["from"], status["to"]]
                answers[-1] += [page.get(f"{question}&{span}") for question in (
                    "top?group=hosts&step=1m", "flows?filter=tcp&group-by=src,dport&step=1m", "flows?filter=bytes+>+2k&sort=last",
                    "series?filter=host+10.0.0.5", "losses?", "exporters?", "flows?filter=nonsense", "flows?filter=app+'x\\'+or+1'")]
                if source[0] == "--clickhouse":
                    self.server.stop()
                    try:
                        expect("page: away", (page.get("status")[0], "ClickHouse at" in page.get("status")[1]), (500, True))
                    finally:
                        self.server.start()
                    expect("page: back", page.get("status")[0], 200)
        for of_store, of_server in zip(*answers):
            expect("page", of_server, of_store)
        for words in (["serve"], ["serve", "--store", store, "--clickhouse", place.url()], ["report", "-o", "-"]):
            expect(f"{words[0]}: which", subprocess.run([FLOWHOST, *words], capture_output=True).returncode, 2)

    def test_cluster(self):
        """two servers with a collector each answer as one that has both"""
        ports = [free_port(), free_port()]
        schema = subprocess.run([FLOWHOST, "clickhouse-schema", "--plugin", PLUGIN, "--cluster", "all"], check=True, capture_output=True,
                                text=True).stdout
        servers, alone = [], self.place()
        try:
            for number, (port, capture) in enumerate(zip(ports, self.captures)):
                servers.append(Server(self.folder / f"shard{number}", port, ports))
                servers[-1].make("flows", schema)
                for url in (f"http://127.0.0.1:{servers[-1].port}/flows", alone.url()):
                    expect("cluster: replay", self.replay(url, capture, options=["--collector", f"c{number}"]).returncode, 0)
            asked = [shlex.split(line) for line in QUESTIONS.split("\n") if line]
            for at, group in enumerate(GROUPS):
                asked.append(["flows", FILTERS.split("\n")[at + 1], "--group-by", *group.split(), "--sort", ORDERS[at % 6]])
            for at, words in enumerate(asked):
                one, seen = (subprocess.run([FLOWHOST, words[0], *SPAN, "--clickhouse", url, *words[1:]], capture_output=True, text=True)
                             for url in (alone.url(), f"http://127.0.0.1:{servers[at % 2].port}/flows"))
                expect("cluster: " + " ".join(words), (seen.stderr, seen.stdout), (one.stderr, one.stdout))
            for view in ("flow_list_exact", "hosts_hour", "totals", "exporters", "names", "meters", "buckets", "losses"):
                counts = [server.ask(f"SELECT count() FROM {view}", "flows") for server in servers]
                expect(f"cluster: {view}", counts, [alone.ask(f"SELECT count() FROM {view}")] * 2)
        finally:
            for server in servers:
                server.stop()

    def test_replayed_twice(self):
        before = self.whole.raw()
        done = self.replay(self.whole.url(), *self.captures)
        expect("replayed twice", (done.returncode, "already" in done.stderr, self.whole.raw()), (0, True, before))

    def test_replay_that_ended_early(self):
        """the next one goes on where it was"""
        place, seen = self.place(), []

        def breaks(statement, send):
            seen.append(statement)
            return send() if len(seen) < 40 else None
        with Wire(self.server, breaks) as wire:
            process = subprocess.Popen([FLOWHOST, "replay", "--plugin", PLUGIN, "--config", self.folder / "policies", "--top", "0",
                                        "--clickhouse", place.url(wire), *self.captures], stdout=subprocess.DEVNULL,
                                       stderr=subprocess.PIPE, text=True)
            said = process.stderr.readline()
            process.kill()
            process.wait()
        expect("ended early: told", "ClickHouse at" in said, True)
        expect("ended early: in part", 0 < place.raw()[0] < self.whole.raw()[0], True)
        other = self.replay(place.url(), *self.captures, options=["--home", "10.1.0.0/16"])
        expect("ended early: other settings", (other.returncode, "other settings" in other.stderr), (1, True))
        expect("ended early: again", self.replay(place.url(), *self.captures).returncode, 0)
        self.check_whole("ended early", place)

    def check_whole(self, what, place, raw=True):
        if raw:
            expect(f"{what}: flows", place.raw(), self.whole.raw())
        for tier in ("minute", "hour", "day"):
            expect(f"{what}: {tier}", place.totals(tier), self.claimed)
            for group, columns in (("hosts", "sum(packets), sum(bytes_in)"), ("protocols", "sum(keys)")):
                sums = f"SELECT count(), sum(bytes), {columns} FROM {group}_{tier}"
                expect(f"{what}: {group} by {tier}", place.ask(sums), self.whole.ask(sums))
        expect(f"{what}: as views have them", numbers(place.ask("SELECT count(), sum(bytes_both) FROM flow_list_exact")[0]),
               self.whole.raw()[:2])

    def test_dies_before_answering(self):
        """every block arrives, and for each the first answer is lost: none counts twice, in the raw tables either"""
        place, lost = self.place(), set()

        def mute(statement, send):
            answer = send()
            if statement.startswith("INSERT") and send.path not in lost:
                lost.add(send.path)
                return None
            return answer
        capture, claimed = self.make("short", "--format", "netflow9", "--records", "3000", "--hosts", "50", "--minutes", "3")
        with Wire(self.server, mute) as wire:
            expect("mute", self.replay(place.url(wire), capture).returncode, 0)
        expect("mute", (place.raw()[1:], place.totals(), len(lost) > 10), (claimed, claimed, True))
        expect("mute: counters", place.ask("SELECT count() FROM raw_counters_minute"),
               place.ask("SELECT count() FROM (SELECT key FROM raw_counters_minute FINAL)"))

    def test_half_a_block(self):
        place, cut = self.place(), []

        def halves(statement, send):
            answer = send()
            if "raw_flows" in statement and not cut:
                cut.append(place.raw()[0])
                self.server.delete("raw_flows", "row % 3 = 1 OR row > 40", place.name)
                return None
            return answer
        with Wire(self.server, halves) as wire:
            expect("half", self.replay(place.url(wire), *self.captures).returncode, 0)
        expect("half: was cut", len(cut), 1)
        self.check_whole("half a block", place)

    def test_each_block_twice(self):
        """where nobody can know: the views count each row once"""
        place = self.place()

        def repeats(statement, send):
            if statement.startswith("INSERT"):
                send(re.sub("query_id=[^&]*", "query_id=", send.path))
            return send()
        with Wire(self.server, repeats) as wire:
            expect("twice", self.replay(place.url(wire), *self.captures).returncode, 0)
        expect("twice: it was", place.raw()[0] > self.whole.raw()[0], True)
        self.check_whole("twice", place, raw=False)

    def test_restart_within_a_minute(self):
        place = self.place()
        for records in (70, 30):
            with self.listen(place.url()) as collector:
                collector.send("--format", "netflow9", "--records", str(records), "--hosts", "5", "--exporters", "1")
        expect("restart", (place.totals()[2], place.totals("hour")[2], place.totals("day")[2]), (100, 100, 100))
        expect("restart: protocols", place.ask("SELECT sum(bytes) FROM protocols_minute"),
               [(str(place.totals()[0]),)])

    def test_killed(self):
        """a run that was killed lacks its last hour and day until the next one begins"""
        place = self.place()
        with self.listen(place.url()) as collector:
            collector.send("--format", "netflow9", "--records", "500", "--hosts", "20", "--exporters", "2")
        place.ask("INSERT INTO raw_runs SELECT collector, run, started - 9, alive - 9, 0, '', program, written + 1 FROM raw_runs FINAL")
        hosts, hour = place.ask("SELECT key, bytes FROM hosts_hour ORDER BY key"), place.totals("hour")
        for table in ("raw_counters_hour", "raw_counters_day"):
            self.server.delete(table, "1", place.name)
        for table in ("raw_buckets", "raw_health", "raw_losses"):
            self.server.delete(table, "tier != 'minute'", place.name)
        expect("killed: nothing", place.totals("hour"), (0, 0, 0))
        with self.listen(place.url()):
            pass
        expect("killed: hosts", place.ask("SELECT key, bytes FROM hosts_hour ORDER BY key"), hosts)
        expect("killed: hour, day", (place.totals("hour"), place.totals("day")), (hour, hour))
        expect("killed: told", place.ask("SELECT reason FROM gaps"), [("killed",)])

    def test_away_under_load(self):
        """the server dies while flows come, and is back: every record is there"""
        place = self.place()
        with self.listen(place.url(), "--spool", self.folder / "spool") as collector:
            sent = collector.send("--format", "netflow9", "--records", "2000", "--hosts", "100", "--exporters", "2")
            self.server.stop()
            began = time.monotonic()
            while time.monotonic() - began < AWAY:
                more = collector.send("--format", "ipfix", "--records", "2000", "--hosts", "100", "--exporters", "2")
                sent = tuple(a + b for a, b in zip(sent, more))
            rest(collector.process.pid)
        kept = sorted((self.folder / "spool").glob("*.block"))
        expect("away: stays", (len(kept) > 3, "until the next run" in collector.said), (True, True))
        self.server.start()
        with self.listen(place.url(), "--spool", self.folder / "spool") as collector:
            collector.wait_for(lambda: not list((self.folder / "spool").glob("*.block")))
        expect("away: sent", (place.raw()[1:], place.totals(), place.totals("day")), (sent, sent, sent))
        expect("away: spool is empty", list((self.folder / "spool").iterdir()), [])

    def test_full_spool(self):
        """what finds no room is told and counted"""
        place, spool = self.place(), self.folder / "small"
        self.server.stop()
        with self.listen(place.url(), "--spool", spool, "--spool-size", "100000") as collector:
            # The first block fails before there is trouble, and one that waits in memory has to go somewhere.
            collector.send("--format", "netflow9", "--records", "4000", "--hosts", "2000", "--exporters", "1")
        told = re.search(r"([\d,]+) flows and ([\d,]+) other rows for ClickHouse are lost", collector.said)
        expect("full: told", told is not None, True)
        self.server.start()
        with self.listen(place.url(), "--spool", spool) as collector:
            collector.wait_for(lambda: not list(spool.glob("*.block")))
        flows = int(place.ask("SELECT sum(flows) FROM buckets WHERE tier = 'minute'")[0][0])
        expect("full: counted", place.raw()[0] + int(told[1].replace(",", "")) if told else 0, flows)
        expect("full: a gap", place.ask("SELECT DISTINCT reason FROM gaps WHERE reason = 'not written'"), [("not written",)])

    def test_refusals(self):
        """what is wrong is said, and what came meanwhile is not lost"""
        for url, text in (("ftp://a/b", "neither http"), ("http://u:p@a/b", "password"), ("http://a/b/c", "database"),
                          ("http://:1/", "host"), ("http://a:0/b", "port"), ("http://a/b?c=d", "more than a database")):
            done = self.replay(url, *self.captures)
            expect(f"{url}", (done.returncode, text in done.stderr), (2, True))
        url = self.whole.url()
        for words, environment, text in (
                ([url.replace("default@", "flows@")], {}, "refuses"), ([url.replace("flows1", "nowhere")], {}, "refuses"),
                ([url.replace("flows1", "default")], {}, "clickhouse-schema"), ([url, "--clickhouse-password-file", "/nothing"], {},
                                                                              "cannot be read"),
                (["http://127.0.0.1:1/flows"], {}, "127.0.0.1")):
            done = subprocess.run([FLOWHOST, "top", "hosts", "--clickhouse", *words], capture_output=True, text=True,
                                  env=os.environ | environment)
            expect(f"{words}", (done.returncode != 0, text in done.stderr), (True, True))
        done = subprocess.run([FLOWHOST, "top", "totals", "--clickhouse", url.replace("default@", "flows@")], capture_output=True,
                              text=True, env=os.environ | {"CLICKHOUSE_PASSWORD": "se'cret"})
        expect("password", (done.returncode, done.stderr), (0, ""))

    def test_tls(self):
        certificate = self.folder / "certificate", self.folder / "key"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=localhost", "-addext",
                        "subjectAltName=DNS:localhost", "-out", certificate[0], "-keyout", certificate[1]], check=True,
                       stderr=subprocess.DEVNULL)
        with Wire(self.server, lambda _, send: send(), certificate) as wire:
            asked = [FLOWHOST, "top", "totals", "--clickhouse", self.whole.url(wire, "https")]
            untrusted = subprocess.run(asked, capture_output=True, text=True)
            expect("TLS: a stranger", (untrusted.returncode, "certificate" in untrusted.stderr), (1, True))
            trusted = subprocess.run([*asked, "--clickhouse-ca", certificate[0]], capture_output=True, text=True)
            expect("TLS", (trusted.returncode, trusted.stderr), (0, ""))


class Page:
    """what is shown until the end of a with"""
    def __init__(self, source):
        self.port = free_port()
        self.process = subprocess.Popen([FLOWHOST, "serve", *source, "--http", f"127.0.0.1:{self.port}"], stderr=subprocess.PIPE, text=True)

    def __enter__(self):
        self.process.stderr.readline()
        return self

    def get(self, path):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        connection.request("GET", "/api/" + urllib.parse.quote(path, safe="?&=+"))
        answer = connection.getresponse()
        return answer.status, answer.read().decode()

    def __exit__(self, *_):
        self.process.terminate()
        self.process.communicate()


class Collector:
    """a collector that runs until the end of a with"""
    def __init__(self, words):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self.process = subprocess.Popen([*words, "--port", f"netflow={self.port}"], stdout=subprocess.DEVNULL,
                                        stderr=subprocess.PIPE, text=True)
        self.said = ""

    def __enter__(self):
        while "anybody" not in self.said:
            line = self.process.stderr.readline()
            if not line:
                raise RuntimeError("flowhost: " + self.said)
            self.said += line
        return self

    def send(self, *options):
        """what was sent: bytes, packets, records; slowly enough that a socket holds it"""
        said = subprocess.run([FLOWGEN, *options, "--send", f"127.0.0.1:{self.port}", "--rate", "4000"], check=True,
                              capture_output=True, text=True).stdout
        found = {key: int(value) for key, value in re.findall(r"^(\w+):? (\d+)$", said, re.M)}
        return found["bytes"], found["packets"], found["records"]

    @staticmethod
    def wait_for(is_done):
        deadline = time.monotonic() + 20
        while not is_done() and time.monotonic() < deadline:
            time.sleep(0.1)

    def __exit__(self, *_):
        self.process.terminate()
        self.said += self.process.communicate()[1]


def main():
    with tempfile.TemporaryDirectory() as folder:
        test = Test(pathlib.Path(folder))
        try:
            for name in sorted(name for name in dir(test) if name.startswith("test_" + ONLY)):
                began = time.monotonic()
                try:
                    getattr(test, name)()
                except RuntimeError as error:
                    failures.append(f"{name}: {error}")
                print(f"{name[5:]}: {time.monotonic() - began:.1f} s", flush=True)
        finally:
            test.server.stop()
    print(*failures, sep="\n", flush=True)
    return 1 if failures else 0


sys.exit(main())
