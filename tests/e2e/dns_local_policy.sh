#!/usr/bin/env bash
# Who gets names resolved elsewhere, and which names never leave: a client
# of a local network (read from the interfaces) is served, a stranger is
# refused (own records still answer him) until RecursionFrom names his
# network; private reverse names and bare names get NXDOMAIN without a
# question to the forwarder.
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" policy
kv_need_root
kv_need_tool dnsmasq dig

NS=kvt-policy-$$
kv_netns_add "$NS"
# A local network on one end of a veth pair; its client and a stranger are
# addresses of this namespace too, so dig can send from them.
ip -n "$NS" link add kvpa$$ type veth peer name kvpb$$
ip -n "$NS" addr add 192.168.77.1/24 dev kvpa$$
ip -n "$NS" link set kvpa$$ up
ip -n "$NS" link set kvpb$$ up
ip -n "$NS" addr add 192.168.77.2/32 dev lo
ip -n "$NS" addr add 10.99.0.2/32 dev lo

UPLOG=$KV_TMP/dnsmasq.log
ip netns exec "$NS" dnsmasq --keep-in-foreground --conf-file=/dev/null --user=root \
    --port=53 --listen-address=127.0.0.2 --bind-interfaces --no-resolv --no-hosts \
    --address=/upstream.test/10.3.3.3 --log-queries --log-facility="$UPLOG" >"$KV_TMP/dnsmasq.out" 2>&1 &
kv_track $!
for i in $(seq 1 50); do
    ip netns exec "$NS" dig +time=1 +tries=1 @127.0.0.2 ready.upstream.test A 2>/dev/null | grep -q 10.3.3.3 && break
    sleep 0.1
done
upq() { grep -c "query\[.*$1" "$UPLOG" 2>/dev/null || true; }

DIR=$KV_TMP/prog
OUT=$KV_TMP/korvane.out
mkdir -p "$DIR"
printf '; no root hints\n' >"$DIR/named.root"
cat >"$DIR/named.perm" <<'P'
home.lan. 3600 SOA ns.home.lan. hostmaster.home.lan. 1 3600 900 604800 300
pc1.home.lan. 3600 A 192.168.77.11
P
start() {
    printf 'Name: ns.home.lan\nDNSBind: 127.0.0.1\nRecursionOut: YES\nNS: 127.0.0.2\n%s' "$1" >"$DIR/korvane.ini"
    kv_start_dns_in_ns "$DIR" "$OUT" "$NS"
}
status_from() { kv_status "$(kv_dig -b "$1" "${@:2}")"; }

start ""
kv_check "a client of the local network is served" \
    [ "$(status_from 192.168.77.2 a.upstream.test A)" = NOERROR ]
kv_check "a stranger is refused" [ "$(status_from 10.99.0.2 b.upstream.test A)" = REFUSED ]
kv_check "the refusal is logged with its response code" \
    kv_has_line "$OUT" "-> Header: Refused - will not answer this client or this query type."
kv_check "a stranger's question never went out" [ "$(upq b.upstream.test)" = 0 ]
kv_check "own records answer the stranger" [ "$(status_from 10.99.0.2 pc1.home.lan A)" = NOERROR ]
kv_check "a free address of the local network has no name (NXDOMAIN)" \
    [ "$(status_from 192.168.77.2 -x 192.168.77.50)" = NXDOMAIN ]
kv_check "a bare name does not exist (NXDOMAIN)" [ "$(status_from 192.168.77.2 printer A)" = NXDOMAIN ]
kv_check "neither went to the forwarder" \
    [ "$(upq 50.77.168.192.in-addr.arpa)$(upq ' printer ')" = 00 ]
kv_stop_korvane "$PID"

start $'RecursionFrom: 10.99.0.0/16\nForwardBareNames: YES\n'
kv_check "RecursionFrom opens it to the stranger's network" \
    [ "$(status_from 10.99.0.2 c.upstream.test A)" = NOERROR ]
status_from 192.168.77.2 printer A >/dev/null
kv_check "ForwardBareNames: YES sends a bare name out" [ "$(upq ' printer ')" = 1 ]
kv_stop_korvane "$PID"
kv_finish
