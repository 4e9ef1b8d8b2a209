#!/usr/bin/env bash
# DNS throughput: dnsperf against Korvane and against dnsmasq serving the same
# names, both inside one private network namespace, measured in one run so the
# ratio holds on a busy machine. Two pairs: every query written to a log file,
# then no logging. Prints queries per second and the ratio Korvane/dnsmasq.
#
#   bench/dns-qps.sh [path-to-korvane] [seconds per run, default 10]
#
# Needs root (network namespace), dnsperf and dnsmasq.
set -u
BIN=${1:-$(dirname "$0")/../build/korvane}
SECS=${2:-10}
[ -x "$BIN" ] || { echo "korvane binary not found: $BIN" >&2; exit 1; }
BIN=$(readlink -f "$BIN")
[ "$(id -u)" -eq 0 ] || { echo "needs root (network namespace)" >&2; exit 1; }
for t in dnsperf dnsmasq ip; do
    command -v "$t" >/dev/null || { echo "needs $t" >&2; exit 1; }
done

NS=kvb-qps-$$
TMP=$(mktemp -d /tmp/kvb-qps.XXXXXX)
PIDS=()
cleanup() {
    local p
    for p in "${PIDS[@]}"; do kill "$p" 2>/dev/null; done
    for p in "${PIDS[@]}"; do
        for _ in $(seq 1 50); do kill -0 "$p" 2>/dev/null || break; sleep 0.1; done
        kill -9 "$p" 2>/dev/null
    done
    ip netns del "$NS" 2>/dev/null
    rm -rf "$TMP"
}
trap cleanup EXIT
trap 'exit 130' INT TERM
ip netns add "$NS" && ip -n "$NS" link set lo up || exit 1

KPORT=5301
DPORT=5302
NAMES=50

# The same names for both servers.
mkdir -p "$TMP/prog"
{
    echo "bench.test. 3600 SOA ns1.bench.test. hostmaster.bench.test. 1 3600 900 604800 300"
    echo "bench.test. 3600 NS ns1.bench.test."
    echo "ns1.bench.test. 3600 A 10.20.0.1"
} >"$TMP/prog/named.perm"
printf '; none\n' >"$TMP/prog/named.root"
: >"$TMP/queries.txt"
HOSTREC=()
for i in $(seq 1 $NAMES); do
    echo "h$i.bench.test. 3600 A 10.20.$((i / 250)).$((i % 250 + 1))" >>"$TMP/prog/named.perm"
    HOSTREC+=("--host-record=h$i.bench.test,10.20.$((i / 250)).$((i % 250 + 1))")
    echo "h$i.bench.test A" >>"$TMP/queries.txt"
done

start_korvane() {   # start_korvane YES|NO
    {
        echo "Name: ns1.bench.test"
        echo "HostsTTL: 3600"
        [ "$1" = YES ] && echo "WriteLog: YES"
    } >"$TMP/prog/korvane.ini"
    rm -rf "$TMP/prog/logs"
    ip netns exec "$NS" "$BIN" --headless --dir "$TMP/prog" --dns-port $KPORT >/dev/null 2>"$TMP/korvane.err" &
    KPID=$!
    PIDS+=("$KPID")
    wait_answer $KPORT || { echo "korvane did not answer"; cat "$TMP/korvane.err"; exit 1; }
}

start_dnsmasq() {   # start_dnsmasq YES|NO
    local log=()
    [ "$1" = YES ] && log=(--log-queries --log-facility="$TMP/dnsmasq.log")
    ip netns exec "$NS" dnsmasq --keep-in-foreground --conf-file=/dev/null --user=root \
        --pid-file="$TMP/dnsmasq.pid" --port=$DPORT --listen-address=127.0.0.1 --bind-interfaces \
        --no-resolv --no-hosts --local-ttl=3600 "${HOSTREC[@]}" "${log[@]}" >/dev/null 2>"$TMP/dnsmasq.err" &
    DPID=$!
    PIDS+=("$DPID")
    wait_answer $DPORT || { echo "dnsmasq did not answer"; cat "$TMP/dnsmasq.err"; exit 1; }
}

wait_answer() {
    local i
    for i in $(seq 1 50); do
        ip netns exec "$NS" dig +time=1 +tries=1 -p "$1" @127.0.0.1 h1.bench.test A 2>/dev/null |
            grep -q 'status: NOERROR' && return 0
        sleep 0.1
    done
    return 1
}

stop() {   # stop PID
    kill "$1" 2>/dev/null
    for _ in $(seq 1 100); do kill -0 "$1" 2>/dev/null || break; sleep 0.1; done
    kill -9 "$1" 2>/dev/null
    wait "$1" 2>/dev/null
    local p keep=()
    for p in "${PIDS[@]}"; do [ "$p" != "$1" ] && keep+=("$p"); done
    PIDS=("${keep[@]}")
}

perf() {   # perf PORT LABEL -> prints qps, sets QPS and LOST
    local out
    out=$(ip netns exec "$NS" dnsperf -s 127.0.0.1 -p "$1" -d "$TMP/queries.txt" -l "$SECS" 2>&1)
    QPS=$(awk '/Queries per second:/ {printf "%.0f", $4}' <<<"$out")
    LOST=$(awk '/Queries lost:/ {print $3, $4}' <<<"$out")
    printf '  %-34s %12s q/s   lost %s\n' "$2" "${QPS:-?}" "${LOST:-?}"
}

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "?" }'; }

echo "dnsperf, $SECS s per run, $NAMES names, 1 client, both servers on loopback in one namespace"

echo "with every query logged to a file:"
start_korvane YES
perf $KPORT "Korvane (WriteLog: YES, stdout null)"; K_LOG=$QPS
KLOGSIZE=$(du -sh "$TMP/prog/logs" 2>/dev/null | cut -f1)
stop "$KPID"
rm -rf "$TMP/prog/logs"
start_dnsmasq YES
perf $DPORT "dnsmasq (--log-queries, file)"; D_LOG=$QPS
DLOGSIZE=$(du -sh "$TMP/dnsmasq.log" 2>/dev/null | cut -f1)
stop "$DPID"
rm -f "$TMP/dnsmasq.log"
echo "  log files written: Korvane ${KLOGSIZE:-none}, dnsmasq ${DLOGSIZE:-none} (deleted)"

echo "without logging:"
start_korvane NO
perf $KPORT "Korvane (no log file, stdout null)"; K_NOLOG=$QPS
stop "$KPID"
start_dnsmasq NO
perf $DPORT "dnsmasq (no query log)"; D_NOLOG=$QPS
stop "$DPID"

echo
printf '%-22s %12s %12s %8s\n' "" "Korvane" "dnsmasq" "ratio"
printf '%-22s %12s %12s %8s\n' "logging to file" "$K_LOG" "$D_LOG" "$(ratio "$K_LOG" "$D_LOG")"
printf '%-22s %12s %12s %8s\n' "no logging" "$K_NOLOG" "$D_NOLOG" "$(ratio "$K_NOLOG" "$D_NOLOG")"
