#!/usr/bin/env bash
# Loading a blocklist: Korvane and dnsmasq (--addn-hosts, --keep-in-foreground)
# on the same generated hosts files of "0.0.0.0 name" lines, from 10,000 to
# 1,000,000 lines, one after the other in one run: time from start to the
# first answer, RSS and CPU time at that moment, and the cost per line (the
# same at every size when loading is linear). Then a 100,000-record
# named.perm (A, CNAME and MX; 1,000 names with 20 records each), against
# dnsmasq given the same records as host-record, cname and mx-host lines;
# and a SIGHUP reload of it during which Korvane keeps answering another
# name (the reload's length and the slowest answer meanwhile).
#
#   bench/load-hosts.sh [build folder, default build] [line counts, default
#                       "10000 20000 50000 100000 200000 500000 1000000"]
#
# Needs python3 and dnsmasq; everything runs on loopback. Figures are only
# worth comparing on a quiet machine.
set -u
BUILD=${1:-$(dirname "$0")/../build}
SIZES=${2:-"10000 20000 50000 100000 200000 500000 1000000"}
PROBE=$(dirname "$0")/tools/load_probe.py
. "$(dirname "$0")/../tests/e2e/lib/common.sh"
kv_init "$BUILD/korvane" load
BIN=$KV_BIN
TMP=$KV_TMP
for t in python3 dnsmasq; do
    command -v "$t" >/dev/null || { echo "needs $t" >&2; exit 1; }
done
DNSMASQ=$(command -v dnsmasq)
AS_ROOT=()
[ "$(id -u)" -eq 0 ] && AS_ROOT=(--user=root)

# blocklist LINES FILE: names of blocklist length (20 to 35 characters).
blocklist() {
    python3 - "$1" "$2" <<'PY'
import random, sys
random.seed(15)
words = ["ads", "track", "metrics", "pixel", "cdn", "stats", "analytics", "beacon", "tag", "click", "promo", "banner"]
tlds = ["com", "net", "org", "io", "info"]
with open(sys.argv[2], "w") as f:
    f.write("# generated blocklist\n")
    for i in range(int(sys.argv[1])):
        f.write("0.0.0.0 %s%d.%s-%s.%s\n" % (random.choice(words), i, random.choice(words),
                                             random.choice(words), random.choice(tlds)))
PY
}

# zone FILE CONF: the 100,000-record named.perm and the same records for dnsmasq.
zone() {
    python3 - "$1" "$2" <<'PY'
import sys
perm, conf = open(sys.argv[1], "w"), open(sys.argv[2], "w")
perm.write("; Korvane Permanent Records\n"
           "bench.test. 3600 SOA ns1.bench.test. hostmaster.bench.test. 1 3600 900 604800 300\n")
count = 1
for i in range(1000):
    name = "multi%d.bench.test" % i
    for k in range(10):
        ip = "10.%d.%d.%d" % (i // 250, i % 250, k + 1)
        perm.write("%s. 3600 A %s\n%s. 3600 MX %d mx%d.%s.\n" % (name, ip, name, k * 10, k, name))
        conf.write("host-record=%s,%s\nmx-host=%s,mx%d.%s,%d\n" % (name, ip, name, k, name, k * 10))
        count += 2
i = 0
while count < 100000:
    if i % 4 == 3:
        perm.write("alias%d.bench.test. 3600 CNAME host%d.bench.test.\n" % (i, i - 1))
        conf.write("cname=alias%d.bench.test,host%d.bench.test\n" % (i, i - 1))
    else:
        ip = "172.%d.%d.%d" % (16 + i // 65536, (i // 256) % 256, i % 256)
        perm.write("host%d.bench.test. 3600 A %s\n" % (i, ip))
        conf.write("host-record=host%d.bench.test,%s\n" % (i, ip))
    i += 1
    count += 1
PY
}

# korvane_dir DIR [hosts file]: a program folder; named.perm is left alone.
korvane_dir() {
    mkdir -p "$1"
    { echo "Name: ns1.bench.test"; [ -n "${2:-}" ] && echo "Hosts: $2"; } >"$1/korvane.ini"
    printf '; none\n' >"$1/named.root"
    [ -f "$1/named.perm" ] || printf '; none\n' >"$1/named.perm"
    rm -f "$1/named.cache" "$1/dhcp.dat"
}

run_korvane() {   # run_korvane DIR NAME: prints the probe's figures
    local port
    port=$(kv_free_udp_port)
    python3 "$PROBE" first "$port" "$2" -- "$BIN" --headless --quiet --dir "$1" --dns-port "$port"
}

run_dnsmasq() {   # run_dnsmasq NAME ARGS...
    local port name=$1
    shift
    port=$(kv_free_udp_port)
    python3 "$PROBE" first "$port" "$name" -- "$DNSMASQ" --keep-in-foreground --conf-file=/dev/null "${AS_ROOT[@]}" \
        --pid-file="$TMP/dnsmasq.pid" --port="$port" --listen-address=127.0.0.1 --bind-interfaces \
        --no-resolv --no-hosts "$@"
}

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "?" }'; }
per_line() { awk -v s="$1" -v n="$2" 'BEGIN { printf "%.2f", s / n * 1e6 }'; }

echo "Blocklists of \"0.0.0.0 name\" lines: time from start to the first answer (s), RSS then (MB),"
echo "CPU time then (s), and CPU time per line (us). Korvane answers A and PTR for every line."
printf '%9s | %7s %7s %6s %6s | %7s %7s %6s %6s | %6s %6s\n' lines korvane RSS CPU us/ln dnsmasq RSS CPU us/ln time RSS
printf '%9s | %30s | %30s | %13s\n' "" "" "" "Korvane/dnsmasq"
for n in $SIZES; do
    hosts=$TMP/hosts-$n
    blocklist "$n" "$hosts"
    last=$(tail -1 "$hosts" | awk '{print $2}')
    korvane_dir "$TMP/k-$n" "$hosts"
    read -r kt krss kcpu krc kan <<<"$(run_korvane "$TMP/k-$n" "$last")"
    read -r dt drss dcpu drc dan <<<"$(run_dnsmasq "$last" --addn-hosts="$hosts")"
    printf '%9s | %7s %7.1f %6s %6s | %7s %7.1f %6s %6s | %6s %6s\n' "$n" "$kt" "$(awk -v k="$krss" 'BEGIN{print k/1024}')" \
        "$kcpu" "$(per_line "$kcpu" "$n")" "$dt" "$(awk -v k="$drss" 'BEGIN{print k/1024}')" "$dcpu" \
        "$(per_line "$dcpu" "$n")" "$(ratio "$kt" "$dt")" "$(ratio "$krss" "$drss")"
    [ "$krc" = 0 ] && [ "$kan" = 1 ] || echo "  Korvane's answer for $last: rcode $krc, $kan records"
    rm -rf "$hosts" "$TMP/k-$n"
done

echo
echo "100,000-record named.perm (A, CNAME, MX; 1,000 names with 20 records each):"
korvane_dir "$TMP/zone"
zone "$TMP/zone/named.perm" "$TMP/zone.conf"
korvane_dir "$TMP/zone"
read -r kt krss kcpu _ kan <<<"$(run_korvane "$TMP/zone" multi999.bench.test)"
printf '  Korvane  %7s s %7.1f MB %6s s CPU, %s answers\n' "$kt" "$(awk -v k="$krss" 'BEGIN{print k/1024}')" "$kcpu" "$kan"
read -r dt drss dcpu _ dan <<<"$(run_dnsmasq multi999.bench.test --conf-file="$TMP/zone.conf")"
printf '  dnsmasq  %7s s %7.1f MB %6s s CPU, %s answers (records given as host-record, cname, mx-host)\n' \
    "$dt" "$(awk -v k="$drss" 'BEGIN{print k/1024}')" "$dcpu" "$dan"
echo "  Korvane/dnsmasq: time $(ratio "$kt" "$dt"), RSS $(ratio "$krss" "$drss")"

echo
echo "SIGHUP reload of that named.perm while www.bench.test is asked every 10 ms:"
korvane_dir "$TMP/zone"
echo "www.bench.test. 3600 A 10.99.0.1" >>"$TMP/zone/named.perm"
port=$(kv_free_udp_port)
"$BIN" --headless --dir "$TMP/zone" --dns-port "$port" >"$TMP/zone.log" 2>&1 &
KPID=$!
kv_track "$KPID"
for _ in $(seq 1 600); do grep -q "DNS service started" "$TMP/zone.log" && break; sleep 0.1; done
read -r took worst lost <<<"$(python3 "$PROBE" reload "$port" www.bench.test "$KPID" "$TMP/zone.log" "Records reloaded")"
echo "  reload took $took s; slowest answer meanwhile $worst s; $lost queries unanswered"
kill "$KPID"
wait "$KPID" 2>/dev/null
kv_untrack "$KPID"
exit 0
