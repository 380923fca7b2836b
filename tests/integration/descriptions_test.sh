#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# descriptions_test.sh FLOWHOST SOURCE LOWDOWN: a manual page for every command, which mandoc has nothing to
# say about, and completion that knows commands, options and values.
set -euo pipefail
flowhost=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$2/host/describe.sh" "$flowhost" "$2" "$work" "$3"
mandoc -T lint -W warning "$work"/man/man*/*
for command in $("$flowhost" --help | sed -n '/^Subcommands/,/^$/s/^  \([a-z-]*\) .*/\1/p'); do
  grep -qF '\-\-help' "$work/man/man1/flowhost-$command.1"
done

# completed WORD...: what the last word may become
completed() {
  COMP_WORDS=(flowhost "$@")
  COMP_CWORD=$#
  _flowhost
  printf '%s ' "${COMPREPLY[@]}"
}
complete() { :; }
# shellcheck source=/dev/null
source "$work/share/bash-completion/completions/flowhost"
expect() {
  local seen wanted=$1
  shift
  seen=$(completed "$@")
  [[ $seen == "$wanted" ]] || { echo "flowhost $*: '$seen', not '$wanted'"; exit 1; }
}
cd "$work"
mkdir folder
touch fish
expect "replay " repl
expect "listen losses " l
expect "--instances --interval " listen --in
expect "folder " listen --state fo
expect "fish " replay --top 3 fi
expect " " listen --interval ""
