#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""install_test.py BUILD SOURCE SANITIZERS CC CXX: what an integrator does with an installation: the tree is
installed, moved, found by CMake and pkg-config, the examples are built with it alone, and they count what flowhost
counts.

Exit status: 0 as it should be, 1 not.
"""
import json
import os
import pathlib
import subprocess
import sys
import tempfile

BUILD, SOURCE, SANITIZERS, CC, CXX = sys.argv[1:]
EXAMPLES, SAMPLES = pathlib.Path(SOURCE) / "examples", pathlib.Path(SOURCE) / "samples"
STRICT = ["-Wall", "-Wextra", "-pedantic", "-Werror"] + ([f"-fsanitize={SANITIZERS}"] if SANITIZERS else [])
CAPTURES = ("netflow5-softflowd", "ipfix-softflowd", "netflow9-sampled-softflowd", "sflow5-openvswitch")
failures = []


def expect(what, seen, wanted):
    if seen != wanted:
        failures.append(f"{what}:\n{seen}\nnot\n{wanted}")


def run(*command, **environment):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True,
                          env=dict(os.environ, **environment))
    if done.returncode != 0:
        sys.exit(f"{command} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


def install(folder):
    """the installed tree, moved to where nothing was told that it would be"""
    run("cmake", "--install", BUILD, "--prefix", folder / "first")
    unit = (folder / "first" / "lib" / "systemd" / "system" / "flowhost.service").read_text()
    expect("the service", f"ExecStart={folder / 'first' / 'bin' / 'flowhost'} " in unit, True)
    moved = folder / "elsewhere" / "tree"
    moved.parent.mkdir()
    (folder / "first").rename(moved)
    return moved


def pkg_config(tree, *question):
    folder = next(tree.rglob("flowhandlers.pc")).parent
    return run("pkg-config", *question, PKG_CONFIG_PATH=str(folder)).split()


def build(tree, folder):
    """the programs of the examples: C++ and C by CMake, C by pkg-config as well"""
    flags = " ".join(STRICT)
    run("cmake", "-S", EXAMPLES, "-B", folder, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={tree}", f"-DCMAKE_C_FLAGS={flags}",
        f"-DCMAKE_CXX_FLAGS={flags} -fno-exceptions -fno-rtti", f"-DCMAKE_C_COMPILER={CC}",
        f"-DCMAKE_CXX_COMPILER={CXX}", "-DCMAKE_BUILD_TYPE=Debug")
    run("cmake", "--build", folder)
    linked = pkg_config(tree, "--cflags", "--libs", "flowhandlers-c")
    run(CC, "-std=c11", *STRICT, EXAMPLES / "top_hosts.c", "-o", folder / "by_pkg_config", *linked)
    library_path = str(next(tree.rglob("libflowhandlers-c.so.1")).parent)
    preload = "".join(run(CC, f"-print-file-name=lib{short}.so").strip()
                      for sanitizer, short in (("address", "asan"), ("thread", "tsan")) if sanitizer in SANITIZERS)
    python = {"LD_PRELOAD": preload, "ASAN_OPTIONS": "detect_leaks=0"}
    return {"C++": ([folder / "top_hosts"], {}), "C": ([folder / "top_hosts_c"], {}),
            "C by pkg-config": ([folder / "by_pkg_config"], {"LD_LIBRARY_PATH": library_path}),
            "Python": ([sys.executable, EXAMPLES / "top_hosts.py", f"{library_path}/libflowhandlers-c.so.1"], python)}


def by_flowhost(flowhost, plugin, policies, capture):
    """the ten first hosts as the examples print them, and all bytes and records"""
    out = run(flowhost, "replay", "--plugin", plugin, "--config", policies, "--json", "-", capture)
    report = json.loads(out[out.index("{"):])
    groups = {group["id"]: group["keys"] for group in report["groups"]}
    total = next(key["bytes"] for key in groups["totals"] if key["key"] == "TOTALBW")
    hosts = sorted(groups["hosts"], key=lambda key: -key["bytes"])
    return [f"{key['text']} {key['bytes']}" for key in hosts[:10]], f"{total} bytes, {report['records']} records\n"


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        tree = install(folder)
        flowhost, policies = tree / "bin" / "flowhost", folder / "policies"
        plugin = pathlib.Path(*pkg_config(tree, "--variable=plugin", "flowhandlers"))
        expect("the plug-in", plugin.resolve(), next(tree.rglob("libflowhandlers.so.1")).resolve())
        expect("the version", pkg_config(tree, "--modversion", "flowhandlers")[0], run(flowhost, "--version").split()[1])
        build_lines = run(flowhost, "info").splitlines()[:2]  # it finds the plug-in by itself
        expect("the build", build_lines[1], run(flowhost, "--version").strip().replace("flowhost", "Build"))
        run(flowhost, "check-config", "--plugin", plugin, "--write-defaults", policies)
        programs = build(tree, folder / "build")
        for capture in (SAMPLES / f"{sample}.pcap" for sample in CAPTURES):
            hosts, totals = by_flowhost(flowhost, plugin, policies, capture)
            for what, (command, environment) in programs.items():
                seen = run(*command, policies, capture, **environment).splitlines()
                expect(f"{what}, {capture.stem}", sorted(seen), sorted(hosts))
            if "ipfix" in capture.stem:
                expect("two meters", run(folder / "build" / "two_meters", policies, capture), totals)
    print("\n".join(failures) or f"{len(CAPTURES)} captures, {len(programs)} programs, the same hosts")
    sys.exit(bool(failures))


main()
