#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""http_test.py FLOWHOST PLUGIN FLOWGEN SOURCE [answers | schemas | prometheus PROMETHEUS PROMTOOL]: a collector with
made exporters, asked over HTTP.

    answers     metrics against what the exporters claim; answers against the command line's, while it runs and from its
                store afterwards
    schemas     answers against the schemas of docs/openapi.json, which takes python3-jsonschema
    prometheus  what a real Prometheus has scraped"""
import atexit
import json
import pathlib
import re
import signal
import socket
import sqlite3
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

FLOWHOST, PLUGIN, FLOWGEN, SOURCE, WHAT, *PROGRAMS = sys.argv[1:]
RULES = pathlib.Path(SOURCE, "packaging", "prometheus", "alerts.yml")
API = json.loads(pathlib.Path(SOURCE, "docs", "openapi.json").read_text())
failures = []


def expect(what, seen, wanted):
    if seen != wanted:
        failures.append(f"{what}: {seen!r}, not {wanted!r}")


def free_port(kind):
    with socket.socket(socket.AF_INET, kind) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def until(what, done, seconds=120):
    end = time.time() + seconds
    while not (result := done()):
        if time.time() > end:
            sys.exit(f"never: {what}")
        time.sleep(0.1)
    return result


class Program:
    """flowhost, and where it says that it can be asked"""

    def __init__(self, folder, name, *words):
        log = folder / name
        self.process = subprocess.Popen([FLOWHOST, *words, "--http", "127.0.0.1:0"], stdout=subprocess.DEVNULL,
                                        stderr=log.open("w"))
        atexit.register(self.process.kill)
        self.url = until(f"{name}: an address in {log.read_text()}",
                         lambda: re.search(r"http://[\d.:]+", log.read_text())).group(0)

    def get(self, path, **parameters):
        """status and text"""
        if parameters:
            path += "?" + urllib.parse.urlencode({k.replace("_", "-"): v for k, v in parameters.items()})
        try:
            with urllib.request.urlopen(self.url + path, timeout=60) as answer:
                return answer.status, answer.read().decode()
        except urllib.error.HTTPError as error:
            return error.code, error.read().decode()

    def end(self):
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(60)


def metrics(text):
    """sums by name"""
    sums = {}
    for name, value in re.findall(r"^(\w+)(?:\{.*\})? (\S+)$", text, re.M):
        sums[name] = sums.get(name, 0) + float(value)
    return sums


def check_metrics(collector, claims):
    wanted = {"flowhost_exporter_records_total": claims["records"],
              "flowhost_exporter_datagrams_total": claims["datagrams"], "flowhost_exporter_lost_total": 0,
              "flowhost_lane_dropped_datagrams_total": 0}

    def counted():
        seen = metrics(collector.get("/metrics")[1])
        return seen if seen.get("flowhost_exporter_records_total") == claims["records"] else None

    seen = until(f"metrics {wanted} in {collector.get('/metrics')[1]}", counted)
    expect("metrics", {name: seen.get(name) for name in wanted}, wanted)
    text = collector.get("/metrics")[1]
    own = re.findall(r'^flowhost_exporter_last_seen\S*\{exporter="127', text, re.M)
    expect("exporters with series of their own", len(own), 2)
    expect("the others", 'flowhost_exporter_records_total{exporter="others",version=""}' in text, True)
    expect("busy", seen["flowhost_lane_busy_seconds_total"] > 0, True)
    expect("interfaces", seen["flowhost_interface_bytes_total"] >= claims["bytes"], True)
    offsets = re.findall(r"^flowhost_exporter_clock_offset_seconds\{.*\} (\S+)$", text, re.M)
    expect("clocks", (len(offsets), all(abs(float(offset)) < 5 for offset in offsets)), (2, True))


def check_taken_port(folder, collector):
    """a collector whose address for HTTP another has meters all the same"""
    log = folder / "taken"
    other = subprocess.Popen([FLOWHOST, "listen", "--plugin", PLUGIN, "--config", folder / "policies", "--bind", "127.0.0.1",
                              "--port", f"netflow={free_port(socket.SOCK_DGRAM)}", "--http", collector.url[len("http://"):]],
                             stdout=subprocess.DEVNULL, stderr=log.open("w"))
    atexit.register(other.kill)
    until("listening beside a taken port", lambda: "listening on" in log.read_text() or other.poll() is not None)
    expect("a taken port is told", "nothing is shown over HTTP" in log.read_text(), True)
    other.send_signal(signal.SIGTERM)
    expect("exit status beside a taken port", other.wait(60), 0)


def check_prometheus(folder, collector, claims):
    """asks a real one, which has scraped the collector, for the total that the exporters claim"""
    prometheus, promtool = PROGRAMS
    said = subprocess.run([promtool, "check", "metrics"], input=collector.get("/metrics")[1], capture_output=True, text=True)
    expect("promtool check metrics", (said.returncode, said.stdout + said.stderr), (0, ""))
    (folder / "prometheus.yml").write_text(json.dumps({
        "global": {"scrape_interval": "1s"}, "rule_files": [str(RULES)],
        "scrape_configs": [{"job_name": "flowhost", "static_configs": [{"targets": [collector.url[7:]]}]}]}))
    port = free_port(socket.SOCK_STREAM)
    process = subprocess.Popen(
        [prometheus, f"--config.file={folder}/prometheus.yml", f"--storage.tsdb.path={folder}/tsdb",
         f"--web.listen-address=127.0.0.1:{port}"], stderr=(folder / "prometheus.log").open("w"))
    atexit.register(process.kill)

    def answer():
        query = urllib.parse.urlencode({"query": "sum(flowhost_exporter_records_total)"})
        try:
            with urllib.request.urlopen(f"http://127.0.0.1:{port}/api/v1/query?{query}", timeout=10) as asked:
                return json.load(asked)["data"]["result"]
        except (OSError, ValueError):
            return None

    result = until("an answer of Prometheus", answer)
    expect("Prometheus", float(result[0]["value"][1]), float(claims["records"]))
    process.terminate()
    process.wait(60)


def check_dashboards(text, store):
    """every metric that a dashboard shows is there, and every query to the store is one that it understands"""
    def targets(name):
        board = json.loads(pathlib.Path(SOURCE, "packaging", "grafana", name).read_text())
        return [(panel["title"], target) for panel in board["panels"] for target in panel["targets"]]

    described = set(re.findall(r"^# TYPE (\w+) ", text, re.M))
    # Nobody lost, refused or left out anything here, and there are metrics of those who did alone.
    described |= {"flowhost_exporter_refused_datagrams_total", "flowhost_exporter_left_out_records_total"}
    for title, target in targets("flowhost.json"):
        expect(f"metrics of '{title}'", set(re.findall(r"flowhost_\w+", target["expr"])) - described, set())
    database = sqlite3.connect(f"file:{store}/counters.sqlite?mode=ro", uri=True)
    for title, target in targets("store.json"):
        query = target["queryText"].replace("$__from", "0").replace("$__to", str(int(time.time() * 1000)))
        rows = database.execute(query).fetchall()
        expect(f"rows of '{title}'", bool(rows) or title in ("AS", "Losses and gaps"), True)
    database.close()


# What is asked in both ways: words of the command line and parameters.
QUESTIONS = [
    (["top", "hosts", "--top", "3"], {"group": "hosts", "top": 3}),
    (["top", "as", "--by", "bytes_source_home", "--step", "1m"], {"group": "as", "by": "bytes_source_home", "step": "1m"}),
    (["flows", "tcp and port 443", "--top", "5"], {"filter": "tcp and port 443", "top": 5}),
    (["flows", "--group-by", "src,dport", "--by", "flows"], {"group_by": "src,dport", "by": "flows"}),
    (["series", "--step", "1m"], {"step": "1m"}),
    (["series", "--group", "protocols", "--key", "6"], {"group": "protocols", "key": "6"}),
    (["series", "not tcp", "--utc"], {"filter": "not tcp", "utc": 1}),
    (["losses"], {}),
    (["exporters"], {}),
    (["compare", "totals", "--against", "yesterday"], {"group": "totals", "against": "yesterday"}),
]


def check_answers(server, store, span):
    times = [f"--from={span['from']}", f"--to={span['to']}"]
    for words, parameters in QUESTIONS:
        done = subprocess.run([FLOWHOST, *words, *times, "--json", "--store", store], capture_output=True, text=True)
        expect(f"{words}: said", (done.returncode, done.stderr), (0, ""))
        status, text = server.get(f"/api/{words[0]}", **parameters, **span)
        expect(f"{words}", (status, text), (200, done.stdout))
    for path, parameters, wanted in [
            ("/api/top", {}, 400), ("/api/top", {"group": "frob"}, 400), ("/api/top", {"group": "hosts", "top": 10001}, 400),
            ("/api/top", {"group": "hosts", "store": "/"}, 400), ("/api/top", {"group": "hosts", "names": "/etc/passwd"}, 400),
            ("/api/top", {"group": "--help"}, 400), ("/api/flows", {"filter": "host <script>"}, 400),
            ("/api/flows", {"filter": "tcp\0"}, 400), ("/api/frob", {}, 404), ("/api/", {}, 404), ("/frob", {}, 404),
            ("/../../etc/passwd", {}, 404)]:
        status, text = server.get(path, **parameters)
        expect(f"{path} {parameters}", (status, list(json.loads(text))), (wanted, ["error"]))
    command = subprocess.run([FLOWHOST, "flows", "host <script>", "--store", store], capture_output=True, text=True)
    text = json.loads(server.get("/api/flows", filter="host <script>")[1])["error"]
    expect("a fault of a filter", "flowhost: " + text + "\n", command.stderr)


def resolved(part):
    return API["components"]["parameters"][part["$ref"].rsplit("/")[-1]] if "$ref" in part else part


def described():
    """paths; the examples of their parameters, of all and of those that are needed; the schema of the answer"""
    for path, methods in API["paths"].items():
        parameters = [resolved(part) for part in methods["get"]["parameters"]]
        given = {p["name"]: p["example"] for p in parameters if "example" in p}
        needed = {p["name"]: p["example"] for p in parameters if p["required"]}
        schema = methods["get"]["responses"]["200"]["content"]["application/json"]["schema"]["$ref"].rsplit("/")[-1]
        yield path, {p["name"] for p in parameters}, given, needed, schema


def check_description(server):
    """every parameter that is described is taken, and nothing else"""
    known = set(re.findall(r"\w+", json.loads(server.get("/api/frob")[1])["error"].split("/api/")[1]))
    expect("paths", {path.removeprefix("/api/") for path in API["paths"]}, known)
    for path, names, given, needed, _ in described():
        for asked in [given, needed]:
            status, text = server.get(path, **asked)
            expect(f"{path} {asked}: {text}", status, 200)
        for name in names - given.keys():
            expect(f"{path} knows {name}", "has no parameter" in server.get(path, **{name: "1"})[1], False)
        status, text = server.get(path, **needed, frob=1)
        expect(f"{path} frob", (status, "has no parameter frob" in text), (400, True))


def check_schemas(server):
    """answers have the form that is described"""
    import jsonschema
    for path, _, given, needed, name in described():
        schema = {"$ref": f"#/components/schemas/{name}", "components": API["components"]}
        for asked in [given, needed]:
            for fault in jsonschema.Draft202012Validator(schema).iter_errors(json.loads(server.get(path, **asked)[1])):
                failures.append(f"{path} {asked}: {fault.json_path}: {fault.message}")


def collect(folder, store):
    """a collector that has metered what exporters have sent, and what they claim"""
    (folder / "policies").mkdir()
    port = free_port(socket.SOCK_DGRAM)
    collector = Program(folder, "listen", "listen", "--plugin", PLUGIN, "--config", folder / "policies", "--bind",
                        "127.0.0.1", "--port", f"netflow={port}", "--interval", "1", "--store", store,
                        "--metrics-exporters", "2")
    said = subprocess.run([FLOWGEN, "--format", "netflow9", "--records", "20000", "--hosts", "300", "--exporters", "3",
                           "--rate", "2000", "--send", f"127.0.0.1:{port}"], check=True, capture_output=True,
                          text=True).stdout
    claims = {name: int(value) for name, value in re.findall(r"^(\w+):? (\d+)$", said, re.M)}
    check_metrics(collector, claims)
    return collector, claims


def answers(folder, store, collector, claims):
    expect("live", json.loads(collector.get("/api/status")[1])["live"], True)
    now = int(time.time())
    check_answers(collector, store, {"from": f"@{now - 7200}", "to": f"@{now - 3600}"})
    check_taken_port(folder, collector)
    text = collector.get("/metrics")[1]
    expect("exit status of listen", collector.end(), 0)
    check_dashboards(text, store)

    server = Program(folder, "serve", "serve", "--store", store)
    status = json.loads(server.get("/api/status")[1])
    check_answers(server, store, {"from": f"@{status['from']}", "to": f"@{status['to']}"})
    total = json.loads(server.get("/api/top", group="totals", **{"from": "-1d"})[1])["rows"][0]
    expect("bytes", (total["bytes"], total["packets"]), (claims["bytes"], claims["packets"]))
    check_description(server)
    expect("metrics of serve", server.get("/metrics")[0], 404)
    expect("exit status of serve", server.end(), 0)


def main(folder):
    store = folder / "store"
    collector, claims = collect(folder, store)
    if WHAT == "answers":
        answers(folder, store, collector, claims)
    elif WHAT == "schemas":
        collector.end()
        check_schemas(Program(folder, "serve", "serve", "--store", store))
    else:
        check_prometheus(folder, collector, claims)


with tempfile.TemporaryDirectory() as work:
    main(pathlib.Path(work))
print("\n".join(failures) or "answers and metrics agree with what was claimed")
sys.exit(1 if failures else 0)
