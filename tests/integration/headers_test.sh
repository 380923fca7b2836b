#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# headers_test.sh COMPILER INCLUDE...: whether every installed header compiles alone, and twice, for an
# integrator of C++17 without exceptions and run-time type information, and those for C as C11.
set -u
compiler=$1
shift
flags='-Wall -Wextra -pedantic -Werror -fsyntax-only'
for folder; do flags="$flags -I$folder"; done
failed=0

check() {  # check HEADER OPTION...
  header=$1
  shift
  # shellcheck disable=SC2086
  printf '#include "%s"\n#include "%s"\nextern int nothing;\n' "$header" "$header" | "$compiler" "$@" $flags - || {
    echo "$header: not with $compiler $*"
    failed=1
  }
}

for folder; do
  for path in $(cd "$folder" && find . -name '*.h'); do
    header=${path#./}
    for standard in 17 20; do
      check "$header" -x c++ -std=c++$standard -fno-exceptions -fno-rtti
    done
    # Those for C say so.
    grep -q 'C and C++\.' "$folder/$header" || continue
    check "$header" -x c -std=c11
  done
done
exit $failed
