#!/usr/bin/env bash
# Real DHCP clients against the server on the normal ports (DNS 53, DHCP 67),
# in network namespaces: busybox udhcpc and ISC dhclient each get a lease with
# the pool's options; the leased names answer in DNS; leases survive kill -9,
# a clean restart and a renewal; a RELEASE ends a lease.
#
#   server ns: bridge 10.213.57.1/24, one veth port per client
#   client ns 1: udhcpc, host name kvhost1, own client identifier
#   client ns 2: dhclient, host name kvhost2, no client identifier (its default)
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" dhcpcli
kv_need_root
kv_need_tool udhcpc dhclient dig ip

NS_S=kvdcs$$
NS_1=kvdc1$$
NS_2=kvdc2$$
BR=kvdb$$
IF_1S=kvd1s$$; IF_1C=kvd1c$$
IF_2S=kvd2s$$; IF_2C=kvd2c$$
SRV=10.213.57.1
NET=10.213.57
GW=10.213.57.254
DOMAIN=office.kvtest

kv_netns_add "$NS_S"
kv_netns_add "$NS_1"
kv_netns_add "$NS_2"
ip -n "$NS_S" link add "$BR" type bridge || { echo "FAIL: cannot create bridge"; exit 1; }
ip -n "$NS_S" link set "$BR" up
ip -n "$NS_S" addr add "$SRV/24" dev "$BR"
kv_veth "$NS_S" "$IF_1S" "$NS_1" "$IF_1C"
kv_veth "$NS_S" "$IF_2S" "$NS_2" "$IF_2C"
ip -n "$NS_S" link set "$IF_1S" master "$BR"
ip -n "$NS_S" link set "$IF_2S" master "$BR"
MAC1=$(ip -n "$NS_1" -o link show "$IF_1C" | sed -n 's/.*link\/ether \([0-9a-f:]*\).*/\1/p')
MAC2=$(ip -n "$NS_2" -o link show "$IF_2C" | sed -n 's/.*link\/ether \([0-9a-f:]*\).*/\1/p')
HEX1=01$(tr -d : <<<"$MAC1" | tr a-f A-F)   # udhcpc's client identifier: type 1 + MAC
HEX2=01$(tr -d : <<<"$MAC2" | tr a-f A-F)   # dhclient sends none: known by htype + MAC

DIR=$KV_TMP/prog
OUT=$KV_TMP/korvane.out
mkdir -p "$DIR"
printf 'Name: ns1.%s\nHostsTTL: 3600\n' "$DOMAIN" >"$DIR/korvane.ini"
printf '; no root hints in this test\n' >"$DIR/named.root"
cat >"$DIR/named.perm" <<EOF
; Korvane Permanent Records
$DOMAIN. 3600 SOA ns1.$DOMAIN. hostmaster.$DOMAIN. 1 3600 900 604800 300
$DOMAIN. 3600 NS ns1.$DOMAIN.
ns1.$DOMAIN. 3600 A $SRV
57.213.10.in-addr.arpa. 3600 SOA ns1.$DOMAIN. hostmaster.$DOMAIN. 1 3600 900 604800 300
57.213.10.in-addr.arpa. 3600 NS ns1.$DOMAIN.
$DOMAIN. 3600 DHCP $NET.100 $NET.150 255.255.255.0 $GW
EOF

start() {
    kv_start_korvane "$DIR" "$OUT" "$NS_S"
    PID=$KV_PID
    kv_wait_grep "$OUT" "DHCP service started on $SRV" "$1" 5 ||
        { echo "FAIL: no \"DHCP service started on $SRV\""; tail -n 20 "$OUT"; exit 1; }
}
start 1
kv_pass "log \"DHCP service started on $SRV\""

# Lines "<name> <ip> <client-id hex> yyyy-mm-dd hh:mm:ss" of the lease file.
lease_line() { tr -d '\r' <"$DIR/dhcp.dat" | grep -E "^${1//./\\.} ${2//./\\.} $3 [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\$"; }
has_lease() { lease_line "$@" >/dev/null; }
lease_expiry() { lease_line "$@" | cut -d' ' -f4-; }
# Seconds from now to the lease's expiry.
lease_left() {
    local e; e=$(lease_expiry "$@" | tail -n1)
    [ -n "$e" ] && echo $(($(date -d "$e" +%s) - $(date +%s)))
}
between() { [ -n "$1" ] && [ "$1" -ge "$2" ] && [ "$1" -le "$3" ]; }
answers() {   # answers <dig-output> <expected answer line>
    [ "$(kv_section "$1" ANSWER)" = "$2" ]
}

# --- udhcpc: full DORA with a host name and its own client identifier
kv_dhcp_script "$KV_TMP/udhcpc.sh" "$KV_TMP/u1"
ip netns exec "$NS_1" udhcpc -f -i "$IF_1C" -s "$KV_TMP/udhcpc.sh" -t 5 -T 2 -A 2 \
    -x hostname:kvhost1 >"$KV_TMP/udhcpc.out" 2>&1 &
UPID=$!
kv_track "$UPID"
kv_wait_grep "$KV_TMP/u1.events" bound 1 20 || { kv_fail "udhcpc got no lease"; cat "$KV_TMP/udhcpc.out"; kv_finish; }
U=$KV_TMP/u1.bound
IP1=$(kv_env_val "$U" ip)
kv_check "udhcpc: first pool address $NET.100 (got '$IP1')" [ "$IP1" = "$NET.100" ]
kv_check "udhcpc: mask 255.255.255.0" [ "$(kv_env_val "$U" subnet)" = 255.255.255.0 ]
kv_check "udhcpc: router $GW" [ "$(kv_env_val "$U" router)" = "$GW" ]
kv_check "udhcpc: DNS server $SRV" [ "$(kv_env_val "$U" dns)" = "$SRV" ]
kv_check "udhcpc: domain $DOMAIN" [ "$(kv_env_val "$U" domain)" = "$DOMAIN" ]
kv_check "udhcpc: lease time 3600" [ "$(kv_env_val "$U" lease)" = 3600 ]
kv_check "udhcpc: server id $SRV" [ "$(kv_env_val "$U" serverid)" = "$SRV" ]
kv_check "udhcpc: host name echoed" [ "$(kv_env_val "$U" hostname)" = kvhost1 ]
for l in "DHCP Discovery from kvhost1" "Sending DHCP Offer to kvhost1 for $NET.100" \
         "DHCP Lease Request from kvhost1 for $NET.100" "Sending DHCP Acknowledgement to kvhost1 for $NET.100"; do
    kv_check "log \"$l\"" kv_has_line "$OUT" "$l"
done

# --- dhclient with its default settings: a host name, no client identifier
cat >"$KV_TMP/dhclient.conf" <<EOF
send host-name "kvhost2";
request subnet-mask, broadcast-address, routers, domain-name-servers, domain-name, host-name;
timeout 30;
retry 1;
reboot 3;
EOF
kv_dhcp_script "$KV_TMP/dhclient.sh" "$KV_TMP/d2"
DHC=(-cf "$KV_TMP/dhclient.conf" -sf "$KV_TMP/dhclient.sh" -lf "$KV_TMP/dhclient.leases" -pf "$KV_TMP/dhclient.pid")
ip netns exec "$NS_2" dhclient -1 -v "${DHC[@]}" "$IF_2C" >"$KV_TMP/dhclient.out" 2>&1
rc=$?
kv_check "dhclient: got a lease (rc $rc)" [ "$rc" -eq 0 ]
D=$KV_TMP/d2.BOUND
kv_track "$(cat "$KV_TMP/dhclient.pid" 2>/dev/null)"
IP2=$(kv_env_val "$D" new_ip_address)
kv_check "dhclient: next pool address $NET.101 (got '$IP2')" [ "$IP2" = "$NET.101" ]
kv_check "dhclient: mask 255.255.255.0" [ "$(kv_env_val "$D" new_subnet_mask)" = 255.255.255.0 ]
kv_check "dhclient: router $GW" [ "$(kv_env_val "$D" new_routers)" = "$GW" ]
kv_check "dhclient: DNS server $SRV" [ "$(kv_env_val "$D" new_domain_name_servers)" = "$SRV" ]
kv_check "dhclient: domain $DOMAIN" [ "$(kv_env_val "$D" new_domain_name)" = "$DOMAIN" ]
kv_check "dhclient: lease time 3600" [ "$(kv_env_val "$D" new_dhcp_lease_time)" = 3600 ]
kv_check "dhclient: server id $SRV" [ "$(kv_env_val "$D" new_dhcp_server_identifier)" = "$SRV" ]
kv_check "log \"Sending DHCP Acknowledgement to kvhost2 for $NET.101\"" \
    kv_has_line "$OUT" "Sending DHCP Acknowledgement to kvhost2 for $NET.101"

# --- the leased names answer in DNS, asked from the client with the offered server
KV_DIG=(@"$SRV" +time=2 +tries=1)
KV_DIG_NS=$NS_1
r=$(kv_dig kvhost1.$DOMAIN A)
kv_check "A kvhost1.$DOMAIN -> $NET.100" answers "$r" "kvhost1.$DOMAIN. IN A $NET.100"
r=$(kv_dig -x "$NET.100")
kv_check "PTR $NET.100 -> kvhost1.$DOMAIN" answers "$r" "100.57.213.10.in-addr.arpa. IN PTR kvhost1.$DOMAIN."
r=$(kv_dig kvhost2.$DOMAIN A)
kv_check "A kvhost2.$DOMAIN -> $NET.101" answers "$r" "kvhost2.$DOMAIN. IN A $NET.101"
r=$(kv_dig -x "$NET.101")
kv_check "PTR $NET.101 -> kvhost2.$DOMAIN" answers "$r" "101.57.213.10.in-addr.arpa. IN PTR kvhost2.$DOMAIN."
ttl=$(kv_ttl_of "$r" 101.57.213.10.in-addr.arpa. PTR)
kv_check "PTR TTL is the lease's remaining time (got $ttl)" between "$ttl" 3500 3600
r=$(kv_dig kvhost3.$DOMAIN A)
kv_check "A of a name without a lease: NXDOMAIN" [ "$(kv_status "$r")" = NXDOMAIN ]

# --- kill -9 a couple of seconds after the leases: the lease file already holds them
sleep 2.5
kill -9 "$PID"; wait "$PID" 2>/dev/null; kv_untrack "$PID"
kv_check "dhcp.dat header \"; Korvane - DHCP Leases\" with CR LF" \
    [ "$(head -n1 "$DIR/dhcp.dat" 2>/dev/null)" = $'; Korvane - DHCP Leases\r' ]
kv_check "dhcp.dat: every line ends in CR LF" bash -c '[ -s "$1" ] && ! grep -qv $'"'"'\r$'"'"' "$1"' _ "$DIR/dhcp.dat"
kv_check "after kill -9, dhcp.dat holds kvhost1's lease ($HEX1)" has_lease "kvhost1.$DOMAIN." "$NET.100" "$HEX1"
kv_check "after kill -9, dhcp.dat holds kvhost2's lease ($HEX2)" has_lease "kvhost2.$DOMAIN." "$NET.101" "$HEX2"
left=$(lease_left "kvhost1.$DOMAIN." "$NET.100" "$HEX1")
kv_check "kvhost1's lease expires in about 3600 s (got $left)" between "$left" 3500 3601

# --- the leases come back from the file after the crash
start 2
r=$(kv_dig kvhost1.$DOMAIN A)
kv_check "after restart, A kvhost1.$DOMAIN -> $NET.100 from the lease file" answers "$r" "kvhost1.$DOMAIN. IN A $NET.100"

# --- a clean stop writes the file; a renewal after the next start keeps the address
kv_stop_korvane "$PID"
kv_check "SIGTERM: exit status 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
kv_check "after SIGTERM, dhcp.dat holds kvhost1's lease" has_lease "kvhost1.$DOMAIN." "$NET.100" "$HEX1"
kv_check "after SIGTERM, dhcp.dat holds kvhost2's lease" has_lease "kvhost2.$DOMAIN." "$NET.101" "$HEX2"
start 3
kill -USR1 "$UPID"
if kv_wait_grep "$KV_TMP/u1.events" renew 1 20; then
    kv_check "udhcpc renewal: same address $NET.100" [ "$(kv_env_val "$KV_TMP/u1.renew" ip)" = "$NET.100" ]
else
    kv_fail "udhcpc renewal got no answer"
fi
kv_check "log \"DHCP Renewal Request from kvhost1 for $NET.100\"" \
    kv_has_line "$OUT" "DHCP Renewal Request from kvhost1 for $NET.100"

# dhclient starts again with its lease file and asks for its previous address
kill "$(cat "$KV_TMP/dhclient.pid")" 2>/dev/null
for _ in $(seq 1 30); do kill -0 "$(cat "$KV_TMP/dhclient.pid")" 2>/dev/null || break; sleep 0.1; done
ip -n "$NS_2" addr flush dev "$IF_2C"
rm -f "$KV_TMP/d2.BOUND" "$KV_TMP/d2.REBOOT"
ip netns exec "$NS_2" dhclient -1 -v "${DHC[@]}" "$IF_2C" >>"$KV_TMP/dhclient.out" 2>&1
rc=$?
kv_track "$(cat "$KV_TMP/dhclient.pid" 2>/dev/null)"
ip2=$(kv_env_val "$KV_TMP/d2.BOUND" new_ip_address)
[ -z "$ip2" ] && ip2=$(kv_env_val "$KV_TMP/d2.REBOOT" new_ip_address)
kv_check "dhclient after restart: lease again (rc $rc) with the same address $NET.101 (got '$ip2')" \
    [ "$rc" -eq 0 -a "$ip2" = "$NET.101" ]
kv_check "log \"DHCP Discovery from kvhost2 (Looking for $NET.101)\"" \
    kv_has_line "$OUT" "DHCP Discovery from kvhost2 (Looking for $NET.101)"

# --- RELEASE ends kvhost2's lease and only that one
ip netns exec "$NS_2" dhclient -r -v "${DHC[@]}" "$IF_2C" >>"$KV_TMP/dhclient.out" 2>&1
kv_check "log \"DHCP Release from $NET.101\"" kv_wait_grep "$OUT" "DHCP Release from $NET.101" 1 5
r=$(kv_dig kvhost2.$DOMAIN A)
kv_check "after release, A kvhost2.$DOMAIN: NXDOMAIN, no address" \
    bash -c '[ "$1" = NXDOMAIN ] && ! grep -qF "$2" <<<"$3"' _ "$(kv_status "$r")" "$NET.101" "$(kv_section "$r" ANSWER)"
r=$(kv_dig -x "$NET.101")
kv_check "after release, PTR $NET.101 has no answer" [ -z "$(kv_section "$r" ANSWER)" ]
r=$(kv_dig kvhost1.$DOMAIN A)
kv_check "after release, kvhost1 still answers" answers "$r" "kvhost1.$DOMAIN. IN A $NET.100"

# --- the release reaches the file too
kv_stop_korvane "$PID"
kv_check "final SIGTERM: exit status 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
left=$(lease_left "kvhost2.$DOMAIN." "$NET.101" "$HEX2")
kv_check "released lease stays in dhcp.dat, expired (expiry - now = $left s)" between "$left" -60 0
left=$(lease_left "kvhost1.$DOMAIN." "$NET.100" "$HEX1")
kv_check "renewed lease runs about 3600 s (got $left)" between "$left" 3500 3601

kill "$UPID" 2>/dev/null
kv_finish
