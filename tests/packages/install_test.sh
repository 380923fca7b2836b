#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# install_test.sh PACKAGES: the packages of a folder, as tools/package leaves them, from their installation
# to their end in a clean Debian 12 root: the page as the manual gets at it, and the tests that they have of
# their own. Root runs it, for three minutes or four; Debian's archive is asked for the root and for what the
# packages depend on.
#
#   apt-get install debootstrap softflowd
#   tools/package && tests/packages/install_test.sh build/packages
set -euo pipefail
packages=$(realpath "$1")
source=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
work=$(mktemp -d)
root=$work/root
kept=var/lib/private/flowhost
clean=(env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive)
end() {
  umount "$root/proc" 2>/dev/null || true
  rm -rf --one-file-system "$work"
}
trap end EXIT

fail() { echo "install_test: $*" >&2; exit 1; }
step() { echo "install_test: $*"; }
# quietly COMMAND...: what it says counts when it fails.
quietly() { "$@" >"$work/log" 2>&1 </dev/null || { tail -n 30 "$work/log" >&2; fail "failed: $*"; }; }
inside() { "${clean[@]}" chroot "$root" "$@"; }

# older VERSION: the packages as an earlier version, in the root's /older.
older() {
  local package
  mkdir "$root/older"
  for package in "$root"/packages/*.deb; do
    rm -rf "$work/tree"
    dpkg-deb -R "$package" "$work/tree"
    sed -i -E "s/^(Version: ).*/\1$1/; s/\(= [^)]*\)/(= $1)/g" "$work/tree/DEBIAN/control"
    dpkg-deb -b --root-owner-group "$work/tree" "$root/older" >"$work/log"
  done
}

install_from() {
  quietly inside sh -c "apt-get install -y --no-install-recommends /$1/*.deb"
  step "$(inside dpkg-query -W -f '${Package} ${Version}' flowhost) is installed"
}

# collect: what the unit starts takes softflowd's export of the traffic, as nobody and on a loopback of
# its own, and is ended. $sent: what softflowd has sent so far.
collect() {
  local start
  start=$(sed -n 's/^ExecStart=//p' "$root/lib/systemd/system/flowhost.service")
  unshare --net bash -euo pipefail -c '
    ip link set lo up
    : >"$1/listen"
    "${@:3}" >>"$1/listen" 2>&1 &
    until grep -q "listening on ::" "$1/listen"; do kill -0 $!; sleep 0.1; done
    softflowd -r "$1/traffic.pcap" -n 127.0.0.1:2055 -v 9 -d >"$1/softflowd" 2>&1
    kill $!
    wait $!' bash "$work" - "${clean[@]}" chroot --userspec=nobody:nogroup "$root" $start || {
    cat "$work/listen" >&2
    fail "the collector, or softflowd, has failed"
  }
  sent=$((sent + $(awk 'on { sum += $(NF - 3) } /^Per-protocol/ { on = 1 } END { print sum }' "$work/softflowd")))
}
sent=0

# page: what "From package to page" of the manual says, where eth0 has some traffic.
page() {
  local manual start
  manual=$(sed -n '/^### From package to page/,/^## /p' "$source/docs/operator.md")
  start=$(sed -n 's/^ExecStart=//p' "$root/lib/systemd/system/flowhost.service")
  quietly inside apt-get install -y --no-install-recommends softflowd
  mkdir -p "$root/run/softflowd/chroot"  # as systemd makes it
  unshare --net bash -euo pipefail -c '
    ip link set lo up
    ip link add eth0 type veth peer name far
    ip link set far up
    ip link set eth0 up
    ip address add 192.0.2.1/24 dev eth0
    ip neighbour add 192.0.2.2 lladdr 02:00:00:00:00:02 dev eth0
    : >"$1/listen"
    "${@:6}" --userspec=nobody:nogroup "$5" $4 >>"$1/listen" 2>&1 &
    until grep -q "listening on ::" "$1/listen"; do kill -0 $!; sleep 0.1; done
    "${@:6}" "$5" ${2%%#*}
    python3 "$3" 192.0.2.2 http://127.0.0.1:8055 "$5/run/softflowd.ctl"
    kill "$(<"$5/run/softflowd.pid")"
    kill $!
    wait $!' bash "$work" "$(grep '^softflowd' <<<"$manual")" "$source/tests/packages/ask_page.py" "$start" "$root" \
    "${clean[@]}" chroot >"$work/page" 2>&1 || {
    cat "$work/listen" "$work/page" >&2
    fail "the page does not show what softflowd exports"
  }
  grep -q '^curl http://127.0.0.1:8055/api/exporters' <<<"$manual" || fail "the manual asks something else"
  step "$(tail -n 1 "$work/page")"
}

# expect WHEN: the store has what was sent.
expect() {
  local seen
  seen=$(inside flowhost top hosts --store /var/lib/flowhost/store --exact |
         awk '/^ *all traffic/ { gsub(",", ""); print $5 }')
  [[ $sent -gt 0 && $seen == "$sent" ]] || fail "$1: the store has '$seen' bytes, $sent were sent"
  step "$1: flowhost top has the $sent bytes that were sent"
}

step "making a clean root"
quietly debootstrap --variant=minbase bookworm "$root"
mount -t proc proc "$root/proc"
quietly inside apt-get update
mkdir "$root/packages"
find "$packages" -name '*.deb' ! -name '*-dbgsym_*' -exec cp -t "$root/packages" {} +
older 0.9
install_from older
# What systemd makes for StateDirectory and DynamicUser.
mkdir -p "$root/var/lib/private"
install -d -o nobody -g nogroup "$root/$kept"
ln -s private/flowhost "$root/var/lib/flowhost"
quietly python3 "$source/samples/make_traffic.py" "$work/traffic.pcap"
collect
expect "before the upgrade"
echo "<!-- mine -->" >>"$root/etc/flowhost/NetflowCounterPolicy.xml"

install_from packages
expect "after the upgrade"
grep -q "mine" "$root/etc/flowhost/NetflowCounterPolicy.xml" || fail "an edited policy was written over"
collect
expect "on with the old store"
page
image=$(sed -n '/^CMD/,/]$/p' "$source/packaging/Containerfile" | tr -d '[],"\\' | xargs)
[[ ${image#CMD } == "$(sed -n 's/^ExecStart=[^ ]* //p' "$root/lib/systemd/system/flowhost.service")" ]] ||
  fail "the image does not start what the service starts"

quietly inside apt-get install -y --no-install-recommends gcc libc6-dev pkg-config
mkdir "$root/source"
cp -r "$source/debian" "$source/examples" "$source/samples" "$root/source"
for test in $(sed -n 's/^Tests: //p' "$source/debian/tests/control"); do
  quietly inside env -C /source AUTOPKGTEST_TMP=/tmp "debian/tests/$test"
  step "the packages' own test '$test' is content"
done

rm -r "$root"/{older,packages,source}
quietly inside apt-get purge -y flowhost 'libflowhandlers*'
find "$root" -path "$root/proc" -prune -o \( -name '*flowhost*' -o -name '*flowhandlers*' \) -print >"$work/left"
[[ ! -s $work/left ]] || fail "left after the purge: $(<"$work/left")"
step "purged, and nothing is left"
