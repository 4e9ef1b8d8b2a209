#!/usr/bin/env bash
# Crash safety: while DHCP clients come one after another (half of them
# without a host name) and clients look up names that must be asked of an
# upstream server, the program is killed with SIGKILL at 30 random moments
# and started again each time. It runs as korvane_crash_driver, the
# application plus the record editor's, the options dialog's and the cache
# view's saves on timers, so the kills also fall on those writers. After
# each kill every file loads back (dhcp.dat, named.cache, named.perm,
# korvane.ini, the log) and no lease granted over 1 s before the kill is
# missing; at the end no address was given to two clients.
#
#   server ns: 10.214.0.1/16 (pool .0.10 - .255.250), upstream DNS 127.0.0.2
#   client ns: the DHCP clients
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" crash
kv_need_root
kv_need_tool python3 ip
DRIVER=$(dirname "$KV_BIN")/korvane_crash_driver
[ -x "$DRIVER" ] || { echo "FAIL: $DRIVER not built"; exit 1; }
LOAD="python3 $(dirname "$0")/lib/crashload.py"
KILLS=${KV_KILLS:-30}

NS_S=kvcrs$$
NS_C=kvcrc$$
IF_S=kvcrs$$
IF_C=kvcrc$$
kv_netns_add "$NS_S"
kv_netns_add "$NS_C"
kv_veth "$NS_S" "$IF_S" "$NS_C" "$IF_C"
ip -n "$NS_S" addr add 10.214.0.1/16 dev "$IF_S"

DIR=$KV_TMP/prog
OUT=$KV_TMP/korvane.out
ACKS=$KV_TMP/acks
KILLTIMES=$KV_TMP/kills
mkdir -p "$DIR"
: >"$ACKS"; : >"$KILLTIMES"
printf 'Name: ns1.crash.kvtest\nHostsTTL: 3600\nWriteLog: YES\nRecursionOut: YES\nNS: 127.0.0.2\n' \
    >"$DIR/korvane.ini"
printf '; no root hints in this test\n' >"$DIR/named.root"
cat >"$DIR/named.perm" <<EOF
; Korvane Permanent Records
crash.kvtest. 3600 SOA ns1.crash.kvtest. hostmaster.crash.kvtest. 1 3600 900 604800 300
crash.kvtest. 3600 NS ns1.crash.kvtest.
ns1.crash.kvtest. 3600 A 10.214.0.1
www.crash.kvtest. 3600 A 10.214.0.2
crash.kvtest. 3600 DHCP 10.214.0.10 10.214.255.250 255.255.0.0 10.214.0.1
EOF

# What the editor's saves must keep: the records and entries of named.perm.
PERM=$("$DRIVER" --check "$DIR" | grep '^named.perm ')

ip netns exec "$NS_S" $LOAD upstream 127.0.0.2 & kv_track $!
ip netns exec "$NS_S" $LOAD lookups 127.0.0.1 5353 100000 & kv_track $!
ip netns exec "$NS_C" $LOAD dhcp "$IF_C" "$ACKS" 100000 & kv_track $!

KV_BIN=$DRIVER
start() {
    local before
    before=$(kv_count "$OUT" "DHCP service started on 10.214.0.1")
    kv_start_korvane "$DIR" "$OUT" "$NS_S" --dns-port 5353
    PID=$KV_PID
    kv_wait_grep "$OUT" "DHCP service started on 10.214.0.1" $((before + 1)) 15 ||
        { echo "FAIL: no DHCP service"; tail -n 20 "$OUT"; exit 1; }
}

bad=0
for round in $(seq 1 "$KILLS"); do
    start
    sleep "$(python3 -c 'import random; print(round(random.uniform(0.2, 2.0), 2))')"
    date +%s.%N >>"$KILLTIMES"
    kill -KILL "$PID"
    wait "$PID" 2>/dev/null
    kv_untrack "$PID"
    if ! "$DRIVER" --check "$DIR" >"$KV_TMP/check" 2>&1; then
        echo "kill $round: a file does not load back:"; grep -v '^lease ' "$KV_TMP/check" | head
        bad=$((bad + 1))
    fi
    grep -q '^korvane.ini name ns1.crash.kvtest hoststtl 36[0-9][0-9] ns 1$' "$KV_TMP/check" ||
        { echo "kill $round: korvane.ini changed"; bad=$((bad + 1)); }
    grep -qxF "$PERM" "$KV_TMP/check" ||
        { echo "kill $round: named.perm changed"; grep '^named.perm' "$KV_TMP/check"; bad=$((bad + 1)); }
    if ! $LOAD missing "$ACKS" "$KILLTIMES" "$KV_TMP/check" >"$KV_TMP/missing"; then
        echo "kill $round:"; tail -n 5 "$KV_TMP/missing"
        bad=$((bad + 1))
    fi
done
kv_check "every file loads back and no lease older than 1 s is missing after $KILLS kills" \
    test "$bad" -eq 0
kv_check "$(tail -n1 "$KV_TMP/missing") after the last kill" \
    grep -q '^0 of [1-9][0-9]* leases' "$KV_TMP/missing"
kv_check "named.cache written and read back" grep -q '^named.cache [1-9][0-9]* records' "$KV_TMP/check"
$LOAD conflicts "$ACKS" "$KILLTIMES" >"$KV_TMP/conflicts"
kv_check "$(tail -n1 "$KV_TMP/conflicts")" grep -q '^0 addresses' "$KV_TMP/conflicts"
kv_finish
