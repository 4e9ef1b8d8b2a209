#!/usr/bin/env bash
# The cache bound under a flood: N random names (default 1,000,000), each
# denied by the upstream, asked once through Korvane with dnsperf. Prints
# Korvane's resident memory before and after, the queries per second and
# the records in the saved cache (at most CacheSize, 100,000 by default; a
# cache size above the names shows the flood without the bound).
#
#   bench/dns-cache-flood.sh [build folder, default build] [names, default 1000000] [CacheSize]
#
# Needs root (network namespace), dnsperf, dnsmasq and dig.
set -u
HERE=$(cd "$(dirname "$0")" && pwd)
BUILD=${1:-$HERE/../build}
COUNT=${2:-1000000}
SIZE=${3:-}
. "$HERE/../tests/e2e/lib/common.sh"
. "$HERE/../tests/e2e/lib/flood.sh"
kv_init "$BUILD/korvane" benchflood
kv_need_root
kv_need_tool dnsmasq dnsperf dig python3

NS=kvb-flood-$$
kv_netns_add "$NS"
kv_flood_world "$NS" "$SIZE"
before=$(kv_rss_kb "$PID")
kv_flood "$NS" "$COUNT"
after=$(kv_rss_kb "$PID")
kv_stop_korvane "$PID"
cached=$(grep -c 'flood\.test\.' "$DIR/named.cache")

printf 'names asked          %d\n' "$COUNT"
printf 'answered             %s\n' "${KV_FLOOD_DONE:-?}"
awk '/Queries per second:/ {printf "queries per second   %s\n", $4}' "$KV_TMP/dnsperf.out"
printf 'resident before      %d MB\n' $((before / 1024))
printf 'resident after       %d MB\n' $((after / 1024))
printf 'records in the cache %d\n' "$cached"
