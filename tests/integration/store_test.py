#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""store_test.py FLOWHOST PLUGIN FLOWGEN [KILLS]: stores as those find them who know only their tables: against what the exporter
claims, after restarts and kills in the middle of an hour, and as another user."""
import contextlib
import json
import os
import pathlib
import random
import resource
import shutil
import signal
import socket
import sqlite3
import struct
import subprocess
import sys
import tempfile
import time

FLOWHOST, PLUGIN, FLOWGEN = sys.argv[1:4]
KILLS = int(sys.argv[4]) if len(sys.argv) > 4 else 4
failures = []


def expect(what, seen, wanted):
    if seen != wanted:
        failures.append(f"{what}: {seen}, not {wanted}")


def make(folder, name, minutes, *options):
    capture = folder / f"{name}.pcap"
    said = subprocess.run([FLOWGEN, "--exporters", "4", "--hosts", "600", "--minutes", str(minutes),
                           "--realistic", *options, "--write", capture], check=True, capture_output=True, text=True).stdout
    return capture, {line.split()[0]: int(line.split()[1]) for line in said.splitlines() if line.split()[1].isdigit()}


def replay(folder, store, *captures):
    return [FLOWHOST, "replay", "--plugin", PLUGIN, "--config", folder / "policies", "--top", "0", "--store", store,
            "--store-keys", "minute=30", "--store-keys", "hour=100", *captures]


def run(*words):
    subprocess.run(replay(*words), check=True, stdout=subprocess.DEVNULL)


def ask(path, sql):
    with sqlite3.connect(f"file:{path}?mode=ro", uri=True) as database:
        return database.execute(sql).fetchall()


def counters(store, sql):
    return ask(store / "counters.sqlite", sql)


def flows_by_minute(store):
    found = {}
    for path in sorted((store / "flows").glob("*.sqlite")):
        found |= {bucket: row for bucket, *row in ask(path, "SELECT bucket, sum(bytes_both), sum(packets + packets_rev), "
                                                      "sum(records), count(*) FROM flow_list GROUP BY 1")}
    return found


def minutes_of(store):
    return {bucket: row for bucket, *row in
            counters(store, "SELECT bucket, bytes, packets, records, flows FROM buckets WHERE tier = 'minute' AND records")}


def check_sums(what, store, tiers=("minute", "hour", "day")):
    """every tier and the flows have the same traffic, minute by minute"""
    minutes = minutes_of(store)
    expect(f"{what}: flows of minutes", flows_by_minute(store), minutes)
    for tier in tiers:
        traffic = counters(store, f"SELECT sum(bytes), sum(records) FROM buckets WHERE tier = '{tier}'")
        expect(f"{what}: {tier}", traffic, [(sum(m[0] for m in minutes.values()), sum(m[2] for m in minutes.values()))] if minutes else
               [(None, None)])
        for group, times in (("protocols", 1), ("hosts", 2), ("flowintfs", 2)):
            total = counters(store, f"SELECT sum(bytes) FROM {group} WHERE tier = '{tier}'")[0][0]
            expect(f"{what}: {group} by {tier}", total, times * traffic[0][0] if minutes else None)


def check_claims(store, tier, claimed):
    """a tier has what the exporters claim"""
    sums = counters(store, f"SELECT sum(bytes), sum(packets), sum(records) FROM buckets WHERE tier = '{tier}'")
    expect(f"{store.name}: claimed", sums, [(claimed["bytes"], claimed["packets"], claimed["records"])])


def rows_of_hour(store, group):
    return counters(store, f"SELECT * FROM {group}_hour ORDER BY bucket, key")


def check_hosts(what, store):
    """every hour has its largest hosts, as its flows have them"""
    for path in sorted((store / "flows").glob("*.sqlite")):
        hour = ask(path, "SELECT value FROM meta WHERE name = 'hour'")[0][0]
        truth = ask(path, "SELECT host, sum(bytes), 0 FROM (SELECT src AS host, bytes_both AS bytes FROM flow_list UNION ALL "
                          "SELECT dst, bytes_both FROM flow_list) GROUP BY 1 ORDER BY 2 DESC, 1 LIMIT 100")
        seen = counters(store, "SELECT key, bytes, bound FROM hosts_hour WHERE key != '(others)' AND bucket = "
                               f"{hour} ORDER BY bytes DESC, key")
        expect(f"{what}: hosts of {path.stem}", seen, truth)


def test_early(folder):
    """lanes hand out flows before the minute ends where they hold many"""
    capture, claimed = make(folder, "early", 1, "--records", "450000", "--format", "netflow9")
    run(folder, folder / "early", capture)
    check_sums("early", folder / "early")
    check_claims(folder / "early", "minute", claimed)


def test_whole(folder):
    capture, claimed = make(folder, "whole", 130, "--records", "40000", "--format", "mixed")
    run(folder, folder / "whole", capture)
    check_sums("whole", folder / "whole")
    check_claims(folder / "whole", "hour", claimed)
    check_hosts("whole", folder / "whole")


def test_restart(folder):
    """two runs, the second from the middle of an hour on, leave what one leaves"""
    whole, _ = make(folder, "one", 90, "--records", "20000")
    data = whole.read_bytes()
    at, cut = 24, None
    while at < len(data):
        seconds, _, size = (int.from_bytes(data[at + i:at + i + 4], "little") for i in (0, 4, 8))
        if cut is None and seconds >= 1700000000 + 20 * 60:
            cut = at
        at += 16 + size
    parts = [folder / "first.pcap", folder / "second.pcap"]
    parts[0].write_bytes(data[:cut])
    parts[1].write_bytes(data[:24] + data[cut:])
    run(folder, folder / "one", whole)
    for part in parts:
        run(folder, folder / "two", part)
    check_sums("restarted", folder / "two")
    for group in ("hosts", "applications", "flowintfs"):
        expect(f"restarted: {group}", rows_of_hour(folder / "two", group), rows_of_hour(folder / "one", group))
    # What is known of the running hour is gone: it is had from the flows.
    rebuild(folder, "three", parts, "running-*")
    for group in ("hosts", "applications", "flowintfs", "as_numbers"):
        expect(f"from flows: {group}", rows_of_hour(folder / "three", group), rows_of_hour(folder / "one", group))
    # These are gone as well: bounds, but nothing wrong.
    store = rebuild(folder, "four", parts, "running-*", "flows/*")
    exact = {row[:2]: row[4] for row in rows_of_hour(folder / "one", "hosts")}
    known = [row for row in rows_of_hour(store, "hosts") if row[:2] in exact and row[1] != "(others)"]
    expect("from minutes: bounds", (any(row[3] for row in known), [row for row in known if not row[4] <= exact[row[:2]] <= row[4] + row[3]]),
           (True, []))
    expect("from minutes: told", counters(store, "SELECT rebuilt FROM buckets WHERE tier = 'hour'"), [(1,), (0,)])


def rebuild(folder, name, parts, *lost):
    """two runs, between which files of the store are lost"""
    store = folder / name
    run(folder, store, parts[0])
    for path in (path for each in lost for path in store.glob(each)):
        path.unlink()
    run(folder, store, parts[1])
    traffic = [counters(folder / each, "SELECT sum(bytes), sum(packets) FROM buckets WHERE tier = 'hour'") for each in ("one", name)]
    expect(f"{name}: traffic", traffic[1], traffic[0])
    return store


def later(capture, hours):
    """the capture as it would be so many hours later"""
    data = bytearray(capture.read_bytes())
    at = 24
    while at < len(data):
        seconds, _, length, _ = struct.unpack_from("<IIII", data, at)
        struct.pack_into("<I", data, at, seconds + hours * 3600)
        at += 16 + length
    moved = capture.with_name("later.pcap")
    moved.write_bytes(data)
    return moved


def test_kills(folder):
    """after each kill the store opens, no bucket is half, and what is missing is a gap"""
    capture, _ = make(folder, "long", 600, "--records", "60000")
    store = folder / "killed"
    random.seed(KILLS)
    for number in range(KILLS):
        moved = later(capture, 11 * number)
        process = subprocess.Popen(replay(folder, store, moved), stdout=subprocess.DEVNULL)
        time.sleep(random.uniform(0.1, 0.9))
        process.kill()
        process.wait()
        # What one database has and the other has not goes at the next start: here with a capture of nothing.
        (folder / "nothing.pcap").write_bytes(capture.read_bytes()[:24])
        run(folder, store, folder / "nothing.pcap")
        expect(f"killed {number}: sound", counters(store, "PRAGMA integrity_check"), [("ok",)])
        check_sums(f"killed {number}", store, tiers=("minute",))
    run(folder, store, later(capture, 11 * KILLS))
    check_sums("killed", store)
    check_hosts("killed", store)
    ends = [how for how, in counters(store, "SELECT how FROM runs ORDER BY run")]
    expect("killed: runs", (ends[-1], set(ends[:-1]) - {"killed", "end"}), ("end", set()))
    gaps = counters(store, "SELECT count(*) FROM gaps WHERE reason = 'killed'")[0][0]
    expect("killed: gaps", gaps, ends.count("killed"))
    print(f"{KILLS} kills, {ends.count('killed')} of them in the middle of a run")


def stop(process):
    """all of its threads, or it has ended; on a busy machine some go on for a while"""
    process.send_signal(signal.SIGSTOP)
    os.waitid(os.P_PID, process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)


def test_copies(folder):
    """what the disk has at any moment of a run is a store: it opens, and no bucket is half; nobody else writes there meanwhile"""
    capture, _ = make(folder, "copied", 300, "--records", "30000")
    (folder / "nothing.pcap").write_bytes(capture.read_bytes()[:24])
    store, copies = folder / "original", []
    random.seed(KILLS)
    process = subprocess.Popen(replay(folder, store, capture), stdout=subprocess.DEVNULL)
    while process.poll() is None and len(copies) < KILLS:
        time.sleep(random.uniform(0.05, 0.4))
        stop(process)
        if (store / "counters.sqlite").exists():
            copies.append(folder / f"copy-{len(copies)}")
            shutil.copytree(store, copies[-1])
            if len(copies) == 1 and process.poll() is None:
                second = subprocess.run(replay(folder, store, folder / "nothing.pcap"), capture_output=True, text=True)
                expect("second writer", (second.returncode, "is being written by another process" in second.stderr), (1, True))
        process.send_signal(signal.SIGCONT)
    expect("original", process.wait(), 0)
    for copy in copies:
        run(folder, copy, folder / "nothing.pcap")
        expect(f"{copy.name}: sound", counters(copy, "PRAGMA integrity_check"), [("ok",)])
        check_sums(copy.name, copy, tiers=("minute",))


def test_full(folder):
    """files that cannot grow are told, and what was written before stays whole"""
    capture, _ = make(folder, "full", 60, "--records", "60000")
    store = folder / "full"

    def limit():
        resource.setrlimit(resource.RLIMIT_FSIZE, (1_000_000, resource.RLIM_INFINITY))
    done = subprocess.run(replay(folder, store, capture), stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                          preexec_fn=limit)
    expect("full", (done.returncode, "the store cannot be written" in done.stderr), (1, True))
    (folder / "nothing.pcap").write_bytes(capture.read_bytes()[:24])
    run(folder, store, folder / "nothing.pcap")
    expect("full: sound", counters(store, "PRAGMA integrity_check"), [("ok",)])


def test_removed(folder):
    """what is removed while it is written is told, and what comes later is in another one, sound and without anything of the first"""
    capture, _ = make(folder, "removed", 300, "--records", "30000")
    removals = {"counters": lambda store: (store / "counters.sqlite").unlink(),
                "flows": lambda store: [path.unlink() for path in (store / "flows").glob("*.sqlite")],
                "all": shutil.rmtree}
    for name, remove in removals.items():
        store = folder / f"removed-{name}"
        process = subprocess.Popen(replay(folder, store, capture), stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        written = 0
        while process.poll() is None and written < 60:
            time.sleep(0.05)
            with contextlib.suppress(sqlite3.Error):
                written, = counters(store, "SELECT count(*) FROM buckets WHERE tier = 'minute'")[0]
        stop(process)
        remove(store)
        process.send_signal(signal.SIGCONT)
        said = process.communicate()[1]
        expect(f"removed {name}: told", (process.returncode, "was removed or replaced" in said), (1, True))
        expect(f"removed {name}: sound", counters(store, "PRAGMA integrity_check"), [("ok",)])
        minutes, flows = minutes_of(store), flows_by_minute(store)
        both = sorted(minutes.keys() & flows.keys())[1:]  # the first may have lost flows
        expect(f"removed {name}: goes on", (len(both) > 3, len(both) < 298), (True, True))
        expect(f"removed {name}: the same", [flows[bucket] for bucket in both], [minutes[bucket] for bucket in both])


def listen(folder, store, *options):
    """a run in which nothing comes; what it says"""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    process = subprocess.Popen([FLOWHOST, "listen", "--plugin", PLUGIN, "--config", folder / "policies", "--top", "0",
                                "--bind", "127.0.0.1", "--port", f"netflow={port}", "--store", store, *options],
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    said = ""
    for line in process.stderr:
        said += line
        if "anybody" in line:
            process.terminate()
    expect("status", process.wait(), 0)
    return said


def change(store, sql):
    with sqlite3.connect(store / "counters.sqlite") as database:
        database.executescript(sql)


def test_earlier(folder):
    """tables from before exporters' clocks were known are read, and get them"""
    def clocks():
        said = subprocess.run([FLOWHOST, "exporters", "--json", "--store", store, "--from", "@1700000000", "--to", "@1700020000"],
                              check=True, capture_output=True, text=True).stdout
        return [row["clock_offset_ms"] for row in json.loads(said)["rows"] if not row["version"].startswith("sFlow")]

    store = folder / "earlier"
    shutil.copytree(folder / "whole", store)
    known = clocks()
    expect("clocks", (len(known), None in known), (3, False))
    (view,), = counters(store, "SELECT sql FROM sqlite_schema WHERE name = 'health'")
    tables = ["exporters", "health_minute", "health_hour", "health_day"]
    change(store, "DROP VIEW health;" + "".join(f"ALTER TABLE {t} DROP COLUMN clock_offset_ms;" for t in tables) + view)
    expect("clocks of an earlier store", clocks(), [None] * 3)
    run(folder, store, later(folder / "whole.pcap", 3))
    expect("clocks after a run", None in clocks(), False)
    expect("health", counters(store, "SELECT DISTINCT tier FROM health WHERE clock_offset_ms IS NOT NULL ORDER BY 1"),
           [("day",), ("hour",), ("minute",)])


def test_clock(folder):
    """a leap of the clock deletes nothing at once, and what it wrote is set aside when it is mended"""
    store = folder / "clock"
    listen(folder, store)
    day = 86400
    today = int(time.time()) // day * day
    kept = "SELECT count(*) FROM buckets WHERE tier = 'hour' AND bucket < strftime('%s') - 300 * 86400"
    # As if the clock were 400 days ahead: all that there is is as old.
    change(store, f"UPDATE buckets SET bucket = bucket - 400 * {day}; UPDATE runs SET started = started - 400 * {day}, "
                  f"alive = alive - 400 * {day}, ended = ended - 400 * {day};" +
           "".join(f"INSERT OR IGNORE INTO buckets VALUES ('hour', {today - 410 * day + hour * 3600}, 3600, 0, 0, 1, 1, 1, 1, 1, 0);"
                   for hour in range(240)))
    before = counters(store, kept)
    said = listen(folder, store)
    expect("ahead: kept", counters(store, kept), before)
    expect("ahead: told", "400 days before this one" in said, True)
    expect("ahead, again: kept", (listen(folder, store) and counters(store, kept)), before)
    # Once that is how it stays, a day's worth goes at a time; all of it where it is asked for.
    change(store, "UPDATE meta SET value = 1 WHERE name = 'deletion_held_until'")
    listen(folder, store)
    expect("held no longer", counters(store, kept), [(before[0][0] - 24,)])
    listen(folder, store, "--store-keep", "hour=30")
    expect("asked for", counters(store, kept), [(0,)])

    last = today + 400 * day
    change(store, f"INSERT INTO buckets VALUES ('minute', {last}, 60, 60, 0, 1, 1, 1, 1, 1, 0)")
    said = listen(folder, store)
    expect("to come: told", "is yet to come" in said, True)
    expect("to come", counters(store, f"SELECT count(*) FROM buckets WHERE bucket >= {last}"), [(0,)])
    aside, = store.glob("set-aside-*.sqlite")
    expect("set aside", ask(aside, "SELECT tier, bucket FROM buckets"), [("minute", last)])

    change(store, "UPDATE runs SET ended = NULL, alive = alive - 100 WHERE run = (SELECT max(run) FROM runs)")
    expect("not ended: told", "the last run was not ended: data from" in listen(folder, store), True)
    change(store, "UPDATE runs SET ended = ended - 100, alive = alive - 100")
    expect("ended: told", "not ended" in listen(folder, store), False)


def test_other_user(folder):
    """one of the file's group, who may not write, after the writer has closed"""
    python = "/usr/bin/python3"  # that others may run, too
    if os.getuid() != 0 or not os.path.exists(python):
        return print("not root: no other user")
    os.chmod(folder, 0o755)
    code = f"import sqlite3; print(sqlite3.connect('file:{folder}/whole/counters.sqlite?mode=ro', uri=True)" \
           ".execute('SELECT count(*) > 0 FROM hosts_minute').fetchone()[0])"
    for group, wanted in ((0, "1\n"), (65534, "")):
        out = subprocess.run([python, "-c", code], user=65534, group=group, extra_groups=[], capture_output=True,
                             text=True).stdout
        expect(f"as another user of group {group}", out, wanted)


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        for test in (test_whole, test_earlier, test_early, test_restart, test_kills, test_copies, test_full, test_removed, test_clock,
                     test_other_user):
            test(folder)
    print("\n".join(failures) or "as it should be")
    return 1 if failures else 0


sys.exit(main())
