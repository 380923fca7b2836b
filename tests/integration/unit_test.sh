#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# unit_test.sh SYSTEMD_ANALYZE FLOWHOST UNIT: the unit is one, and gives away little: an exposure of 1.5.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sed "s|@FLOWHOST@|$2|; s|@FLOWHOST_HTTP@||" "$3" >"$work/flowhost.service"
said=$("$1" verify --man=no "$work/flowhost.service" 2>&1) || { echo "$said"; exit 1; }
[ -z "$said" ] || { echo "$said"; exit 1; }
"$1" security --offline=true --no-pager --threshold=15 "$work/flowhost.service" | tail -n 1
