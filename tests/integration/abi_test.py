#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""abi_test.py INCLUDE GENERATED CXX DESCRIPTION [--update]: whether the binary interface is what its description
says: tables of functions, layouts, numbers and identifiers, as a compiler makes them of the installed headers.
docs/abi.md tells what may change; --update then writes the description anew.

Exit status: 0 the same, 1 not.
"""
import difflib
import pathlib
import re
import subprocess
import sys
import tempfile

INCLUDE, GENERATED, CXX, DESCRIPTION = sys.argv[1:5]
HEADERS = [f"flowhandlers/{name}.h" for name in (
    "guid", "status", "identifiers", "counter_groups", "arbo_unknown", "plugin_interfaces", "host_interfaces",
    "entry_points", "build_note")] + ["flowhandlers.h"]

PROBE = r"""
#include <cxxabi.h>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <typeinfo>

std::string Text(const char* type) { return abi::__cxa_demangle(type, nullptr, nullptr, nullptr); }

// A pointer to a virtual member function holds the place in the table, plus one.
template <class Member>
void Slot(const char* name, Member member) {
  std::ptrdiff_t parts[2];
  std::memcpy(parts, &member, sizeof parts);
  std::printf("  %2td %s: %s\n", (parts[0] - 1) / 8, name, Text(typeid(Member).name()).c_str());
}

void Identifier(const char* name, const GUID& id) {
  std::printf("%s %08X-%04X-%04X", name, id.Data1, id.Data2, id.Data3);
  for (int i = 0; i < 8; ++i) std::printf("%s%02X", i == 0 || i == 2 ? "-" : "", id.Data4[i]);
  std::printf("\n");
}

int main() {
%s
}
"""


def without_comments(text):
    return re.sub(r"//[^\n]*|/\*.*?\*/", "", text, flags=re.S)


def body_probes(name, body):
    """what tells about one structure: an interface's operations, or a record's members"""
    operations = re.findall(r"\bvirtual\s+[\w:]+\s+(\w+)\(", body)
    if "virtual" in body:
        yield f'std::printf("interface {name}\\n");'
        yield from (f'Slot("{operation}", &{name}::{operation});' for operation in operations)
        return
    yield f'std::printf("record {name}: %zu bytes\\n", sizeof({name}));'
    lines = re.sub(r"\([^()]*\)\s*;", ");", body)
    for member in re.findall(r"\(\*(\w+)\)|(\w+)(?:\[[^\]]*\])?(?=[;,])", lines):
        member = "".join(member)
        yield (f'std::printf("  %2zu {member}: %zu bytes\\n", offsetof({name}, {member}), '
               f'sizeof({name}::{member}));')


def probes():
    for header in HEADERS:
        text = without_comments((pathlib.Path(INCLUDE) / header).read_text())
        scope = "flow::" if "namespace flow" in text and header.endswith("build_note.h") else ""
        for name in re.findall(r"(\w+)\s*=\s*MakeGuid\(\"", text):
            yield f'Identifier("{name}", {name});'
        for name in re.findall(r"^inline constexpr (?:int|Status|\w+_T) (k\w+) =", text.split("namespace flow")[0], re.M):
            yield f'std::printf("{name} %u\\n", unsigned({name}));'
        for group, meters in re.findall(r"namespace (?!flow)(\w+) \{(.*?)\n\}", text, re.S):
            for name in re.findall(r"constexpr int (k\w+) =", meters):
                yield f'std::printf("meter {group}::{name} %d\\n", flow::{group}::{name});'
        for name in re.findall(r"\b(FH_\w+)(?=[ ,\n=])", text):
            yield f'std::printf("{name} %d\\n", int({name}));'
        for name, body in re.findall(r"struct (\w+)(?: : \w+)? \{(.*?)\n\}", text, re.S):
            if not name.startswith("AggregateKey") and name != "Direction":
                yield from body_probes(scope + name, without_inline(body))
        for name in re.findall(r"^(?:FLOW_ENTRY )?[\w* ]*?\b(SqPI\w+|fh_\w+)\(", text, re.M):
            yield f'std::printf("function {name}: %s\\n", Text(typeid({name}).name()).c_str());'


def without_inline(body):
    """a structure's body without functions that are written there"""
    return re.sub(r"^  (friend|static)\b.*?(;|\n  \})", "", body, flags=re.S | re.M)


def describe():
    includes = "".join(f'#include "{header}"\n' for header in HEADERS) + "#include <string>\n"
    with tempfile.TemporaryDirectory() as folder:
        source, program = pathlib.Path(folder) / "probe.cpp", pathlib.Path(folder) / "probe"
        source.write_text(includes + PROBE.replace("%s\n}", "\n".join(probes()) + "\n}", 1))
        subprocess.run([CXX, "-std=c++17", "-Wno-invalid-offsetof", f"-I{INCLUDE}", f"-I{GENERATED}", source, "-o",
                        program], check=True)
        return subprocess.run([program], capture_output=True, text=True, check=True).stdout


def main():
    seen, path = describe(), pathlib.Path(DESCRIPTION)
    if sys.argv[5:] == ["--update"]:
        path.write_text(seen)
    known = path.read_text()
    sys.stdout.writelines(difflib.unified_diff(known.splitlines(True), seen.splitlines(True), "described", "compiled"))
    sys.exit(seen != known)


main()
