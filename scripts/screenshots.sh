#!/usr/bin/env bash
# Screenshots of the windows for the README: starts Korvane under a virtual
# display (Xvfb) on a copy of the example folder, asks it a few DNS
# questions, gets it a DHCP lease (as root: a real udhcpc client in a network
# namespace; otherwise a lease written into dhcp.dat before the start), and
# saves PNGs of the main window (log view, lease view, a menu), About, the
# options dialog, the record editor with each of its dialogs, and the look-up
# tool with an answer into docs/screenshots/.
#
#   scripts/screenshots.sh [build folder, default build]
set -u
cd "$(dirname "$0")/.."
BUILD=${1:-build}
OUTDIR=$PWD/docs/screenshots
. tests/e2e/lib/common.sh
kv_init "$BUILD/korvane" shots
BIN=$KV_BIN
TMP=$KV_TMP
for t in Xvfb import xdotool dig python3; do
    command -v "$t" >/dev/null || { echo "needs $t (scripts/install-deps.sh)" >&2; exit 1; }
done
kv_xvfb
export DISPLAY=$KV_DISPLAY

PROG=$TMP/prog
cp -r examples/office "$PROG"
RUN=()      # how the server and dig are run (inside the namespace as root)
PORT=$(kv_free_udp_port)
SERVER=127.0.0.1
if [ "$(id -u)" -eq 0 ] && command -v udhcpc >/dev/null; then
    NS_S=kvshs$$; NS_C=kvshc$$
    kv_netns_add "$NS_S"
    kv_netns_add "$NS_C"
    kv_veth "$NS_S" kvshs$$ "$NS_C" kvshc$$
    ip -n "$NS_S" addr add 10.213.60.1/24 dev kvshs$$
    echo "office.example. 86400 DHCP 10.213.60.100 10.213.60.150 255.255.255.0 10.213.60.1" >>"$PROG/named.perm"
    RUN=(ip netns exec "$NS_S")
    PORT=53
    LEASE=udhcpc
else
    # A lease as the server saved it, running for another eight hours.
    printf '; Korvane - DHCP Leases\r\nlaptop1.office.example. 192.0.2.101 01020000000001 %s\r\n' \
        "$(date -d '+8 hours' '+%Y-%m-%d %H:%M:%S')" >"$PROG/dhcp.dat"
    LEASE=file
fi

"${RUN[@]}" "$BIN" --dir "$PROG" --dns-port "$PORT" >"$TMP/korvane.out" 2>"$TMP/korvane.err" &
KPID=$!
kv_track $KPID
WID=$(timeout 20 xdotool search --sync --name '^Korvane$' | head -n1)
[ -n "$WID" ] || { echo "the main window did not appear" >&2; cat "$TMP/korvane.err" >&2; exit 1; }
sleep 3.5   # the splash goes by itself after 3 s

for q in "www.office.example" "mail.office.example MX" "intranet.office.example" \
         "nothere.office.example" "-x 192.0.2.10"; do
    # shellcheck disable=SC2086
    "${RUN[@]}" dig +tries=1 +time=2 -p "$PORT" @"$SERVER" $q >/dev/null
done
if [ "$LEASE" = udhcpc ]; then
    printf '#!/bin/sh\ncase "$1" in bound|renew) ip addr replace "$ip/$mask" dev "$interface";; esac\n' >"$TMP/udhcpc.sh"
    chmod +x "$TMP/udhcpc.sh"
    ip netns exec "$NS_C" udhcpc -i kvshc$$ -n -q -f -s "$TMP/udhcpc.sh" -t 5 -T 1 \
        -x hostname:laptop1 >"$TMP/udhcpc.out" 2>&1 || echo "udhcpc got no lease" >&2
fi
sleep 1

key_in() {   # key_in WINDOW KEY...: keys typed into that window
    local w=$1; shift
    # A window that closes on the key press is gone before the release: no error for that.
    xdotool windowfocus --sync "$w" 2>/dev/null; xdotool key --window "$w" "$@" 2>/dev/null; sleep 0.6
}
key() { key_in "$WID" "$@"; }
shot() { import -window "$1" "$OUTDIR/$2"; echo "saved docs/screenshots/$2"; }
window_named() { timeout 5 xdotool search --sync --name "$1" | head -n1; }

mkdir -p "$OUTDIR"
shot "$WID" main-log.png
key alt+v l
shot "$WID" main-leases.png
key alt+v a
key alt+t
# The open menu is a window of its own: take the screen around the main window.
eval "$(xdotool getwindowgeometry --shell "$WID")"
import -window root -crop "${WIDTH}x${HEIGHT}+$X+$Y" "$OUTDIR/menu-tools.png"
echo "saved docs/screenshots/menu-tools.png"
key Escape
key alt+h a
ABOUT=$(window_named '^About Korvane$')
[ -n "$ABOUT" ] && shot "$ABOUT" about.png && key_in "$ABOUT" Escape
# Typed through the keyboard itself (not sent to a window): a key sent to the
# main window while the menu opens the tool kept repeating into its name field.
xdotool windowfocus --sync "$WID" 2>/dev/null
xdotool key alt+t; sleep 0.6
xdotool key d; sleep 0.6
LOOKUP=$(window_named '^Korvane - DNS Look Up$')
if [ -n "$LOOKUP" ]; then
    xdotool windowfocus --sync "$LOOKUP" 2>/dev/null
    # The "a" that opened About is still down for the server: let it go first.
    xdotool keyup a
    xdotool type --window "$LOOKUP" --delay 120 "office.example"
    xdotool key Return; sleep 1
    shot "$LOOKUP" lookup.png
    key_in "$LOOKUP" alt+x
else
    echo "the look-up window did not open: lookup.png not taken" >&2
    exit 1
fi

key alt+t o
OPTIONS=$(window_named '^Korvane - Options$')
if [ -n "$OPTIONS" ]; then
    shot "$OPTIONS" options.png
    key_in "$OPTIONS" Escape
else
    echo "the options dialog did not open: options.png not taken" >&2
    exit 1
fi

key alt+t
key e
EDITOR=$(window_named '^Korvane - DNS Records$')
if [ -n "$EDITOR" ]; then
    ekey() { xdotool windowfocus --sync "$EDITOR" 2>/dev/null; xdotool key --window "$EDITOR" "$@"; sleep 0.6; }
    shot "$EDITOR" editor-root.png
    # comDomain has the focus: the next domain is the example's own.
    ekey Down
    shot "$EDITOR" editor.png
    # dialog <file> <title> <keys in the File menu> [text to type into the first field]
    dialog() {
        local file=$1 title=$2 keys=$3 typed=${4:-}
        # shellcheck disable=SC2086
        ekey alt+f
        xdotool key --delay 250 $keys Return
        sleep 1
        local win
        win=$(window_named "^$title\$")
        [ -n "$win" ] || { echo "$title did not open" >&2; return; }
        xdotool windowfocus --sync "$win" 2>/dev/null
        [ -n "$typed" ] && { xdotool type --delay 200 "$typed"; sleep 0.6; }
        shot "$win" "$file"
        xdotool key Escape; sleep 1
    }
    # A sub-domain: the name comes as ".office.example" with the cursor in front.
    dialog dialog-domain.png 'Korvane - Domain' "Down Right Up"
    dialog dialog-host.png 'Korvane - A-Record' "Down Right" "printer2	192.0.2.41"
    dialog dialog-ns.png 'Korvane - NS-Record' "Down Right Down" "ns2.office.example"
    dialog dialog-cname.png 'Korvane - CNAME-Record' "Down Right Down Down" "print	printer2.office.example"
    dialog dialog-mx.png 'Korvane - MX-Record' "Down Right Down Down Down" "mail2.office.example"
    dialog dialog-dhcp.png 'Korvane - DHCP-Record' "Down Right Down Down Down Down" \
        "192.0.2.100	192.0.2.150	255.255.255.0	192.0.2.1"
    ekey ctrl+w 2>/dev/null
else
    echo "no record editor in this build: its pictures not taken"
fi

kv_stop_korvane "$KPID"
echo "done"
