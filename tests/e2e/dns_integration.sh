#!/usr/bin/env bash
# The real server on a loopback port with its own zone: answers, log lines,
# cache file read and written, reload on SIGHUP, clean exit on SIGTERM.
# Needs no root: the DNS service runs on a free high port.
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" integration
kv_need_tool dig python3

DIR=$KV_TMP/prog
OUT=$KV_TMP/korvane.out
mkdir -p "$DIR"

cat >"$DIR/korvane.ini" <<'EOF'
Name: ns1.kvtest.example
HostsTTL: 3600
WriteLog: YES
EOF
# Hints only; none are needed for the own zone and none may leave loopback.
printf '; no root hints in this test\n' >"$DIR/named.root"
cat >"$DIR/named.perm" <<'EOF'
; Korvane Permanent Records
kvtest.example. 3600 SOA ns1.kvtest.example. hostmaster.kvtest.example. 7 3600 900 604800 300
kvtest.example. 3600 NS ns1.kvtest.example.
kvtest.example. 3600 MX 10 mail.kvtest.example.
ns1.kvtest.example. 3600 A 10.9.0.1
www.kvtest.example. 1800 A 10.9.0.2
mail.kvtest.example. 3600 A 10.9.0.3
printer.kvtest.example. 3600 A 10.9.0.4
alias.kvtest.example. 3600 CNAME www.kvtest.example.
EOF
# A cache file 100 s old: one entry still valid, one already expired.
cat >"$DIR/named.cache" <<'EOF'
; Korvane - Cache
; CACHE-TIME 2000-01-01 00:00:00
;
cached.elsewhere.test. 5000 A 10.7.7.7
gone.elsewhere.test. 50 A 10.7.7.8
EOF
touch -d '100 seconds ago' "$DIR/named.cache"

# --- a bad option is refused before anything starts
"$KV_BIN" --headless --dir "$DIR" --no-such-option >"$KV_TMP/badopt.out" 2>&1
rc=$?
kv_check "bad option exits with status 2 (got $rc)" [ "$rc" -eq 2 ]
kv_check "bad option prints a usage text" grep -qi 'usage' "$KV_TMP/badopt.out"

PORT=$(kv_free_udp_port)
kv_start_korvane "$DIR" "$OUT" "" --dns-port "$PORT"
PID=$KV_PID
KV_DIG=(@127.0.0.1 -p "$PORT" +time=2 +tries=1)

kv_check "start-up line \"DNS service started.\" on standard output" kv_has_line "$OUT" "DNS service started."
kv_check "log lines carry the \"yyyy-mm-dd hh:mm:ss  \" stamp" grep -qE "${KV_STAMP}DNS service started\.$" "$OUT"

# --- A record of the own zone: authoritative
r=$(kv_dig www.kvtest.example A)
kv_check "A: status NOERROR" [ "$(kv_status "$r")" = NOERROR ]
kv_check "A: aa flag set" kv_has_flag "$r" aa
kv_check "A: answer is www A 10.9.0.2" [ "$(kv_section "$r" ANSWER)" = "www.kvtest.example. IN A 10.9.0.2" ]
kv_check "A: TTL of the permanent record is 1800" [ "$(kv_ttl_of "$r" www.kvtest.example. A)" = 1800 ]
kv_check "A: rd copied, ra set" bash -c '[[ " $1 " == *" rd "* && " $1 " == *" ra "* ]]' _ "$(kv_flags "$r")"
kv_check "A: log \"Request from 127.0.0.1 for A-record for www.kvtest.example.\"" \
    kv_wait_grep "$OUT" "Request from 127.0.0.1 for A-record for www.kvtest.example." 1 5
kv_check "A: log \"Sending reply to ... about A-record for www.kvtest.example.:\"" \
    kv_has_line "$OUT" "Sending reply to 127.0.0.1 about A-record for www.kvtest.example.:"
kv_check "A: log \"-> Answer: A-record for www.kvtest.example. = 10.9.0.2\"" \
    kv_has_line "$OUT" "-> Answer: A-record for www.kvtest.example. = 10.9.0.2"

# --- upper-case question: names are compared in lower case
r=$(kv_dig WWW.KvTest.Example A)
kv_check "mixed-case question answered" bash -c 'grep -q "10.9.0.2" <<<"$1"' _ "$(kv_section "$r" ANSWER)"

# --- CNAME followed inside the own zone
r=$(kv_dig alias.kvtest.example A)
ans=$(kv_section "$r" ANSWER)
kv_check "CNAME: status NOERROR, aa" bash -c '[ "$1" = NOERROR ] && [[ " $2 " == *" aa "* ]]' _ "$(kv_status "$r")" "$(kv_flags "$r")"
kv_check "CNAME: answer holds the alias then the target's A" \
    [ "$ans" = $'alias.kvtest.example. IN CNAME www.kvtest.example.\nwww.kvtest.example. IN A 10.9.0.2' ]
kv_check "CNAME: log \"-> Answer: CNAME-record for alias.kvtest.example. = www.kvtest.example.\"" \
    kv_has_line "$OUT" "-> Answer: CNAME-record for alias.kvtest.example. = www.kvtest.example."

# --- MX with the exchanger's address in the additional section
r=$(kv_dig kvtest.example MX)
kv_check "MX: answer 10 mail.kvtest.example." [ "$(kv_section "$r" ANSWER)" = "kvtest.example. IN MX 10 mail.kvtest.example." ]
kv_check "MX: additional holds mail A 10.9.0.3" \
    bash -c 'grep -qxF "mail.kvtest.example. IN A 10.9.0.3" <<<"$1"' _ "$(kv_section "$r" ADDITIONAL)"
kv_check "MX: log \"-> Additional: A-record for mail.kvtest.example. = 10.9.0.3\"" \
    kv_has_line "$OUT" "-> Additional: A-record for mail.kvtest.example. = 10.9.0.3"

# --- reverse look-up from the PTR made out of the A record
r=$(kv_dig -x 10.9.0.2)
kv_check "PTR: status NOERROR" [ "$(kv_status "$r")" = NOERROR ]
kv_check "PTR: 2.0.9.10.in-addr.arpa. -> www.kvtest.example." \
    [ "$(kv_section "$r" ANSWER)" = "2.0.9.10.in-addr.arpa. IN PTR www.kvtest.example." ]
kv_check "PTR: log \"-> Answer: PTR-record for 10.9.0.2 = www.kvtest.example.\"" \
    kv_has_line "$OUT" "-> Answer: PTR-record for 10.9.0.2 = www.kvtest.example."

# --- a name of the own zone that does not exist
r=$(kv_dig nothere.kvtest.example A)
kv_check "NXDOMAIN for an unknown own-zone name" [ "$(kv_status "$r")" = NXDOMAIN ]
kv_check "NXDOMAIN: aa flag set" kv_has_flag "$r" aa
kv_check "NXDOMAIN: no answer records" [ -z "$(kv_section "$r" ANSWER)" ]
kv_check "NXDOMAIN: log \"-> Header: Name does not exist!\"" kv_has_line "$OUT" "-> Header: Name does not exist!"

# --- a name that exists but has no record of the asked type
r=$(kv_dig www.kvtest.example MX)
auth=$(kv_section "$r" AUTHORITY)
kv_check "NODATA: status NOERROR, aa, empty answer" \
    bash -c '[ "$1" = NOERROR ] && [[ " $2 " == *" aa "* ]] && [ -z "$3" ]' _ "$(kv_status "$r")" "$(kv_flags "$r")" "$(kv_section "$r" ANSWER)"
kv_check "NODATA: the zone's SOA or NS record in authority" \
    bash -c 'grep -qE "^kvtest\.example\. IN (SOA ns1\.kvtest\.example\. hostmaster\.kvtest\.example\. 7 3600 900 604800 300|NS ns1\.kvtest\.example\.)$" <<<"$1"' _ "$auth"

# --- a type the server does not implement
r=$(kv_dig +noedns www.kvtest.example TXT)
kv_check "TXT: status NOTIMP" [ "$(kv_status "$r")" = NOTIMP ]
kv_check "TXT: question echoed, no records" \
    bash -c 'grep -q "QUERY: 1, ANSWER: 0, AUTHORITY: 0, ADDITIONAL: 0" <<<"$1"' _ "$r"
kv_check "TXT: log \"Request from 127.0.0.1 for TXT-record for www.kvtest.example.\"" \
    kv_has_line "$OUT" "Request from 127.0.0.1 for TXT-record for www.kvtest.example."
kv_check "TXT: log \"Sending answer to 127.0.0.1 about TXT-record for www.kvtest.example.\"" \
    kv_has_line "$OUT" "Sending answer to 127.0.0.1 about TXT-record for www.kvtest.example."
kv_check "TXT: log \"-> Error 4: Not implemented.\"" kv_has_line "$OUT" "-> Error 4: Not implemented."

# --- the cache file read at start, aged by its modification time
r=$(kv_dig +norec cached.elsewhere.test A)
ttl=$(kv_ttl_of "$r" cached.elsewhere.test. A)
kv_check "cache: cached.elsewhere.test A 10.7.7.7 served from the loaded cache" \
    [ "$(kv_section "$r" ANSWER)" = "cached.elsewhere.test. IN A 10.7.7.7" ]
kv_check "cache: not authoritative" bash -c '! [[ " $1 " == *" aa "* ]]' _ "$(kv_flags "$r")"
kv_check "cache: TTL aged by the file's age (4800 < $ttl <= 4900)" \
    bash -c '[ -n "$1" ] && [ "$1" -gt 4800 ] && [ "$1" -le 4900 ]' _ "$ttl"
r=$(kv_dig +norec gone.elsewhere.test A)
kv_check "cache: an entry older than its TTL is not loaded" \
    bash -c '[ "$1" = NOERROR ] && [ -z "$2" ]' _ "$(kv_status "$r")" "$(kv_section "$r" ANSWER)"

# --- SIGHUP reloads the records: one added, one removed
r=$(kv_dig new.kvtest.example A)
kv_check "before reload: new.kvtest.example is NXDOMAIN" [ "$(kv_status "$r")" = NXDOMAIN ]
echo "new.kvtest.example. 600 A 10.9.0.9" >>"$DIR/named.perm"
sed -i '/^printer\./d' "$DIR/named.perm"
loads=$(kv_count "$OUT" "Loading permanent records...")
kill -HUP "$PID"
kv_check "SIGHUP: \"Loading permanent records...\" logged again" \
    kv_wait_grep "$OUT" "Loading permanent records..." $((loads + 1)) 10
sleep 0.3
kv_check "SIGHUP: process still running" kill -0 "$PID"
r=$(kv_dig new.kvtest.example A)
kv_check "after reload: the added record is answered" \
    bash -c '[ "$1" = "new.kvtest.example. IN A 10.9.0.9" ] && [[ " $2 " == *" aa "* ]]' _ "$(kv_section "$r" ANSWER)" "$(kv_flags "$r")"
r=$(kv_dig printer.kvtest.example A)
kv_check "after reload: the removed record is gone (NXDOMAIN)" [ "$(kv_status "$r")" = NXDOMAIN ]
r=$(kv_dig -x 10.9.0.4)
kv_check "after reload: the removed record's PTR is gone too" [ -z "$(kv_section "$r" ANSWER)" ]
r=$(kv_dig www.kvtest.example A)
kv_check "after reload: www still answered once (no duplicate)" \
    [ "$(kv_section "$r" ANSWER)" = "www.kvtest.example. IN A 10.9.0.2" ]
r=$(kv_dig +norec cached.elsewhere.test A)
kv_check "after reload: cached entries survive" \
    [ "$(kv_section "$r" ANSWER)" = "cached.elsewhere.test. IN A 10.7.7.7" ]

# --- the daily log file
logf=$(ls "$DIR"/logs/*.log 2>/dev/null | head -n1)
kv_check "log file logs/yyyymmdd.log written" bash -c '[[ "$(basename "$1")" =~ ^[0-9]{8}\.log$ ]]' _ "$logf"
crlf_line() { grep -qF "Request from 127.0.0.1 for A-record for www.kvtest.example."$'\r' "$1"; }
kv_check "log file lines end in CR LF" crlf_line "$logf"

# --- SIGTERM: orderly close, cache file written
rm -f "$DIR/named.cache"
kv_stop_korvane "$PID"
kv_check "SIGTERM: exit status 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
CACHE=$DIR/named.cache
kv_check "SIGTERM: named.cache written" [ -f "$CACHE" ]
kv_check "named.cache line 1 is \"; Korvane - Cache\"" [ "$(sed -n 1p "$CACHE" | tr -d '\r')" = "; Korvane - Cache" ]
kv_check "named.cache line 2 is \"; CACHE-TIME yyyy-mm-dd hh:mm:ss\"" \
    bash -c 'sed -n 2p "$1" | tr -d "\r" | grep -qE "^; CACHE-TIME [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}$"' _ "$CACHE"
kv_check "named.cache line 3 is \";\"" [ "$(sed -n 3p "$CACHE" | tr -d '\r')" = ";" ]
cl=$(grep -F 'cached.elsewhere.test.' "$CACHE" | tr -d '\r')
kv_check "named.cache keeps \"cached.elsewhere.test. <ttl> A 10.7.7.7\" with the remaining TTL" \
    bash -c '[[ "$1" =~ ^cached\.elsewhere\.test\.\ ([0-9]+)\ A\ 10\.7\.7\.7$ ]] && [ "${BASH_REMATCH[1]}" -le 4900 ] && [ "${BASH_REMATCH[1]}" -gt 4700 ]' _ "$cl"
kv_check "named.cache holds no permanent records" bash -c '! grep -q "kvtest.example" "$1"' _ "$CACHE"

kv_finish
