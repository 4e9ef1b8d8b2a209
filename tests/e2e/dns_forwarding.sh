#!/usr/bin/env bash
# Forwarding to an external server (dnsmasq on 127.0.0.2 in a private
# namespace): answers arrive through it, the log names it "(external)", the
# minimum cache time applies, and repeated questions are answered from the cache.
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" forwarding
kv_need_root
kv_need_tool dnsmasq dig

NS=kvt-fwd-$$
kv_netns_add "$NS"

UPLOG=$KV_TMP/dnsmasq.log
ip netns exec "$NS" dnsmasq --keep-in-foreground --conf-file=/dev/null --user=root \
    --pid-file="$KV_TMP/dnsmasq.pid" --port=53 --listen-address=127.0.0.2 --bind-interfaces \
    --no-resolv --no-hosts --local-ttl=120 \
    --host-record=fwd.upstream.test,10.3.3.3 --host-record=ready.upstream.test,10.3.3.9 --host-record=two.upstream.test,10.3.3.4 \
    --host-record=mx1.upstream.test,10.3.3.5 --mx-host=upstream.test,mx1.upstream.test,5 \
    --cname=alias.upstream.test,two.upstream.test --address=/nx.upstream.test/ \
    --log-queries --log-facility="$UPLOG" >"$KV_TMP/dnsmasq.out" 2>&1 &
kv_track $!
for i in $(seq 1 50); do
    ip netns exec "$NS" dig +time=1 +tries=1 @127.0.0.2 ready.upstream.test A 2>/dev/null | grep -q '10.3.3.9' && break
    sleep 0.1
done
[ "$i" -lt 50 ] || { echo "FAIL: dnsmasq did not come up"; cat "$KV_TMP/dnsmasq.out"; exit 1; }
upq() { grep -cF "query[$1] $2 from 127.0.0.1" "$UPLOG" 2>/dev/null || true; }   # queries Korvane sent upstream

DIR=$KV_TMP/prog
OUT=$KV_TMP/korvane.out
mkdir -p "$DIR"
cat >"$DIR/korvane.ini" <<'EOF'
Name: ns.home.lan
HostsTTL: 3600
DNSBind: 127.0.0.1
CacheTTL: 300
RecursionOut: YES
NS: 127.0.0.2
EOF
printf '; no root hints: everything goes to the external server\n' >"$DIR/named.root"
cat >"$DIR/named.perm" <<'EOF'
home.lan. 3600 SOA ns.home.lan. hostmaster.home.lan. 1 3600 900 604800 300
home.lan. 3600 NS ns.home.lan.
pc1.home.lan. 3600 A 192.168.50.11
EOF

kv_start_dns_in_ns "$DIR" "$OUT" "$NS"
ext() { kv_count "$OUT" "(external)"; }

# --- first question goes upstream
r=$(kv_dig fwd.upstream.test A)
kv_check "fwd.upstream.test A 10.3.3.3 through the upstream" \
    bash -c '[ "$1" = NOERROR ] && [ "$2" = "fwd.upstream.test. IN A 10.3.3.3" ]' _ "$(kv_status "$r")" "$(kv_section "$r" ANSWER)"
kv_check "answer is recursive (ra), not authoritative" \
    bash -c '[[ " $1 " == *" ra "* ]] && ! [[ " $1 " == *" aa "* ]]' _ "$(kv_flags "$r")"
ttl=$(kv_ttl_of "$r" fwd.upstream.test. A)
kv_check "CacheTTL 300 raises the upstream's TTL of 120 (got $ttl)" \
    bash -c '[ -n "$1" ] && [ "$1" -gt 120 ] && [ "$1" -le 300 ]' _ "$ttl"
kv_check "log \"Sending request to 127.0.0.2 (external) for A-record for fwd.upstream.test.\"" \
    kv_has_line "$OUT" "Sending request to 127.0.0.2 (external) for A-record for fwd.upstream.test."
kv_check "log \"Reply from 127.0.0.2 about A-record for fwd.upstream.test.:\"" \
    kv_has_line "$OUT" "Reply from 127.0.0.2 about A-record for fwd.upstream.test.:"
kv_check "upstream saw exactly one query for fwd.upstream.test" [ "$(upq A fwd.upstream.test)" = 1 ]

r=$(kv_dig alias.upstream.test A)
kv_check "alias.upstream.test -> CNAME two.upstream.test. + A 10.3.3.4" \
    [ "$(kv_section "$r" ANSWER)" = $'alias.upstream.test. IN CNAME two.upstream.test.\ntwo.upstream.test. IN A 10.3.3.4' ]

r=$(kv_dig upstream.test MX)
kv_check "upstream.test MX 5 mx1.upstream.test." [ "$(kv_section "$r" ANSWER)" = "upstream.test. IN MX 5 mx1.upstream.test." ]

r=$(kv_dig host.nx.upstream.test A)
kv_check "host.nx.upstream.test NXDOMAIN passed on" [ "$(kv_status "$r")" = NXDOMAIN ]

r=$(kv_dig pc1.home.lan A)
kv_check "own zone answered locally, authoritative" \
    bash -c '[ "$1" = "pc1.home.lan. IN A 192.168.50.11" ] && [[ " $2 " == *" aa "* ]]' _ "$(kv_section "$r" ANSWER)" "$(kv_flags "$r")"
kv_check "own zone never asked upstream" [ "$(upq A pc1.home.lan)" = 0 ]

# --- the same questions again: from the cache, nothing upstream
e1=$(ext)
u1=$(grep -c 'query\[' "$UPLOG")
sleep 1.2
r=$(kv_dig fwd.upstream.test A)
ttl2=$(kv_ttl_of "$r" fwd.upstream.test. A)
kv_check "second fwd.upstream.test answered" [ "$(kv_section "$r" ANSWER)" = "fwd.upstream.test. IN A 10.3.3.3" ]
kv_check "second answer's TTL has run down ($ttl -> $ttl2)" bash -c '[ -n "$2" ] && [ "$2" -lt "$1" ]' _ "$ttl" "$ttl2"
r=$(kv_dig alias.upstream.test A)
kv_check "second alias.upstream.test answered" \
    [ "$(kv_section "$r" ANSWER)" = $'alias.upstream.test. IN CNAME two.upstream.test.\ntwo.upstream.test. IN A 10.3.3.4' ]
r=$(kv_dig upstream.test MX)
kv_check "second MX answered" [ "$(kv_section "$r" ANSWER)" = "upstream.test. IN MX 5 mx1.upstream.test." ]
r=$(kv_dig host.nx.upstream.test A)
kv_check "second NXDOMAIN answered from the negative cache" [ "$(kv_status "$r")" = NXDOMAIN ]
kv_check "no new \"(external)\" request ($e1 -> $(ext))" [ "$(ext)" = "$e1" ]
kv_check "upstream saw no new query ($u1 -> $(grep -c 'query\[' "$UPLOG"))" [ "$(grep -c 'query\[' "$UPLOG")" = "$u1" ]

kv_stop_korvane "$PID"
kv_check "SIGTERM: exit status 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
kv_check "named.cache holds the forwarded answer" \
    bash -c 'tr -d "\r" <"$1" | grep -qE "^fwd\.upstream\.test\. [0-9]+ A 10\.3\.3\.3$"' _ "$DIR/named.cache"
kv_finish
