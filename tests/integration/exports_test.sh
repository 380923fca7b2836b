#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# exports_test.sh LIBRARY LIST SONAME: what the library exports, is called and depends on. After a
# wanted change, exports_test.sh LIBRARY LIST --update rewrites the list.
set -u
library=$1
list=$2
failed=0

# One entry a line: C names and identifiers as they are, C++ names demangled, each with the version
# under which programs are linked with it.
exported() { nm -DC --defined-only "$library" | cut -d' ' -f3- | grep -Evx 'FLOWHANDLERS_(C_)?1' | LC_ALL=C sort -u; }

if [ "${3:-}" = --update ]; then
  exported >"$list"
  exit
fi

if ! exported | diff -u "$list" -; then
  echo "The library (+) does not export what $list (-) says."
  failed=1
fi

soname=$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
if [ "$soname" != "$3" ]; then
  echo "soname is '$soname', not $3"
  failed=1
fi

# The language's and the C library, and the sanitizers in a build with them.
others=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
  grep -Ev '^(libstdc\+\+|libm|libgcc_s|libc|ld-linux-x86-64|libasan|libubsan|libtsan)\.so')
if [ -n "$others" ]; then
  echo "the library needs $others"
  failed=1
fi

# A unique symbol keeps a library in memory as NODELETE does.
if readelf -d "$library" | grep -E 'TEXTREL|NODELETE' || nm -D "$library" | grep ' u '; then
  echo "the library is not position-independent or cannot be unloaded"
  failed=1
fi
exit $failed
