#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""check_config_test.py FLOWHOST PLUGIN: what check-config makes of policies that are fine, odd and broken.

Exit status: 0 as it should be, 1 not.
"""
import pathlib
import subprocess
import sys
import tempfile

FLOWHOST, PLUGIN = sys.argv[1:]
NETFLOW, SFLOW = "NetflowCounterPolicy.xml", "SFlowCounterPolicy.xml"


def policy(text):
    return f"<OmbrelPluginConfiguration>\n<Policy>\n{text}\n</Policy></OmbrelPluginConfiguration>"


# name, NetFlow policy, exit status, what is said
CASES = (
    ("fine", policy("<MeterHosts>false</MeterHosts>"), 0, "the policies are fine"),
    ("misspelt", policy("<!-- <Nonsense/> -->\n<MeterHostz>false</MeterHostz>"), 3,
     f"{NETFLOW}, line 4: there is no setting MeterHostz; it has no effect"),
    ("accepted by the plug-in alone", policy("<MeterHosts>false</METERHOSTS>"), 3,
     f"{NETFLOW}, line 3: not well-formed (Start-end tags mismatch); the names behind it are not checked"),
    ("without effect beside another", policy("<MeterLinkAS>true</MeterLinkAS>"
                                             "<MeterNetflowInterfaces>false</MeterNetflowInterfaces>"), 3,
     f"{NETFLOW}, line 3: MeterLinkAS counts nothing while MeterNetflowInterfaces is off"),
    ("an item that the plug-in alone complains of", policy("<FilterHostsInclude>10.0.0.1,10.0.0.999</FilterHostsInclude>"), 3,
     "Invalid host supplied"),
    ("broken", "<OmbrelPluginConfiguration><Policy>", 1, "a policy cannot be used"),
    ("empty", "", 1, "a policy cannot be used"),
    ("two filters", policy("<FilterHostsInclude>10.0.0.1</FilterHostsInclude>"
                           "<FilterHostsExclude>10.0.0.2</FilterHostsExclude>"), 1, "a policy cannot be used"),
)


def check(folder, *options):
    run = subprocess.run([FLOWHOST, "check-config", "--plugin", PLUGIN, *options, folder], capture_output=True, text=True)
    return run.returncode, run.stdout + run.stderr


def main():
    failures = []
    for name, text, status, said in CASES:
        with tempfile.TemporaryDirectory() as folder:
            (pathlib.Path(folder) / NETFLOW).write_text(text)
            seen = check(folder)
            if seen[0] != status or said not in seen[1] or f"{SFLOW} is not there" not in seen[1]:
                failures.append(f"{name}: {seen}")
            if (pathlib.Path(folder) / SFLOW).exists():
                failures.append(f"{name}: wrote a policy")
    with tempfile.TemporaryDirectory() as parent:
        folder = pathlib.Path(parent) / "new"
        if check(folder)[0] != 1 or check(folder, "--write-defaults")[0] != 0 or check(folder, "--quiet") != (0, ""):
            failures.append("the defaults are not fine")
    print("\n".join(failures) or f"{len(CASES)} policies are judged as they should be")
    sys.exit(bool(failures))


main()
