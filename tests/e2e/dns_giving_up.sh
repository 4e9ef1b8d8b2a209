#!/usr/bin/env bash
# A name that cannot be resolved is answered SERVFAIL with a line saying why:
# a silent forwarder after its time-outs, a forwarder without a route or with
# a closed port at once, and a forwarder that is this server (NS: 127.0.0.1)
# at once, logged once as a loop and never asked.
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" givingup
kv_need_root
kv_need_tool dig python3

NS=kvt-giveup-$$
kv_netns_add "$NS"

# A server on 127.0.0.2:53 that reads every query and never answers.
ip netns exec "$NS" python3 -c '
import socket
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.bind(("127.0.0.2", 53))
open("'"$KV_TMP"'/silent.ready", "w").close()
while True:
    s.recvfrom(4096)
' &
SILENT=$!
kv_track "$SILENT"
for i in $(seq 1 50); do [ -e "$KV_TMP/silent.ready" ] && break; sleep 0.1; done

DIR=$KV_TMP/prog
OUT=$KV_TMP/korvane.out
mkdir -p "$DIR"
printf '; no root hints\n' >"$DIR/named.root"
printf 'home.lan. 3600 SOA ns.home.lan. hostmaster.home.lan. 1 3600 900 604800 300\n' >"$DIR/named.perm"

# run_with <forwarder> [bind]: Korvane on port 53 of `bind` (all addresses
# when empty) forwarding to <forwarder>; dig asks 127.0.0.1.
run_with() {
    printf 'Name: ns.home.lan\nRecursionOut: YES\nNS: %s\n' "$1" >"$DIR/korvane.ini"
    [ -n "$2" ] && printf 'DNSBind: %s\n' "$2" >>"$DIR/korvane.ini"
    kv_start_dns_in_ns "$DIR" "$OUT" "$NS"
}
stop() { kv_stop_korvane "$PID"; }
gave_up() { grep -E "$KV_STAMP" "$OUT" | cut -c22- | tr -d '\r' | grep -F "Gave up on A-record for $1: "; }

# --- silent: two seconds for the server, ten more, then SERVFAIL
run_with 127.0.0.2 127.0.0.1
r=$(kv_dig +time=20 silent.example.org A)
kv_check "silent forwarder: SERVFAIL" [ "$(kv_status "$r")" = SERVFAIL ]
line=$(gave_up silent.example.org.)
kv_check "silent forwarder: \"$line\"" \
    bash -c '[[ "$1" =~ ^Gave\ up\ on\ A-record\ for\ silent\.example\.org\.:\ no\ answer\ from\ 1\ server\ in\ 1[0-5]\ s\.$ ]]' _ "$line"
kv_check "the answer's header is logged" kv_has_line "$OUT" "-> Header: Server Failure."
stop

# --- no route inside the namespace: at once (dig waits 3 s, the old way took 10)
run_with 192.0.2.1 127.0.0.1
r=$(kv_dig +time=3 noroute.example.org A)
kv_check "unreachable forwarder: SERVFAIL within dig's 3 s" [ "$(kv_status "$r")" = SERVFAIL ]
kv_check "logged: XR-WS Error 101 Network is unreachable" \
    kv_has_line "$OUT" "XR-WS Error 101 Network is unreachable"
kv_check "logged why" kv_has_line "$OUT" \
    "Gave up on A-record for noroute.example.org.: 1 server failed (Network is unreachable)."
stop

# --- a closed port answers with an ICMP error: at once too
run_with 127.0.0.3 127.0.0.1
r=$(kv_dig +time=3 closed.example.org A)
kv_check "closed port: SERVFAIL within dig's 3 s" [ "$(kv_status "$r")" = SERVFAIL ]
kv_check "logged why" kv_has_line "$OUT" \
    "Gave up on A-record for closed.example.org.: 1 server failed (Connection refused)."
stop

# --- NS: 127.0.0.1 is this server itself (bound to all addresses)
kill "$SILENT"; wait "$SILENT" 2>/dev/null; kv_untrack "$SILENT"
run_with 127.0.0.1
for n in 1 2 3; do
    r=$(kv_dig +time=3 "loop$n.example.org" A)
    kv_check "loop $n: SERVFAIL within dig's 3 s" [ "$(kv_status "$r")" = SERVFAIL ]
done
kv_check "the loop is logged once" [ "$(kv_count "$OUT" "Forwarding loop: 127.0.0.1 is this server.")" = 1 ]
kv_check "this server is never asked" [ "$(kv_count "$OUT" "Sending request to 127.0.0.1")" = 0 ]
kv_check "logged why" kv_has_line "$OUT" \
    "Gave up on A-record for loop1.example.org.: 1 server failed (forwarding loop)."
kv_check "no more than the three requests were logged" \
    [ "$(kv_count "$OUT" "Request from 127.0.0.1 for A-record for loop")" = 3 ]
stop
kv_finish
