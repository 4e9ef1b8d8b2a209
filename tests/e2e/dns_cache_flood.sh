#!/usr/bin/env bash
# A million random names, each denied by the upstream: the cache stays
# within CacheSize (100,000 by default), the process within 200 MB of
# resident memory, and the own records are still answered at the end.
. "$(dirname "$0")/lib/common.sh"
. "$(dirname "$0")/lib/flood.sh"
kv_init "$1" flood
kv_need_root
kv_need_tool dnsmasq dnsperf dig python3

NS=kvt-flood-$$
kv_netns_add "$NS"
kv_flood_world "$NS"
kv_flood "$NS" 1000000

rss=$(kv_rss_kb "$PID")
echo "answered $KV_FLOOD_DONE of 1000000 queries; resident memory $((rss / 1024)) MB"
kv_check "the flood went through (at least 900,000 answered)" [ "${KV_FLOOD_DONE:-0}" -ge 900000 ]
kv_check "resident memory under 200 MB ($((rss / 1024)) MB)" [ "$rss" -lt $((200 * 1024)) ]
r=$(kv_dig pc1.home.lan A)
kv_check "own record still answered" [ "$(kv_section "$r" ANSWER)" = "pc1.home.lan. IN A 192.168.50.11" ]

kv_stop_korvane "$PID"
kv_check "SIGTERM: exit status 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
cached=$(grep -c 'flood\.test\.' "$DIR/named.cache")
kv_check "the saved cache is full but within CacheSize ($cached records)" \
    bash -c '[ "$1" -gt 50000 ] && [ "$1" -le 100000 ]' _ "$cached"
kv_finish
