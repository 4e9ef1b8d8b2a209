#!/usr/bin/env bash
# Thousands of hostile datagrams (fixed seed) against the running server, then
# hostile replies to its own forwarded questions; it must stay up, keep
# answering correctly, close cleanly and start again from the cache it wrote.
# As root the fake upstream runs in a private namespace on 127.0.0.2:53 and
# answers the real forwarded queries; without root the replies are sent to the
# service port with guessed IDs.
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" robustness
kv_need_tool dig python3
FUZZ=$(dirname "$(readlink -f "$0")")/lib/dnsfuzz.py
SEED=${KV_FUZZ_SEED:-20240611}
COUNT=${KV_FUZZ_COUNT:-4000}

NS=""
UPSTREAM=""
if [ "$(id -u)" -eq 0 ] && ip netns list >/dev/null 2>&1; then
    NS=kvt-fuzz-$$
    kv_netns_add "$NS"
    UPSTREAM=127.0.0.2
    KV_DIG_NS=$NS
else
    echo "note: not root, hostile replies are sent with guessed IDs"
fi
run() { if [ -n "$NS" ]; then ip netns exec "$NS" "$@"; else "$@"; fi; }

DIR=$KV_TMP/prog
OUT=$KV_TMP/korvane.out
mkdir -p "$DIR"
cat >"$DIR/korvane.ini" <<EOF
Name: ns1.kvtest.example
HostsTTL: 3600
AutoCNAME: YES
RecursionOut: YES
NS: ${UPSTREAM:-127.0.0.1}
EOF
printf '; none\n' >"$DIR/named.root"
cat >"$DIR/named.perm" <<'EOF'
kvtest.example. 3600 SOA ns1.kvtest.example. hostmaster.kvtest.example. 7 3600 900 604800 300
kvtest.example. 3600 NS ns1.kvtest.example.
kvtest.example. 3600 MX 10 mail.kvtest.example.
ns1.kvtest.example. 3600 A 10.9.0.1
www.kvtest.example. 3600 A 10.9.0.2
mail.kvtest.example. 3600 A 10.9.0.3
alias.kvtest.example. 3600 CNAME www.kvtest.example.
loop1.kvtest.example. 3600 CNAME loop2.kvtest.example.
loop2.kvtest.example. 3600 CNAME loop1.kvtest.example.
kvtest.example. 3600 MX 20 loop1.kvtest.example.
EOF

PORT=$(kv_free_udp_port)
kv_start_korvane "$DIR" "$OUT" "$NS" --dns-port "$PORT"
PID=$KV_PID
KV_DIG=(@127.0.0.1 -p "$PORT" +time=3 +tries=2)

good_answer() {
    local r
    r=$(kv_dig www.kvtest.example A)
    [ "$(kv_status "$r")" = NOERROR ] && [ "$(kv_section "$r" ANSWER)" = "www.kvtest.example. IN A 10.9.0.2" ]
}

# Alias cycles in the own records must end, not hang the server.
r=$(kv_dig loop1.kvtest.example A)
kv_check "alias cycle in own records answered without hanging" bash -c '[ -n "$1" ]' _ "$(kv_status "$r")"
r=$(kv_dig kvtest.example MX)
kv_check "MX whose exchanger is an alias cycle answered" bash -c 'grep -q "IN MX 10 mail.kvtest.example." <<<"$1"' _ "$(kv_section "$r" ANSWER)"
kv_check "still alive after the own alias cycles" kill -0 "$PID"

echo "sending $COUNT hostile datagrams (seed $SEED)"
run timeout 500 python3 "$FUZZ" 127.0.0.1 "$PORT" "$SEED" "$COUNT" $UPSTREAM
frc=$?
kv_check "fuzzer: the server answered every check query correctly (rc $frc)" [ "$frc" = 0 ]
kv_check "process still alive after the fuzzing" kill -0 "$PID"
kv_check "a normal query is still answered correctly" good_answer
r=$(kv_dig -x 10.9.0.3)
kv_check "reverse query still answered" [ "$(kv_section "$r" ANSWER)" = "3.0.9.10.in-addr.arpa. IN PTR mail.kvtest.example." ]

kv_stop_korvane "$PID"
kv_check "SIGTERM after fuzzing: exit status 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
kv_check "named.cache written" [ -s "$DIR/named.cache" ]
echo "named.cache after fuzzing: $(wc -l <"$DIR/named.cache") lines"

# The cache file written from hostile data must not stop the next start.
OUT=$KV_TMP/korvane2.out
kv_start_korvane "$DIR" "$OUT" "$NS" --dns-port "$PORT"
PID=$KV_PID
kv_check "restart on the fuzzed cache: a normal query is answered correctly" good_answer
kv_stop_korvane "$PID"
kv_check "second SIGTERM: exit status 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
kv_finish
