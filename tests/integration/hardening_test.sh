#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# hardening_test.sh FILE...: whether programs and libraries were built as whatever reads strangers' datagrams has
# to be. What flags leave behind in the code is looked for where this machine's instructions are known.
#
# Exit status: 0 as it should be, 1 not.
set -euo pipefail

faults=0
fault() {
  echo "$1: $2"
  faults=$((faults + 1))
}

# has TEXT PATTERN
has() { grep -qE "$2" <<<"$1"; }

check_headers() {
  local file=$1 header segments dynamic symbols
  header=$(readelf -hW "$file")
  segments=$(readelf -lW "$file")
  dynamic=$(readelf -dW "$file")
  symbols=$(readelf --dyn-syms -W "$file")
  has "$header" 'Type: +DYN ' || fault "$file" "its place in memory is fixed (no PIE)"
  has "$segments" '^ +GNU_RELRO ' || fault "$file" "tables of addresses stay writable (no RELRO)"
  has "$dynamic" '\(FLAGS\).* BIND_NOW|\(FLAGS_1\).* NOW' || fault "$file" "functions are looked up late (no -z now)"
  has "$segments" '^ +GNU_STACK .* RW +0x' || fault "$file" "its stack can be executed"
  ! has "$dynamic" 'TEXTREL' || fault "$file" "its code is written to when it is loaded"
  has "$symbols" 'UND __stack_chk_fail\b' || fault "$file" "no stack protector"
  has "$symbols" 'UND __[a-z]+_chk\b' || fault "$file" "no function with bounds (FORTIFY)"
}

# The start files of some C libraries are not marked for control-flow protection, and then nothing linked with
# them is: the code tells. Of a frame beyond a page each page is touched on the way, so that none is skipped.
check_code() {
  local file=$1 code targets jumps
  code=$(objdump -d --no-show-raw-insn "$file" | grep -E '\bendbr64\b|\bsub +\$0x[0-9a-f]+,%rsp' || true)
  targets=$(grep -c 'endbr64' <<<"$code" || true)
  [[ $targets -ge 100 ]] || fault "$file" "$targets marks of where calls may go (no control-flow protection)"
  # By at most a page at a time; a negative number is an addition.
  jumps=$(grep -oE 'sub +\$0x[0-9a-f]{4,8},%rsp' <<<"$code" | grep -cv '0x1000,' || true)
  [[ $jumps -eq 0 ]] || fault "$file" "$jumps frames that jump over pages (no stack clash protection)"
}

[[ $# -gt 0 ]] || { echo "hardening_test.sh FILE..." >&2; exit 2; }
for file in "$@"; do
  check_headers "$file"
  case $(readelf -hW "$file") in
    *X86-64*) check_code "$file" ;;
  esac
done
[[ $faults -eq 0 ]] || exit 1
echo "$# files are hardened"
