#!/usr/bin/env bash
# Several pools on one server, real udhcpc clients in network namespaces:
# each pool answers only on its own interface and with its own options, a
# gateway-less pool sends no router, a pool outside the machine's networks is
# ignored, the DNS server option follows DNSBind, clients without client
# identifier and host name get distinct addresses and keep them, the server's
# own address is never handed out, and a full pool stays silent.
#
#   server ns: bridge 10.213.58.1/24 (pool a.kvtest .1-.3, gateway .254)
#                 with ports to client ns A1 and A2
#              veth 10.213.59.1/24 (pool b.kvtest .100-.150, no gateway) to client ns B
#              10.213.61.53/32 on loopback, the DNSBind address
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" dhcppool
kv_need_root
kv_need_tool udhcpc dig ip

NS_S=kvdps$$; NS_A1=kvdpa1$$; NS_A2=kvdpa2$$; NS_B=kvdpb$$
BR=kvpbr$$
IF_A1S=kvpa1s$$; IF_A1C=kvpa1c$$
IF_A2S=kvpa2s$$; IF_A2C=kvpa2c$$
IF_BS=kvpbs$$; IF_BC=kvpbc$$
SRV_A=10.213.58.1
SRV_B=10.213.59.1
BIND=10.213.61.53

for n in "$NS_S" "$NS_A1" "$NS_A2" "$NS_B"; do kv_netns_add "$n"; done
ip -n "$NS_S" link add "$BR" type bridge || { echo "FAIL: cannot create bridge"; exit 1; }
ip -n "$NS_S" link set "$BR" up
ip -n "$NS_S" addr add "$SRV_A/24" dev "$BR"
kv_veth "$NS_S" "$IF_A1S" "$NS_A1" "$IF_A1C"
kv_veth "$NS_S" "$IF_A2S" "$NS_A2" "$IF_A2C"
ip -n "$NS_S" link set "$IF_A1S" master "$BR"
ip -n "$NS_S" link set "$IF_A2S" master "$BR"
kv_veth "$NS_S" "$IF_BS" "$NS_B" "$IF_BC"
ip -n "$NS_S" addr add "$SRV_B/24" dev "$IF_BS"
ip -n "$NS_S" addr add "$BIND/32" dev lo
mac_hex() { echo 01$(ip -n "$1" -o link show "$2" | sed -n 's/.*link\/ether \([0-9a-f:]*\).*/\1/p' | tr -d : | tr a-f A-F); }
HEX_A1=$(mac_hex "$NS_A1" "$IF_A1C")
HEX_A2=$(mac_hex "$NS_A2" "$IF_A2C")

DIR=$KV_TMP/prog
OUT=$KV_TMP/korvane.out
mkdir -p "$DIR"
printf 'Name: ns1.kvtest\nHostsTTL: 3600\nDNSBind: %s\n' "$BIND" >"$DIR/korvane.ini"
printf '; no root hints in this test\n' >"$DIR/named.root"
cat >"$DIR/named.perm" <<EOF
; Korvane Permanent Records
a.kvtest. 1800 DHCP 10.213.58.1 10.213.58.3 255.255.255.0 10.213.58.254
b.kvtest. 600 DHCP 10.213.59.100 10.213.59.150 255.255.255.0 0.0.0.0
c.kvtest. 600 DHCP 10.213.60.100 10.213.60.150 255.255.255.0 10.213.60.1
EOF

kv_start_korvane "$DIR" "$OUT" "$NS_S"
PID=$KV_PID
kv_check "log \"DNS service started on $BIND\"" kv_has_line "$OUT" "DNS service started on $BIND"
kv_check "log \"DHCP service started on $SRV_A\"" kv_wait_grep "$OUT" "DHCP service started on $SRV_A" 1 5
kv_check "log \"DHCP service started on $SRV_B\"" kv_wait_grep "$OUT" "DHCP service started on $SRV_B" 1 5
n=$(kv_count "$OUT" "DHCP service started on")
kv_check "the pool outside the machine's networks starts nothing ($n DHCP services)" [ "$n" -eq 2 ]

kv_dhcp_script "$KV_TMP/a1.sh" "$KV_TMP/a1"
kv_dhcp_script "$KV_TMP/a2.sh" "$KV_TMP/a2"
kv_dhcp_script "$KV_TMP/a3.sh" "$KV_TMP/a3"
kv_dhcp_script "$KV_TMP/b.sh" "$KV_TMP/b"

# --- two clients without client identifier and without host name
ip netns exec "$NS_A1" udhcpc -f -C -i "$IF_A1C" -s "$KV_TMP/a1.sh" -t 5 -T 2 -A 2 >"$KV_TMP/a1.out" 2>&1 &
A1PID=$!
kv_track "$A1PID"
kv_wait_grep "$KV_TMP/a1.events" bound 1 20 || kv_fail "A1 got no lease"
IP_A1=$(kv_env_val "$KV_TMP/a1.bound" ip)
ip netns exec "$NS_A2" udhcpc -f -q -n -C -i "$IF_A2C" -s "$KV_TMP/a2.sh" -t 5 -T 2 >"$KV_TMP/a2.out" 2>&1
rc=$?
IP_A2=$(kv_env_val "$KV_TMP/a2.bound" ip)
kv_check "A2 got a lease (rc $rc)" [ "$rc" -eq 0 ]
kv_check "nameless clients without identifier get different addresses ('$IP_A1', '$IP_A2')" \
    [ -n "$IP_A1" -a -n "$IP_A2" -a "$IP_A1" != "$IP_A2" ]
kv_check "the server's own address $SRV_A is not handed out" \
    [ "$IP_A1" != "$SRV_A" -a "$IP_A2" != "$SRV_A" ]
kv_check "A1 gets the lowest free pool address 10.213.58.2 (got '$IP_A1')" [ "$IP_A1" = 10.213.58.2 ]
U=$KV_TMP/a1.bound
kv_check "pool a: router 10.213.58.254" [ "$(kv_env_val "$U" router)" = 10.213.58.254 ]
kv_check "pool a: domain a.kvtest" [ "$(kv_env_val "$U" domain)" = a.kvtest ]
kv_check "pool a: lease time 1800" [ "$(kv_env_val "$U" lease)" = 1800 ]
kv_check "pool a: server id $SRV_A" [ "$(kv_env_val "$U" serverid)" = "$SRV_A" ]
kv_check "pool a: DNS server is the DNSBind address $BIND" [ "$(kv_env_val "$U" dns)" = "$BIND" ]

# The second grant must not have taken the first client's lease: A1 renews the same address.
kill -USR1 "$A1PID"
if kv_wait_grep "$KV_TMP/a1.events" renew 1 20; then
    kv_check "A1 renews $IP_A1 after A2's lease" [ "$(kv_env_val "$KV_TMP/a1.renew" ip)" = "$IP_A1" ]
else
    kv_fail "A1's renewal got no answer"
fi
kv_check "log \"DHCP Renewal Request from  for $IP_A1\"" kv_has_line "$OUT" "DHCP Renewal Request from  for $IP_A1"

# --- the other interface answers from its own pool, without a router
ip netns exec "$NS_B" udhcpc -f -q -n -i "$IF_BC" -s "$KV_TMP/b.sh" -t 5 -T 2 -x hostname:kvb1 >"$KV_TMP/b.out" 2>&1
rc=$?
U=$KV_TMP/b.bound
kv_check "B got a lease (rc $rc)" [ "$rc" -eq 0 ]
kv_check "pool b: address 10.213.59.100 (got '$(kv_env_val "$U" ip)')" [ "$(kv_env_val "$U" ip)" = 10.213.59.100 ]
kv_check "pool b: no router option" bash -c '! grep -q "^router=" "$1"' _ "$U"
kv_check "pool b: domain b.kvtest" [ "$(kv_env_val "$U" domain)" = b.kvtest ]
kv_check "pool b: lease time 600" [ "$(kv_env_val "$U" lease)" = 600 ]
kv_check "pool b: server id $SRV_B" [ "$(kv_env_val "$U" serverid)" = "$SRV_B" ]
kv_check "pool b: DNS server is the DNSBind address $BIND" [ "$(kv_env_val "$U" dns)" = "$BIND" ]
kv_check "no pool-a offer went to B's DISCOVER" \
    bash -c '! grep -q "Sending DHCP Offer to kvb1 for 10.213.58" "$1"' _ "$OUT"

# A leased name of a domain the server holds no zone for is answered at once from the lease.
KV_DIG=(@"$BIND" +time=2 +tries=1)
KV_DIG_NS=$NS_S
r=$(kv_dig kvb1.b.kvtest A)
kv_check "A kvb1.b.kvtest -> 10.213.59.100 (no zone, lease only)" \
    [ "$(kv_section "$r" ANSWER)" = "kvb1.b.kvtest. IN A 10.213.59.100" ]

# --- pool a is full (.1 is the server's, .2 and .3 leased): a third client gets nothing
offers=$(kv_count "$OUT" "Sending DHCP Offer")
ip netns exec "$NS_A2" udhcpc -f -q -n -i "$IF_A2C" -s "$KV_TMP/a3.sh" -t 2 -T 1 \
    -x 0x3d:01aabbccdd0099 >"$KV_TMP/a3.out" 2>&1
rc=$?
kv_check "third client on the full pool gets no lease (rc $rc)" [ "$rc" -ne 0 ]
kv_check "full pool: DISCOVER logged, no offer sent" \
    bash -c '[ "$(grep -cF "Sending DHCP Offer" "$1")" -eq "$2" ] && grep -qF "DHCP Discovery from " "$1"' _ "$OUT" "$offers"
kv_check "the server's address was never offered" bash -c '! grep -q "for 10\.213\.58\.1$" "$1"' _ "$OUT"

# --- both nameless leases are in the lease file, each under its hardware identity
kv_stop_korvane "$PID"
kv_check "SIGTERM: exit status 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
has() { tr -d '\r' <"$DIR/dhcp.dat" | grep -qE "^ ${1//./\\.} $2 [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}\$"; }
kv_check "dhcp.dat: \" $IP_A1 $HEX_A1 <expiry>\"" has "$IP_A1" "$HEX_A1"
kv_check "dhcp.dat: \" $IP_A2 $HEX_A2 <expiry>\"" has "$IP_A2" "$HEX_A2"

kill "$A1PID" 2>/dev/null
kv_finish
