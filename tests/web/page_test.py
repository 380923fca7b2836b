#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""page_test.py FLOWHOST PLUGIN FLOWGEN CHROMEDRIVER CHROMIUM: the page in a browser: its numbers against the store's,
dragging, keys, filters, strangers' texts, dark and narrow layouts, and a report as a file."""
import atexit
import json
import math
import pathlib
import re
import sqlite3
import subprocess
import sys
import tempfile
import urllib.parse
from datetime import datetime

from browser import Browser

FLOWHOST, PLUGIN, FLOWGEN, CHROMEDRIVER, CHROMIUM = sys.argv[1:6]
TABLES = ("hosts", "applications", "interfaces", "as")
EVIL = "<script>window.evil = 1</script><img src=x onerror='window.evil = 1'>\u202emoc.live\u202c"
failures = []


def expect(what, seen, wanted):
    if seen != wanted:
        failures.append(f"{what}: {str(seen)[:400]}, not {str(wanted)[:400]}")


def quietly(*words):
    return subprocess.run([str(word) for word in words], check=True, capture_output=True, text=True,
                          env={"HOME": str(folder), "TZ": "UTC", "TMPDIR": str(folder)}).stdout


def made_store(name, *options):
    capture, store = folder / f"{name}.pcap", folder / name
    quietly(FLOWGEN, "--exporters", "3", "--hosts", "400", "--realistic", *options, "--write", capture)
    quietly(FLOWHOST, "replay", "--plugin", PLUGIN, "--config", folder / "policies", "--top", "0",
            "--store", store, capture)
    return store


def write(path, *statements):
    database = sqlite3.connect(path)
    for sql, *values in statements:
        database.execute(sql, values)
    database.commit()
    database.close()


def put_evil_texts(store):
    """labels, keys and texts of flows as the worst exporter may send them"""
    long = EVIL + "\u05d0" * 30_000
    rows = [("INSERT OR REPLACE INTO labels VALUES ('applications', '443', ?, '')", long),
            ("INSERT OR REPLACE INTO labels VALUES ('flowgens', '192.0.2.1', ?, '')", EVIL)]
    rows += [(f"INSERT INTO application_tags_{tier} (bucket, key, keys, bound, bytes, packets) "
              f"SELECT bucket, ?, 1, 0, bytes, packets FROM totals_{tier} WHERE key = 'all'", long)
             for tier in ("minute", "hour", "day")]
    write(store / "counters.sqlite", *rows)
    for path in (store / "flows").glob("*.sqlite"):
        write(path, ("INSERT OR REPLACE INTO texts VALUES (77, ?)", EVIL), ("UPDATE flows SET app = 77",))


class Served:
    """flowhost serve over a store"""

    def __init__(self, store):
        self.program = subprocess.Popen([FLOWHOST, "serve", "--store", store, "--http", "127.0.0.1:0"],
                                        stderr=subprocess.PIPE, text=True)
        atexit.register(self.program.kill)
        for line in self.program.stderr:
            found = re.search(r"http://[\d.]+:\d+/", line)
            if found:
                self.url = found[0]
                break

    def end(self):
        self.program.terminate()
        expect("end of the server", self.program.wait(20), 0)


def ask(store, span, *words):
    """the store's own answer"""
    return json.loads(quietly(FLOWHOST, *words, "--json", "--store", store, "--from", f"@{span[0]}",
                              "--to", f"@{span[1]}"))


class Page:
    def __init__(self, browser):
        self.browser = browser
        self.times = 0

    def open(self, url, state=""):
        self.browser.open("about:blank")
        self.browser.open(url + state)
        self.times = 0
        self.settle("it is shown")

    def settle(self, what):
        """waits until everything that was asked since the last time is shown"""
        self.times = self.browser.until(
            f"Number(document.body.dataset.shown ?? 0) > {self.times} && !document.querySelector("
            "'#tables .loading, #chart-panel.loading') && Number(document.body.dataset.shown)", what)

    def span(self):
        said = urllib.parse.parse_qs(urllib.parse.urlparse(self.browser.url()).fragment)
        return [int(datetime.fromisoformat(said[name][0].replace("Z", "+00:00")).timestamp())
                for name in ("from", "to")]

    def table(self, name):
        return self.browser.run("""return [...document.querySelectorAll(`#table-${arguments[0]} tbody tr`)].map(
            (row) => [(row.querySelector("bdi") ?? row.querySelector(".key")).textContent, row.children[2].title])""",
                                name)

    def text(self, selector):
        return self.browser.run("return document.querySelector(arguments[0]).innerText", selector)


def rows_of(answer, key=lambda row: row["key"]):
    """as a table of the page has them"""
    rows = [[key(row), f"{row['bytes']:,} bytes"] for row in answer["rows"]]
    rows.append([answer["total"]["key"], f"{answer['total']['bytes']:,} bytes"])
    return [["others", value] if name.startswith("(others)") else [name, value] for name, value in rows]


def check_tables(what, page, store, span):
    for name in TABLES:
        expect(f"{what}: {name}", page.table(name), rows_of(ask(store, span, "top", name)))


def check_chart(page, store, span):
    """the table behind the chart has what every key had step by step"""
    page.browser.run("document.querySelector('#chart-table').open = true")
    page.browser.until("document.querySelector('#chart-table td')", "the chart's table")
    seen = page.browser.run("""return [...document.querySelectorAll("#chart-table tbody tr")].map(
        (row) => [...row.querySelectorAll("td")].map((cell) => cell.textContent))""")
    answer = ask(store, span, "top", "applications", "--step", "1m")
    lines = [row["line"] for row in answer["rows"]]
    wanted = [[f"{math.floor(line[i] * 8 / 60 + 0.5):,}" for line in lines] for i in range(len(lines[0]))]
    expect("chart", seen, wanted)


def check_losses(page, store, span):
    """what was lost is told beside the chart, and how well exporters are below it"""
    lost = [f"lost on the way: {row['count']:,} {row['unit']}" for row in ask(store, span, "losses")["rows"]
            if row["what"].startswith("on the way")]
    told = page.browser.run("return [...document.querySelectorAll('#marks .loss')].map((each) => each.innerText)")
    expect("losses", (sorted(text.split(" (")[0] for text in told), len(lost)), (sorted(lost), 3))
    rows = page.browser.run("""return [...document.querySelectorAll("#exporters tbody tr")].map(
        (row) => [...row.cells].map((cell) => cell.innerText))""")
    headings = page.browser.run(
        "return [...document.querySelectorAll('#exporters thead th')].map((cell) => cell.innerText)")
    clock = headings.index("Clock")
    for row, shown in zip(ask(store, span, "exporters")["rows"], rows, strict=True):
        offset = row["clock_offset_ms"]
        seen = float(shown[clock].rstrip(" s").replace("\u2212", "-"))
        expect("clock", (shown[0], round(seen, 1)), (row["key"], round(offset / 1000, 1)))


def check_numbers(page, url, store):
    page.open(url)
    span = [1700000000 // 60 * 60, 1700000000 // 60 * 60 + 41 * 60]
    check_tables("all of it", page, store, span)
    check_chart(page, store, span)
    check_losses(page, store, span)


def check_spans(page, store):
    page.browser.drag("#chart", 0.4, 0.7)
    page.settle("the part that was dragged")
    dragged = page.span()
    expect("length of what was dragged", 8 <= (dragged[1] - dragged[0]) / 60 <= 16, True)
    check_tables("dragged", page, store, dragged)
    page.browser.keys("#chart", "shift", "right", "right", "right", "right", "right", "right",
                      "right", "right", "right", "right", "right", "right")
    page.browser.keys("#chart", "enter")
    page.settle("the part that was chosen by keys")
    chosen = page.span()
    expect("what keys choose", (chosen[0], chosen[1] < dragged[1]), (dragged[0], True))
    check_tables("chosen by keys", page, store, chosen)
    page.browser.back()
    page.settle("the span before")
    expect("back", page.span(), dragged)
    check_tables("back", page, store, dragged)


def check_filters(page, store):
    span = page.span()
    host = page.table("hosts")[0][0]
    page.browser.click("#table-hosts button.key")
    page.settle("the host")
    expect("heading of a host", page.text("#view-heading"), f"Host {host}")
    flows = ask(store, span, "flows", f"host {host}", "--group-by", "service")
    expect("applications of a host", page.table("applications"), rows_of(flows))
    interfaces = ask(store, span, "flows", f"host {host}", "--group-by", "exporter,interface")
    expect("interfaces of a host", page.table("interfaces"), rows_of(
        interfaces, lambda row: row["key"] if row["key"].startswith("(") or "interface" not in row
        else f"{row['exporter']} if {row['interface']}"))
    page.browser.click("#table-applications button.key")
    page.settle("an application of the host")
    port = flows["rows"][0]["key"]
    expect("filter", page.browser.run("return document.querySelector('#filter').value"), f"host {host} and port {port}")
    page.browser.run("document.querySelector('#flows').scrollIntoView()")
    page.browser.until("!document.querySelector('#flows.loading')", "flows")
    largest = ask(store, span, "flows", f"host {host} and port {port}")["rows"][0]["bytes"]
    expect("largest flow", page.browser.run("return document.querySelector('#flows tbody tr').children[5].title"),
           f"{largest:,} bytes")
    expect("complaints", page.browser.complaints(), [])
    page.browser.run("""document.querySelector("#filter").value = "host 10.0.0.5 nad port 443";
                        document.querySelector("#filter-form").requestSubmit()""")
    page.browser.until("!document.querySelector('#filter-error').hidden", "what is wrong with the filter")
    expect("error of a filter", page.browser.run("return document.querySelector('#filter-error').textContent").splitlines()[-1].split(),
           ["^^^", "expected:", "and,", "or,", "or", "the", "end"])
    page.browser.complaints()  # of the answer with status 400


def check_evil_texts(page, url):
    for state in ("", "#by=application_tags", f"#filter={urllib.parse.quote('port 443')}&by=application_tags"):
        page.open(url, state)
        page.browser.run("document.querySelector('#flows').scrollIntoView()")
        page.browser.until("!document.querySelector('#flows.loading')", "flows")
        expect(f"evil texts {state}: scripts and images", page.browser.run(
            "return [window.evil ?? null, document.querySelectorAll('img, main script').length]"), [None, 0])
        texts = page.browser.run("""return [...document.querySelectorAll("bdi")].map((text) => text.textContent)
            .filter((text) => text.includes("<script>"))""")
        expect(f"evil texts {state}: shown as text", len(texts) > 0, True)
        expect(f"evil texts {state}: cut", max((len(text) for text in texts), default=0) < 400, True)
        expect(f"evil texts {state}: overflow", overflow(page), 0)
    page.open(url)
    expect("the whole of a long text", page.browser.run(
        "return Math.max(...[...document.querySelectorAll('bdi')].map((text) => text.title.length)) > 30000"), True)


def overflow(page):
    return page.browser.run("return document.documentElement.scrollWidth - document.documentElement.clientWidth")


# Texts whose contrast with what is behind them is below 4.5 to 1.
CONTRAST = """
const light = (text) => {
  const [r, g, b] = text.match(/[\\d.]+/g).map(Number).map((value) => {
    const part = value / 255;
    return part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4;
  });
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
};
const probe = document.body.appendChild(document.createElement("i"));
probe.className = "swatch";
const behind = (element) => {
  for (let at = element; at; at = at.parentElement) {
    const style = getComputedStyle(at);
    if (style.backgroundImage.startsWith("linear")) return style.backgroundImage.match(/rgb\\([^)]*\\)/)[0];
    if (!/rgba\\(.*, 0\\)/.test(style.backgroundColor)) return style.backgroundColor;
  }
  return "rgb(255, 255, 255)";
};
probe.remove();
const found = [];
for (const element of document.querySelectorAll("body *")) {
  const hasText = [...element.childNodes].some((node) => node.nodeType === 3 && node.data.trim());
  if (!hasText || !element.checkVisibility() || element.disabled || element.closest(".unseen, option, script")) continue;
  const [a, b] = [light(getComputedStyle(element).color), light(behind(element))].sort((x, y) => y - x);
  const ratio = (a + 0.05) / (b + 0.05);
  if (ratio < 4.5) found.push(`${element.textContent.slice(0, 20)} ${ratio.toFixed(2)}`);
}
return found.slice(0, 10);
"""


def check_layouts(page, url):
    for width, height in ((1440, 1000), (1000, 800), (390, 844), (320, 640)):
        for dark in (False, True):
            page.browser.layout(width, height, dark)
            page.open(url, "#by=hosts")
            what = f"{width} wide{', dark' if dark else ''}"
            expect(f"{what}: overflow", overflow(page), 0)
            expect(f"{what}: contrast", page.browser.run(CONTRAST), [])
    page.browser.layout(1440, 1000, False)


def check_names_of_controls(page, url):
    """whoever hears the page is told what every control is"""
    page.open(url, "#filter=tcp+and+port+443")
    roles = {"button", "combobox", "textbox", "searchbox", "link", "img", "table"}
    nameless = [node["role"]["value"] for node in page.browser.tell("Accessibility.getFullAXTree")["nodes"]
                if not node["ignored"] and node["role"]["value"] in roles and not node.get("name", {}).get("value")]
    expect("controls without a name", nameless, [])


def check_new_minutes(page, store, url):
    """what is new in the store shows by itself"""
    page.open(url)
    before = page.table("hosts")
    quietly(FLOWHOST, "replay", "--plugin", PLUGIN, "--config", folder / "policies", "--top", "0",
            "--store", store, folder / "later.pcap")
    page.settle("new minutes")
    expect("something new", page.table("hosts") != before, True)


def check_states(page, store):
    empty = folder / "empty"
    (folder / "none.pcap").write_bytes(bytes.fromhex("d4c3b2a1020004000000000000000000ffff000001000000"))
    quietly(FLOWHOST, "replay", "--plugin", PLUGIN, "--config", folder / "policies", "--store", empty, folder / "none.pcap")
    served = Served(empty)
    page.browser.open(served.url)
    page.browser.until("!document.querySelector('#empty').hidden", "the text for an empty store")
    expect("where routers export to", "2055" in page.text("#empty"), True)
    served.end()
    served = Served(store)
    page.open(served.url)
    served.end()
    page.browser.until("document.querySelector('#trouble').innerText.includes('Is flowhost running?')",
                       "that the server has gone")


def check_report(page, store):
    path = folder / "report.html"
    quietly(FLOWHOST, "report", "--store", store, "--from", "@1699999980", "--to", "@1700002440", "-o", path)
    page.open(path.as_uri())
    check_tables("report", page, store, [1699999980, 1700002440])
    host = page.table("hosts")[0][0]
    page.browser.drag("#chart", 0.4, 0.7)
    page.settle("a part of the report")
    # Of a part of the time it has the keys that are the largest of all of it.
    served = {row["key"]: row["bytes"] for row in ask(store, page.span(), "top", "hosts", "--top", "400")["rows"]}
    for key, value in page.table("hosts")[:3]:
        expect(f"a part of the report: {key}", value, f"{served[key]:,} bytes")
    page.open(path.as_uri(), f"#filter=host+{host}&by=direction")
    expect("host in a report", page.text("#view-heading"), f"Host {host}")
    expect("evil texts in a report", page.browser.run("return window.evil ?? null"), None)
    expect("report: complaints", page.browser.complaints(), [])


def main():
    store = made_store("store", "--format", "ipfix", "--records", "30000", "--minutes", "40", "--drop-every", "50")
    other = made_store("other", "--format", "netflow9", "--records", "20000", "--minutes", "41")
    quietly(FLOWGEN, "--exporters", "3", "--hosts", "400", "--records", "30000", "--minutes", "50", "--write",
            folder / "later.pcap")
    served, evil = Served(store), Served(other)
    browser = Browser(CHROMEDRIVER, CHROMIUM, str(folder))
    try:
        page = Page(browser)
        browser.layout(1440, 1000, False)
        check_numbers(page, served.url, store)
        check_spans(page, store)
        check_filters(page, store)
        check_names_of_controls(page, served.url)
        put_evil_texts(other)
        check_evil_texts(page, evil.url)
        check_layouts(page, evil.url)
        check_new_minutes(page, store, served.url)
        check_report(page, other)
        expect("complaints", browser.complaints(), [])
        ours = (served.url, evil.url, folder.as_uri(), "data:", "about:")
        expect("requests elsewhere", [
            url for url in browser.asked() if not url.startswith((*ours, "chrome:", "chrome-untrusted:"))], [])
        served.end()
        evil.end()
        check_states(page, other)
    except RuntimeError as error:
        failures.append(str(error))
    finally:
        browser.close()


with tempfile.TemporaryDirectory() as name:
    folder = pathlib.Path(name)
    main()
print("\n".join(failures) or "the page shows what the store has")
sys.exit(1 if failures else 0)
