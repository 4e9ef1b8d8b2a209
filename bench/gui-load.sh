#!/usr/bin/env bash
# The window under load: the windowed program (under a virtual display,
# showing the log view) and the headless one serve the same records in one
# private network namespace, and dnsperf (-c 4) drives each in turn. Prints
# both q/s, their ratio, and the longest event-loop stall each one's 10 ms
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
BIN=$BUILD/korvane
[ -x "$BIN" ] || { echo "not built: $BIN" >&2; exit 1; }
BIN=$(readlink -f "$BIN")
[ "$(id -u)" -eq 0 ] || { echo "needs root (network namespace)" >&2; exit 1; }
for t in dnsperf dig ip Xvfb; do
    command -v "$t" >/dev/null || { echo "needs $t" >&2; exit 1; }
done

NS=kvb-gui-$$
TMP=$(mktemp -d /tmp/kvb-gui.XXXXXX)
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

Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$TMP/display" 2>"$TMP/xvfb.err" &
PIDS+=($!)
for _ in $(seq 1 50); do [ -s "$TMP/display" ] && break; sleep 0.1; done
DISPLAY_NAME=:$(cat "$TMP/display")

for face in windowed headless; do
    mkdir -p "$TMP/$face"
    cat >"$TMP/$face/named.perm" <<'Z'
bench.test. 3600 SOA ns1.bench.test. hostmaster.bench.test. 1 3600 900 604800 300
bench.test. 3600 NS ns1.bench.test.
ns1.bench.test. 3600 A 10.20.0.1
www.bench.test. 3600 A 10.20.0.2
mail.bench.test. 3600 A 10.20.0.3
Z
    printf '; none\n' >"$TMP/$face/named.root"
    echo "Name: ns1.bench.test" >"$TMP/$face/korvane.ini"
done
printf 'www.bench.test A\nmail.bench.test A\n' >"$TMP/queries.txt"
declare -A PORT=([windowed]=5311 [headless]=5312)

ip netns exec "$NS" env DISPLAY="$DISPLAY_NAME" "$BIN" --quiet --stall-probe \
    --dir "$TMP/windowed" --dns-port "${PORT[windowed]}" >/dev/null 2>"$TMP/windowed.err" &
WPID=$!
PIDS+=($WPID)
ip netns exec "$NS" "$BIN" --headless --quiet --stall-probe \
    --dir "$TMP/headless" --dns-port "${PORT[headless]}" >/dev/null 2>"$TMP/headless.err" &
HPID=$!
PIDS+=($HPID)
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

run() {   # run FACE: one measured run, q/s appended to $TMP/FACE.qps
    local out qps
    out=$(ip netns exec "$NS" dnsperf -s 127.0.0.1 -p "${PORT[$1]}" -d "$TMP/queries.txt" -l "$SECS" -c 4 2>&1)
    qps=$(awk '/Queries per second:/ {printf "%.0f", $4}' <<<"$out")
    printf '    %-9s %9s q/s\n' "$1" "${qps:-?}"
    echo "${qps:-0}" >>"$TMP/$1.qps"
}

echo "dnsperf -c 4, $SECS s per run, $ROUNDS rounds, 2 names, loopback in one namespace"
for r in $(seq 1 "$ROUNDS"); do
    echo "  round $r"
    if [ $((r % 2)) = 1 ]; then run headless; run windowed; else run windowed; run headless; fi
done

for pid in $WPID $HPID; do
    kill -TERM "$pid"
    for _ in $(seq 1 100); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
done
sum() { awk '{ s += $1 } END { printf "%.0f", s / NR }' "$1"; }
W=$(sum "$TMP/windowed.qps")
H=$(sum "$TMP/headless.qps")
stall() { sed -n 's/^stall-probe: longest event-loop stall \([0-9]*\) ms$/\1/p' "$1" | tail -n1; }
echo
printf '  %-32s %9s q/s\n' "headless (mean)" "$H"
printf '  %-32s %9s q/s\n' "windowed (mean)" "$W"
awk -v w="$W" -v h="$H" 'BEGIN { if (h > 0) printf "  windowed / headless              %9.2f   (goal >= 0.90)\n", w / h }'
printf '  %-32s %9s ms    (goal <= 100)\n' "longest stall, windowed" "$(stall "$TMP/windowed.err")"
printf '  %-32s %9s ms\n' "longest stall, headless" "$(stall "$TMP/headless.err")"
