#!/usr/bin/env bash
# DHCP rate: perfdhcp drives full DORA exchanges with all-new clients for
# SECS seconds against Korvane, then against Kea and dnsmasq with the same
# pool, in one run so that the ratios hold on a noisy machine; then the
# in-process DISCOVER micro-benchmark. Prints figures only; needs root.
#
#   bench/dhcp-rate.sh [korvane-binary] [korvane_bench-binary]
#   RATE=5000 SECS=10 PEERS="kea dnsmasq" bench/dhcp-rate.sh
. "$(dirname "$0")/../tests/e2e/lib/common.sh"
ROOT=$(cd "$(dirname "$0")/.." && pwd)
BIN=${1:-$ROOT/build/korvane}
MICRO=${2:-$(dirname "$BIN")/korvane_bench}
RATE=${RATE:-5000}
SECS=${SECS:-10}
PEERS=${PEERS:-kea dnsmasq}
KEA_MT=${KEA_MT:-false}   # true: Kea's multi-threaded packet processing (off by default in 2.2)
KEA_LOG=${KEA_LOG:-INFO}  # INFO logs every lease, as Korvane logs every exchange
CLIENTS=$((RATE * SECS * 11 / 10))   # more MACs than exchanges: every client is new

kv_init "$BIN" dhcprate
kv_need_root
kv_need_tool perfdhcp ip

NS_S=kvbrs$$; NS_C=kvbrc$$
IF_S=kvbrs$$; IF_C=kvbrc$$
kv_netns_add "$NS_S"
kv_netns_add "$NS_C"
kv_veth "$NS_S" "$IF_S" "$NS_C" "$IF_C"
ip -n "$NS_S" addr add 10.213.0.1/16 dev "$IF_S"
ip -n "$NS_C" addr add 10.213.0.2/16 dev "$IF_C"   # perfdhcp needs a source address
FIRST=10.213.1.0; LAST=10.213.255.254               # 65,279 addresses, more than CLIENTS

echo "DHCP rate: perfdhcp -r $RATE for $SECS s, -R $CLIENTS new clients, pool $FIRST-$LAST (/16)"
echo "machine: $(nproc) cores, $(uname -r); server and perfdhcp share them"
echo

declare -A RES_RATE RES_DROP
perf() {   # perf <name>: one perfdhcp run, figures into RES_*
    local out=$KV_TMP/perfdhcp-$1.out
    ip netns exec "$NS_C" timeout $((SECS + 30)) perfdhcp -4 -l "$IF_C" -r "$RATE" -p "$SECS" -R "$CLIENTS" \
        >"$out" 2>&1
    RES_RATE[$1]=$(sed -n 's/^Rate: \([0-9.]*\) 4-way.*/\1/p' "$out" | head -n1)
    RES_DROP[$1]=$(sed -n 's/^drops ratio: *\(.*\)$/\1/p' "$out" | tr '\n' ' ')
    printf '%-8s %10s 4-way exchanges/s   drops (DO, RA): %s\n' "$1" "${RES_RATE[$1]:-?}" "${RES_DROP[$1]:-?}"
    awk '/^\*\*\*Statistics for:/ { ph = $3; gsub(/\*/, "", ph) }
         ph && /^sent packets:/ { se = $3 } ph && /^received packets:/ { re = $3 }
         ph && /^drops:/ { dr = $2 } ph && /^avg delay:/ { printf "           %-15s sent %s, received %s, dropped %s, avg delay %s ms\n", ph, se, re, dr, $3 }' "$out"
    [ -n "${RES_RATE[$1]}" ] || { echo "           perfdhcp output:"; tail -n 15 "$out" | sed 's/^/           /'; }
}

stop_pid() {   # stop_pid <pid>: TERM, wait, then KILL
    kill "$1" 2>/dev/null
    for _ in $(seq 1 100); do kill -0 "$1" 2>/dev/null || break; sleep 0.1; done
    kill -9 "$1" 2>/dev/null
    wait "$1" 2>/dev/null
    kv_untrack "$1"
}

# --- Korvane (its log goes to a file, as a service would run it)
DIR=$KV_TMP/prog
mkdir -p "$DIR"
printf 'Name: ns1.bench.kvtest\nHostsTTL: 3600\n' >"$DIR/korvane.ini"
printf '; no root hints\n' >"$DIR/named.root"
printf '; Korvane Permanent Records\nbench.kvtest. 3600 DHCP %s %s 255.255.0.0 10.213.0.254\n' "$FIRST" "$LAST" >"$DIR/named.perm"
kv_start_korvane "$DIR" "$KV_TMP/korvane.out" "$NS_S"
# perfdhcp plays a relay (giaddr = its address, listening on port 67), and
# Korvane answers relayed messages like direct ones, by broadcast to port 68:
# hand those broadcasts on to perfdhcp's socket. Costs some CPU of the 2 cores.
ip netns exec "$NS_C" python3 -c '
import socket, sys
r = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
r.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, sys.argv[1].encode())
r.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
r.bind(("0.0.0.0", 68))
dst = (sys.argv[2], 67)
while True:
    r.sendto(r.recv(4096), dst)
' "$IF_C" 10.213.0.2 &
FWD=$!
kv_track "$FWD"
sleep 0.5
kv_wait_grep "$KV_TMP/korvane.out" "DHCP service started on 10.213.0.1" 1 5 ||
    { echo "korvane did not start its DHCP service"; tail "$KV_TMP/korvane.out"; exit 1; }
perf korvane
kv_stop_korvane "$KV_PID"
stop_pid "$FWD"
echo "           leases in dhcp.dat after SIGTERM: $(($(wc -l <"$DIR/dhcp.dat") - 1)), exit status $KV_RC"

# --- Kea: memfile leases persisted to its CSV file, log at INFO to a file
if [[ " $PEERS " == *" kea "* ]]; then
    if command -v kea-dhcp4 >/dev/null; then
        cat >"$KV_TMP/kea.json" <<EOF
{ "Dhcp4": {
    "interfaces-config": { "interfaces": [ "$IF_S" ], "dhcp-socket-type": "raw" },
    "lease-database": { "type": "memfile", "persist": true, "lfc-interval": 0,
                        "name": "$KV_TMP/kea-leases4.csv" },
    "valid-lifetime": 3600,
    "multi-threading": { "enable-multi-threading": $KEA_MT, "thread-pool-size": 2, "packet-queue-size": 64 },
    "subnet4": [ { "id": 1, "subnet": "10.213.0.0/16",
                   "pools": [ { "pool": "$FIRST - $LAST" } ],
                   "option-data": [ { "name": "routers", "data": "10.213.0.254" },
                                    { "name": "domain-name-servers", "data": "10.213.0.1" },
                                    { "name": "domain-name", "data": "bench.kvtest" } ] } ],
    "loggers": [ { "name": "kea-dhcp4", "severity": "$KEA_LOG",
                   "output_options": [ { "output": "$KV_TMP/kea.log" } ] } ]
} }
EOF
        KEA_PIDFILE_DIR=$KV_TMP KEA_LOCKFILE_DIR=$KV_TMP ip netns exec "$NS_S" kea-dhcp4 -c "$KV_TMP/kea.json" \
            >"$KV_TMP/kea.out" 2>&1 &
        KEA=$!
        kv_track "$KEA"
        for _ in $(seq 1 100); do
            ip netns exec "$NS_S" ss -uanp 2>/dev/null | grep -q '"kea-dhcp4"' && break
            sleep 0.1
        done
        if ip netns exec "$NS_S" ss -uanp 2>/dev/null | grep -q '"kea-dhcp4"'; then
            perf kea
        else
            echo "kea      did not start:"; tail -n 5 "$KV_TMP/kea.out" "$KV_TMP/kea.log"
        fi
        stop_pid "$KEA"
    else
        echo "kea      not installed (package kea-dhcp4-server)"
    fi
fi

# --- dnsmasq: the stand-in's best set-up (no ping, no DNS, log to a file, lease limit lifted)
if [[ " $PEERS " == *" dnsmasq "* ]]; then
    if command -v dnsmasq >/dev/null; then
        ip netns exec "$NS_S" dnsmasq --keep-in-foreground --conf-file=/dev/null --port=0 \
            --interface="$IF_S" --bind-interfaces --dhcp-range="$FIRST,$LAST,255.255.0.0,1h" \
            --dhcp-option=3,10.213.0.254 --dhcp-option=15,bench.kvtest --dhcp-lease-max=70000 \
            --dhcp-leasefile="$KV_TMP/dnsmasq.leases" --dhcp-authoritative --no-ping \
            --log-facility="$KV_TMP/dnsmasq.log" --pid-file="$KV_TMP/dnsmasq.pid" >"$KV_TMP/dnsmasq.out" 2>&1 &
        DM=$!
        kv_track "$DM"
        sleep 1
        perf dnsmasq
        stop_pid "$DM"
    else
        echo "dnsmasq  not installed (package dnsmasq-base)"
    fi
fi

echo
for p in $PEERS; do
    [ -n "${RES_RATE[korvane]}" ] && [ -n "${RES_RATE[$p]}" ] &&
        awk -v k="${RES_RATE[korvane]}" -v o="${RES_RATE[$p]}" -v n="$p" \
            'BEGIN { if (o > 0) printf "ratio korvane / %s: %.2f\n", n, k / o }'
done

echo
if [ -x "$MICRO" ]; then
    echo "in-process: $MICRO --benchmark_filter=Discover"
    "$MICRO" --benchmark_filter=Discover 2>&1
else
    echo "in-process DISCOVER benchmark not found at $MICRO (build target korvane_bench)"
fi
exit 0
