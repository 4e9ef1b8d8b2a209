# A flood of random names through Korvane to an upstream that denies them
# all (dnsmasq answering NXDOMAIN for flood.test): every answer is a new
# cache entry. Source after common.sh; used by the end-to-end test and the
# benchmark.

# kv_flood_world <netns> [cache size]: the upstream on 127.0.0.2 and Korvane
# on 127.0.0.1 (--quiet), both in <netns>; sets PID and DIR.
kv_flood_world() {
    local ns=$1 size=${2:-} i
    ip netns exec "$ns" dnsmasq --keep-in-foreground --conf-file=/dev/null --user=root \
        --port=53 --listen-address=127.0.0.2 --bind-interfaces --no-resolv --no-hosts \
        --address=/flood.test/ --address=/ready.test/10.3.3.3 >"$KV_TMP/dnsmasq.out" 2>&1 &
    kv_track $!
    for i in $(seq 1 50); do
        ip netns exec "$ns" dig +time=1 +tries=1 @127.0.0.2 ready.test A 2>/dev/null | grep -q 10.3.3.3 && break
        sleep 0.1
    done
    DIR=$KV_TMP/prog
    OUT=$KV_TMP/korvane.out
    mkdir -p "$DIR"
    printf 'Name: ns.home.lan\nDNSBind: 127.0.0.1\nRecursionOut: YES\nNS: 127.0.0.2\n' >"$DIR/korvane.ini"
    [ -n "$size" ] && printf 'CacheSize: %s\n' "$size" >>"$DIR/korvane.ini"
    printf '; no root hints\n' >"$DIR/named.root"
    cat >"$DIR/named.perm" <<'P'
home.lan. 3600 SOA ns.home.lan. hostmaster.home.lan. 1 3600 900 604800 300
pc1.home.lan. 3600 A 192.168.50.11
P
    # --quiet: the log window still gets every line, nothing is printed, so
    # readiness is an answered own record.
    ip netns exec "$ns" "$KV_BIN" --headless --quiet --dir "$DIR" --dns-port 53 >"$OUT" 2>&1 &
    PID=$!
    kv_track "$PID"
    KV_DIG_NS=$ns
    KV_DIG=(@127.0.0.1 +time=1 +tries=1)
    for i in $(seq 1 50); do
        kv_dig pc1.home.lan A | grep -q 192.168.50.11 && break
        sleep 0.2
    done
    [ "$i" -lt 50 ] || { echo "FAIL: korvane did not answer within 10 s"; cat "$OUT"; exit 1; }
    KV_DIG=(@127.0.0.1 +time=6 +tries=1)
}

# kv_rss_kb <pid>: resident memory in kB.
kv_rss_kb() { awk '/^VmRSS:/ {print $2}' "/proc/$1/status"; }

# kv_flood <netns> <count>: <count> random names asked once each through
# dnsperf; its report goes to $KV_TMP/dnsperf.out. Sets KV_FLOOD_DONE to
# the queries that were answered.
kv_flood() {
    local ns=$1 count=$2
    python3 -c '
import os, sys
out = sys.stdout
for _ in range(int(sys.argv[1])):
    out.write("r" + os.urandom(8).hex() + ".flood.test A\n")
' "$count" >"$KV_TMP/names.txt"
    ip netns exec "$ns" dnsperf -s 127.0.0.1 -p 53 -d "$KV_TMP/names.txt" -n 1 -q 200 -t 10 \
        >"$KV_TMP/dnsperf.out" 2>&1
    KV_FLOOD_DONE=$(awk '/Queries completed:/ {print $3}' "$KV_TMP/dnsperf.out")
    rm -f "$KV_TMP/names.txt"
}
