#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# headers_test.sh INCLUDE...: whether every installed header compiles alone, and twice, for an
# integrator of C++17 without exceptions and run-time type information, and those for C as C11.
set -u
flags='-Wall -Wextra -pedantic -Werror -fsyntax-only'
for folder; do flags="$flags -I$folder"; done
failed=0

check() {  # check HEADER COMPILER OPTION...
  header=$1
  shift
  command -v "$1" >/dev/null || return 0
  # shellcheck disable=SC2086
  printf '#include "%s"\n#include "%s"\nextern int nothing;\n' "$header" "$header" | "$@" $flags - || {
    echo "$header: not with $*"
    failed=1
  }
}

for folder; do
  for path in $(cd "$folder" && find . -name '*.h'); do
    header=${path#./}
    for standard in 17 20; do
      check "$header" g++ -x c++ -std=c++$standard -fno-exceptions -fno-rtti
      check "$header" clang++ -x c++ -std=c++$standard -fno-exceptions -fno-rtti
    done
    # Those for C say so.
    grep -q 'C and C++\.' "$folder/$header" || continue
    check "$header" gcc -x c -std=c11
    check "$header" clang -x c -std=c11
  done
done
exit $failed
