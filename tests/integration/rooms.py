#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""rooms.py PROJECT: checks from the include lines alone that the rooms of the house, and those inside
host/, build on each other in one direction, that nobody reaches into host/, and that the library
takes nothing but the standard library from outside."""
import pathlib
import re
import sys

# What each room may include besides itself.
ALLOWED = {
    "util": [],
    "flowhandlers": [],
    "plugin": ["util", "flowhandlers"],
    "keys": ["util", "flowhandlers"],
    "config": ["util", "flowhandlers", "plugin", "keys"],
    "metering": ["util", "flowhandlers", "plugin", "keys", "config"],
    "netflow": ["util", "flowhandlers", "plugin", "keys", "config", "metering"],
    "sflow": ["util", "flowhandlers", "plugin", "keys", "config", "metering"],
    "library": ["util", "flowhandlers", "plugin", "keys", "config", "metering", "netflow", "sflow"],
    "capi": ["util", "flowhandlers"],
    "host": ["flowhandlers", "plugin"],
}
# The rooms inside host/: each may include itself and those in front of it.
HOST = ["base", "policy", "capture", "export", "border", "engine", "intake", "period", "names",
        "store", "ask", "scale", "output", "web", "command"]
# Programs around the library: everything but host/, which only its own tests and benchmarks see.
AROUND = ["tests", "bench", "fuzz"]
# What the build makes.
MADE = ["flow_revision.h", "flowhandlers/version.h"]
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
# C library headers that the library uses; C++ ones have no dot.
C_HEADERS = re.compile(r"^(arpa|netinet|sys)/\w+\.h$|^(dlfcn|fcntl|glob|stddef|stdint|time|unistd)\.h$")


def host_fault(local, name):
    """what is wrong with an include line inside host/, or None"""
    if len(local.parts) != 3 or local.parts[1] not in HOST:
        return "no room of host/"
    target = name.split("/")
    if target[0] == "host" and HOST.index(target[1]) > HOST.index(local.parts[1]):
        return "host/%s/ may not include host/%s/" % (local.parts[1], target[1])
    return None


def fault(folder, path, bracket, name):
    """what is wrong with an include line, or None"""
    room = "flowhandlers" if folder.parts[0] == "include" else folder.parts[0]
    target = name.split("/")[0].removesuffix(".h")
    if bracket == "<":
        outside = "." in name or "/" in name
        if room in ALLOWED and room != "host" and outside and not C_HEADERS.match(name):
            return "the library depends on the standard library alone"
        return None
    if name in MADE:
        return None
    if not (ROOT / name).is_file() and not (ROOT / "include" / name).is_file():
        return "no such file from the project's root or include/"
    if room in AROUND:
        if target == "host" and "host" not in folder.parts[1:] + (path.stem,):
            return "host/ is for its own tests alone"
        return None
    if target != room and target not in ALLOWED[room]:
        return "%s/ may not include %s/" % (room, target)
    return host_fault(path, name) if room == "host" else None


def main():
    faults = 0
    lines = 0
    for path in sorted(p for room in ["include", *ALLOWED, *AROUND] for p in (ROOT / room).rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        for number, line in enumerate(path.read_text().split("\n"), 1):
            include = INCLUDE.match(line)
            if not include:
                continue
            lines += 1
            local = path.relative_to(ROOT)
            wrong = fault(local.parent, local, *include.groups())
            if wrong:
                faults += 1
                print("%s:%d: %s: %s" % (local, number, line.strip(), wrong))
    print("%d include lines, %d faults" % (lines, faults))
    return 1 if faults or not lines else 0


ROOT = pathlib.Path(sys.argv[1])
sys.exit(main())
