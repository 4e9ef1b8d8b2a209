#!/usr/bin/env bash
# The window under load: the windowed program (under a virtual display,
# showing the log view) and the headless one serve the same records in one
# private network namespace, and dnsperf (-c 4) drives each in turn. Prints
# both q/s (and the CPU time per query), their ratio, and the longest
# event-loop stall each one's 10 ms
# probe timer saw (--stall-probe). Goal: windowed >= 0.9 x headless, no stall
# over 100 ms.
#
#   bench/gui-load.sh [build folder, default build] [seconds per run, default 10] [rounds, default 2]
#
# Needs root (network namespace), dnsperf, dig and Xvfb.
set -u
BUILD=${1:-$(dirname "$0")/../build}
SECS=${2:-10}
ROUNDS=${3:-2}
. "$(dirname "$0")/../tests/e2e/lib/common.sh"
kv_init "$BUILD/korvane" gui-load
BIN=$KV_BIN
TMP=$KV_TMP
[ "$(id -u)" -eq 0 ] || { echo "needs root (network namespace)" >&2; exit 1; }
for t in dnsperf dig ip Xvfb; do
    command -v "$t" >/dev/null || { echo "needs $t" >&2; exit 1; }
done
NS=kvb-gui-$$
kv_netns_add "$NS"

kv_xvfb
DISPLAY_NAME=$KV_DISPLAY

for face in windowed headless; do
    kv_bench_folder "$TMP/$face"
    echo "Name: ns1.bench.test" >"$TMP/$face/korvane.ini"
done
declare -A PORT=([windowed]=5311 [headless]=5312)

ip netns exec "$NS" env DISPLAY="$DISPLAY_NAME" "$BIN" --quiet --stall-probe \
    --dir "$TMP/windowed" --dns-port "${PORT[windowed]}" >/dev/null 2>"$TMP/windowed.err" &
WPID=$!
kv_track $WPID
ip netns exec "$NS" "$BIN" --headless --quiet --stall-probe \
    --dir "$TMP/headless" --dns-port "${PORT[headless]}" >/dev/null 2>"$TMP/headless.err" &
HPID=$!
kv_track $HPID
for face in windowed headless; do
    ok=0
    for _ in $(seq 1 100); do
        if ip netns exec "$NS" dig +time=1 +tries=1 -p "${PORT[$face]}" @127.0.0.1 www.bench.test A \
            2>/dev/null | grep -q 'status: NOERROR'; then ok=1; break; fi
        sleep 0.1
    done
    [ $ok = 1 ] || { echo "the $face program did not answer" >&2; cat "$TMP"/*.err >&2; exit 1; }
done
grep -q "running headless" "$TMP/windowed.err" && { echo "the windowed program fell back to headless" >&2; exit 1; }
sleep 3.5   # the splash has gone

declare -A SPID=([windowed]=$WPID [headless]=$HPID)
TICKS=$(getconf CLK_TCK)
cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }

run() {   # run FACE: one measured run; "q/s us-per-query" appended to $TMP/FACE.qps
    local out qps done before after cpu
    before=$(cpu_ticks "${SPID[$1]}")
    out=$(ip netns exec "$NS" dnsperf -s 127.0.0.1 -p "${PORT[$1]}" -d "$TMP/queries.txt" -l "$SECS" -c 4 2>&1)
    after=$(cpu_ticks "${SPID[$1]}")
    qps=$(awk '/Queries per second:/ {printf "%.0f", $4}' <<<"$out")
    done=$(awk '/Queries completed:/ {print $3}' <<<"$out")
    cpu=$(awk -v t=$((after - before)) -v h="$TICKS" -v n="${done:-0}" \
        'BEGIN { if (n > 0) printf "%.2f", t / h / n * 1e6; else print "0" }')
    printf '    %-9s %9s q/s %7s us/query\n' "$1" "${qps:-?}" "$cpu"
    echo "${qps:-0} $cpu" >>"$TMP/$1.qps"
}

echo "dnsperf -c 4, $SECS s per run, $ROUNDS rounds, 2 names, loopback in one namespace"
for r in $(seq 1 "$ROUNDS"); do
    echo "  round $r"
    if [ $((r % 2)) = 1 ]; then run headless; run windowed; else run windowed; run headless; fi
done

kv_stop_korvane $WPID
kv_stop_korvane $HPID
mean() { awk -v c="$2" '{ s += $c } END { printf "%.2f", s / NR }' "$1"; }
W=$(mean "$TMP/windowed.qps" 1)
H=$(mean "$TMP/headless.qps" 1)
stall() { sed -n 's/^stall-probe: longest event-loop stall \([0-9]*\) ms$/\1/p' "$1" | tail -n1; }
echo
printf '  %-32s %9.0f q/s %7s us/query\n' "headless (mean)" "$H" "$(mean "$TMP/headless.qps" 2)"
printf '  %-32s %9.0f q/s %7s us/query\n' "windowed (mean)" "$W" "$(mean "$TMP/windowed.qps" 2)"
awk -v w="$W" -v h="$H" 'BEGIN { if (h > 0) printf "  windowed / headless              %9.2f   (goal >= 0.90)\n", w / h }'
printf '  %-32s %9s ms    (goal <= 100)\n' "longest stall, windowed" "$(stall "$TMP/windowed.err")"
printf '  %-32s %9s ms\n' "longest stall, headless" "$(stall "$TMP/headless.err")"
