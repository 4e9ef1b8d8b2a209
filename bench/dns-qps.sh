#!/usr/bin/env bash
# DNS throughput: dnsperf (-c 4) against an echo responder (the ceiling of
# what dnsperf can drive here), Korvane and dnsmasq serving the same two
# names, each logging every query to a file and not logging, all inside one
# private network namespace and interleaved round by round, so the ratios
# hold on a busy machine. Prints the median of the rounds: queries per
# second, CPU time per query (from /proc/PID/stat, all threads) and, for
# Korvane's logged runs, the log file's lines against 3 per answered query.
#
#   bench/dns-qps.sh [build folder, default build] [seconds per run, default 8] [rounds, default 3]
#
# Needs root (network namespace), dnsperf and dnsmasq. Korvane runs with
# --quiet (file only, as a service would).
set -u
BUILD=${1:-$(dirname "$0")/../build}
SECS=${2:-8}
ROUNDS=${3:-3}
ECHO=$BUILD/korvane_dns_echo
[ -x "$ECHO" ] || { echo "not built: $ECHO" >&2; exit 1; }
ECHO=$(readlink -f "$ECHO")
. "$(dirname "$0")/../tests/e2e/lib/common.sh"
kv_init "$BUILD/korvane" qps
BIN=$KV_BIN
TMP=$KV_TMP
[ "$(id -u)" -eq 0 ] || { echo "needs root (network namespace)" >&2; exit 1; }
for t in dnsperf dnsmasq dig ip; do
    command -v "$t" >/dev/null || { echo "needs $t" >&2; exit 1; }
done
NS=kvb-qps-$$
kv_netns_add "$NS"

PORT=5301
TICKS=$(getconf CLK_TCK)
kv_bench_folder "$TMP/prog"

start() {   # start echo|korvane|dnsmasq YES|NO; sets SPID
    case $1 in
    echo)
        ip netns exec "$NS" "$ECHO" $PORT &
        ;;
    korvane)
        { echo "Name: ns1.bench.test"; [ "$2" = YES ] && echo "WriteLog: YES"; } >"$TMP/prog/korvane.ini"
        rm -rf "$TMP/prog/logs"
        ip netns exec "$NS" "$BIN" --headless --quiet --dir "$TMP/prog" --dns-port $PORT \
            >/dev/null 2>"$TMP/korvane.err" &
        ;;
    dnsmasq)
        local log=()
        rm -f "$TMP/dnsmasq.log"
        [ "$2" = YES ] && log=(--log-queries --log-facility="$TMP/dnsmasq.log")
        ip netns exec "$NS" dnsmasq --keep-in-foreground --conf-file=/dev/null --user=root \
            --pid-file="$TMP/dnsmasq.pid" --port=$PORT --listen-address=127.0.0.1 --bind-interfaces \
            --no-resolv --no-hosts --local-ttl=3600 --host-record=www.bench.test,10.20.0.2 \
            --host-record=mail.bench.test,10.20.0.3 "${log[@]}" >/dev/null 2>"$TMP/dnsmasq.err" &
        ;;
    esac
    SPID=$!
    kv_track "$SPID"
    local i
    for i in $(seq 1 50); do
        ip netns exec "$NS" dig +time=1 +tries=1 -p $PORT @127.0.0.1 www.bench.test A 2>/dev/null |
            grep -q 'status: NOERROR' && return 0
        sleep 0.1
    done
    echo "$1 did not answer" >&2
    cat "$TMP"/*.err >&2
    exit 1
}

cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
log_lines() { cat "$TMP"/prog/logs/*.log 2>/dev/null | wc -l; }

# run NAME SERVER LOG: one measured run; appends "qps us-per-query" to $TMP/NAME
run() {
    local name=$1 before after out qps done cpu lines0 lines1
    start "$2" "$3"
    lines0=$(log_lines)
    before=$(cpu_ticks "$SPID")
    out=$(ip netns exec "$NS" dnsperf -s 127.0.0.1 -p $PORT -d "$TMP/queries.txt" -l "$SECS" -c 4 2>&1)
    after=$(cpu_ticks "$SPID")
    qps=$(awk '/Queries per second:/ {printf "%.0f", $4}' <<<"$out")
    done=$(awk '/Queries completed:/ {print $3}' <<<"$out")
    cpu=$(awk -v t=$((after - before)) -v h="$TICKS" -v n="${done:-0}" \
        'BEGIN { if (n > 0) printf "%.2f", t / h / n * 1e6; else print "?" }')
    if [ "$2" = korvane ] && [ "$3" = YES ]; then
        sleep 0.5   # the writer's last lines
        lines1=$(log_lines)
        printf '    %-18s %9s q/s %7s us/query   log lines %d, 3 x answered %d\n' "$name" "${qps:-?}" \
            "$cpu" $((lines1 - lines0)) $((3 * ${done:-0}))
    else
        printf '    %-18s %9s q/s %7s us/query\n' "$name" "${qps:-?}" "$cpu"
    fi
    echo "${qps:-0} $cpu" >>"$TMP/$name"
    kv_stop_korvane "$SPID"   # any server: SIGTERM, wait, forget
}

median() {   # median FILE COLUMN
    sort -n -k"$2" "$1" | awk -v c="$2" '{ v[NR] = $c } END { print v[int((NR + 1) / 2)] }'
}

echo "dnsperf -c 4, $SECS s per run, $ROUNDS rounds, 2 names, loopback in one namespace"
for r in $(seq 1 "$ROUNDS"); do
    echo "  round $r"
    run echo echo NO
    run korvane-log korvane YES
    run dnsmasq-log dnsmasq YES
    run korvane-nolog korvane NO
    run dnsmasq-nolog dnsmasq NO
done

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "?" }'; }
E=$(median "$TMP/echo" 1)
echo
echo "medians:"
printf '  %-46s %10s %10s\n' "" "q/s" "us/query"
printf '  %-46s %10s %10s\n' "echo responder (ceiling)" "$E" "$(median "$TMP/echo" 2)"
for pair in "log:every query logged to a file:--log-queries --log-facility=FILE" \
            "nolog:no file log:no query log"; do
    IFS=: read -r key title dtitle <<<"$pair"
    K=$(median "$TMP/korvane-$key" 1)
    D=$(median "$TMP/dnsmasq-$key" 1)
    echo "  $title"
    printf '  %-46s %10s %10s\n' "  Korvane" "$K" "$(median "$TMP/korvane-$key" 2)"
    printf '  %-46s %10s %10s\n' "  dnsmasq ($dtitle)" "$D" "$(median "$TMP/dnsmasq-$key" 2)"
    echo "    Korvane / dnsmasq $(ratio "$K" "$D"), Korvane / ceiling $(ratio "$K" "$E")"
done
