#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""files_test.py FLOWHOST PLUGIN FLOWGEN: pipes, devices and links where flowhost expects a file. It says so and goes on
or ends; it neither hangs nor writes to what a link leads to.

Exit status: 0 as it should be, 1 not.
"""
import contextlib
import json
import os
import pathlib
import signal
import sqlite3
import subprocess
import sys
import tempfile

FLOWHOST, PLUGIN, FLOWGEN = sys.argv[1:]
LISTENS = "datagrams of anybody are metered"
POLICY = "NetflowCounterPolicy.xml"
TEXT = "somebody else's\n"

STATE = ("--state", "state")
STORE = ("--store", "store", "--state", "state")
TO_NOBODY = ("--clickhouse", "http://u@127.0.0.1:9/flows", "--state", "state")

TABLES = {"tables": "CREATE TABLE hosts (name, bucket)", "report": "PRAGMA application_id=1179406928; CREATE TABLE hosts (bytes)",
          "buckets": "CREATE TABLE hosts (bucket, bytes); CREATE INDEX hosts_by_bucket ON hosts (bucket)"}

# name, what stands where (pipe, link, loose link, text, or one of the tables), options, exit status, what is said
CASES = (
    ("JSON to a pipe", {"out": "pipe"}, ("--json", "out"), 1, "out cannot be written: it is a pipe that nobody reads"),
    ("JSON to a link", {"out": "link"}, ("--json", "out"), 1, "out cannot be written: it is a symbolic link"),
    ("JSON beside a link", {"out.part": "link"}, ("--json", "out"), 0, ""),
    ("JSON to a link to nothing", {"out": "loose link"}, ("--json", "out"), 1, "out cannot be written: "),
    ("JSON to no device", {}, ("--json", "/dev/null"), 0, ""),
    ("JSON to standard output", {}, ("--json", "/dev/stdout"), 0, '{"captures"'),
    ("CSV to a pipe", {"out/books.csv": "pipe"}, ("--csv", "out"), 1, "it is a pipe that nobody reads"),
    ("CSV to a link", {"out/books.csv": "link"}, ("--csv", "out"), 1, "it is a symbolic link"),
    ("a database in a pipe", {"out": "pipe"}, ("--sqlite", "out"), 1, "database out cannot be written: it is no regular file"),
    ("a database behind a link", {"out": "link"}, ("--sqlite", "out"), 1, "database out cannot be written: it is no regular"),
    ("buckets in a pipe", {"out": "pipe"}, ("--sqlite", "out", *STATE), 1, "database out cannot be written: it is no regular file"),
    ("buckets in no folder", {}, ("--sqlite", "folder/out", *STATE), 1, "database folder/out cannot be written: "),
    ("buckets in no database", {"out": "text"}, ("--sqlite", "out", *STATE), 1, "database out cannot be written: file is not a database"),
    ("buckets beside tables of others", {"out": "tables"}, ("--sqlite", "out", *STATE), 1, "database out holds tables of others"),
    ("buckets in a report", {"out": "report"}, ("--sqlite", "out", *STATE), 1, "database out holds a report"),
    ("buckets beside others", {"out": "buckets"}, ("--sqlite", "out", *STATE), 0, ""),
    ("a trace to a pipe", {"out": "pipe"}, ("--trace", "out"), 1, "trace file out cannot be written: it is a pipe that"),
    ("a trace to a link", {"out": "link"}, ("--trace", "out"), 1, "trace file out cannot be written: it is a symbolic link"),
    ("a policy from a pipe", {f"policies/{POLICY}": "pipe"}, (), 1, f"{POLICY} cannot be read: it is no regular file"),
    ("a policy beside a link", {f"policies/{POLICY}.new": "link"}, (), 0, "wrote the default policy"),
    ("templates in a pipe", {"state/templates": "pipe"}, ("--state", "state"), 1, "state/templates cannot be read: it is no"),
    ("templates beside a link", {"state/templates.part": "link"}, ("--state", "state"), 0, ""),
    ("a lock in a pipe", {"state/lock": "pipe"}, ("--state", "state"), 1, "kept in state: it is no regular file"),
    ("names from a pipe", {"names": "pipe"}, (*STORE, "--http", "127.0.0.1:0", "--names", "names"), 0, "names cannot be read: it is no regular file; nothing"),
    ("a database of places in a pipe", {"geo": "pipe"}, (*STORE, "--http", "127.0.0.1:0", "--geo", "geo"), 0, "geo: it is no regular file; nothing is shown over HTTP"),
    ("a password from a pipe", {"pass": "pipe"}, (*TO_NOBODY, "--clickhouse-password-file", "pass"), 2, "pass cannot be read: it is no"),
    ("certificates in a pipe", {"ca": "pipe"}, (*TO_NOBODY, "--clickhouse-ca", "ca"), 2, "ca cannot be read: it is no regular file"),
    ("a store in a pipe", {"store/counters.sqlite": "pipe"}, STORE, 1, "counters.sqlite: it is no regular file"),
    ("a store behind a link", {"store/counters.sqlite": "loose link"}, STORE, 1, "counters.sqlite: it is no regular file"),
    ("the running hour beside a link", {"store/running-hour.new": "link"}, STORE, 0, ""),
    ("the running day beside a pipe", {"store/running-day.new": "pipe"}, STORE, 0, ""),
    ("a lock behind a link", {"state/lock": "link"}, ("--state", "state"), 1, "kept in state: it is no regular file"),
)


def place(folder, name, kind):
    path = folder / name
    path.parent.mkdir(exist_ok=True)
    if kind == "pipe":
        os.mkfifo(path)
    elif kind == "text":
        path.write_text(TEXT)
    elif kind in TABLES:
        with contextlib.closing(sqlite3.connect(path)) as database:
            database.executescript(TABLES[kind])
    else:
        path.symlink_to(folder / ("nothing" if kind == "loose link" else "victim"))


def run(folder, options):
    common = ["--plugin", PLUGIN, "--config", "policies", *options]
    if "--state" not in options:
        return subprocess.run([FLOWHOST, "replay", *common, "capture.pcap"], cwd=folder, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=60)
    collector = subprocess.Popen([FLOWHOST, "listen", *common, "--bind", "127.0.0.1", "--port", "netflow=39381"], cwd=folder,
                                 stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    said = ""
    for line in collector.stdout:
        said += line
        if LISTENS in line:
            # As timeout(1) does it: the process, then its group.
            collector.send_signal(signal.SIGTERM)
            collector.send_signal(signal.SIGTERM)
    return subprocess.CompletedProcess([], collector.wait(60), said, "")


def check(folder, name, things, options, status, text):
    (folder / "victim").write_text(TEXT)
    subprocess.run([FLOWGEN, "--records", "30", "--hosts", "5", "--write", folder / "capture.pcap"], check=True,
                   stdout=subprocess.DEVNULL)
    for thing, kind in things.items():
        place(folder, thing, kind)
    before = {thing: (folder / thing).read_bytes() for thing, kind in things.items() if kind in ("text", *TABLES)}
    ended = run(folder, options)
    said = ended.stdout + ended.stderr
    if (folder / "victim").read_text() != TEXT or (folder / "nothing").exists():
        return f"{name}: somebody else's file was written"
    if ended.returncode != status or text not in said:
        return f"{name}: status {ended.returncode} and {said[-600:]!r}"
    if status != 0 and "--sqlite" in options and (LISTENS in said or any((folder / thing).read_bytes() != was for thing, was in before.items())):
        return f"{name}: refused too late"
    if options == ("--json", "/dev/stdout"):
        json.loads(ended.stdout[ended.stdout.index('{"captures"'):])
    if status == 0 and "--state" in options and (folder / "state" / "lock").stat().st_mode & 0o077:
        return f"{name}: others can lock the state"
    return None


def main():
    failures = []
    for case in CASES:
        with tempfile.TemporaryDirectory() as folder:
            failures.append(check(pathlib.Path(folder), *case))
    print("\n".join(filter(None, failures)) or "pipes and links are refused, and devices written")
    sys.exit(any(failures))


main()
