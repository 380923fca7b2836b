#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# describe.sh FLOWHOST SOURCE OUT [LOWDOWN]: fills OUT with what FLOWHOST says of itself, in man/ manual
# pages, if lowdown is there to make them, and in share/ completion for shells.
set -euo pipefail
flowhost=$1 source=$2 out=$3 lowdown=${4:-}

# page NAME SECTION: Markdown to a page. lowdown puts paragraphs where mandoc wants none, asks for a font
# that terminals lack, and sets the texts of terms apart from them.
page() {
  "$lowdown" -s --out-no-smarty -Tman -M "title=${1^^}" -M "section=$2" -M "date=$day" \
    -M "source=flowhost $version" |
    sed -Ez 's/\n(\.S[HS])\n([^\n]*)\n\.LP\n/\n\1 \2\n/g; s/\n(\.S[HS])\n/\n\1 /g
             s/\n(\.LP\n)?([^\n]*)\n\.if n \\\n\.sp -1v\n\.if t \\\n\.sp -0\.25v\n\.IP "" 5n\n/\n.TP\n\2\n/g
             s/\\fC/\\fB/g; s/--/\\-\\-/g' >"$out/man/man$2/$1.$2"
}

store_page() {
  printf '# NAME\n\nflowhost-store - what flowhost keeps on disk\n\n# DESCRIPTION\n'
  sed '1,/^# /d' "$source/docs/store.md"
}

rm -rf "$out"
mkdir -p "$out"/man/man{1,5} "$out"/share/{bash-completion/completions,zsh/site-functions} \
  "$out/share/fish/vendor_completions.d"
"$flowhost" describe bash >"$out/share/bash-completion/completions/flowhost"
"$flowhost" describe zsh >"$out/share/zsh/site-functions/_flowhost"
"$flowhost" describe fish >"$out/share/fish/vendor_completions.d/flowhost.fish"

[[ -n $lowdown ]] || exit 0
read -r version day < <(sed -nE 's/^## ([0-9.]+) \(([0-9-]+)\)$/\1 \2/p' "$source/CHANGELOG.md")
"$flowhost" describe manual | page flowhost 1
for command in $("$flowhost" describe commands); do
  "$flowhost" describe "$command" | page "flowhost-$command" 1
done
"$flowhost" describe policy-manual | page flowhost-policy 5
store_page | page flowhost-store 5
