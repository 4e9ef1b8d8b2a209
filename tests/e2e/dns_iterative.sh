#!/usr/bin/env bash
# Iterative resolution from the root hints through a tree of NSD servers
# (root, test., example.test., other.test.) in a private namespace; answers,
# NXDOMAIN and NODATA cached; the cache answering alone once the servers are
# gone, before and after a restart.
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" iterative
kv_need_root
kv_need_tool nsd dig

NS=kvt-iter-$$
kv_netns_add "$NS"
kv_nsd_world "$KV_TMP/nsd" "$NS"

DIR=$KV_TMP/prog
OUT=$KV_TMP/korvane.out
mkdir -p "$DIR"
cat >"$DIR/korvane.ini" <<'EOF'
Name: ns.home.lan
DNSBind: 127.0.0.1
HostsTTL: 3600
EOF
cat >"$DIR/named.root" <<'EOF'
; root hints of the test tree
.                    3600000  NS  a.root-servers.net.
a.root-servers.net.  3600000  A   127.0.0.11
EOF
cat >"$DIR/named.perm" <<'EOF'
; Korvane Permanent Records
home.lan. 3600 SOA ns.home.lan. hostmaster.home.lan. 1 3600 900 604800 300
home.lan. 3600 NS ns.home.lan.
ns.home.lan. 3600 A 127.0.0.1
pc1.home.lan. 3600 A 192.168.50.11
EOF

kv_start_dns_in_ns "$DIR" "$OUT" "$NS"
kv_check "log \"DNS service started on 127.0.0.1\"" kv_has_line "$OUT" "DNS service started on 127.0.0.1"

sent() { kv_count "$OUT" "Sending request to "; }
asked() {   # asked <server> <type> <name>: a query to that server was logged (not to the external list)
    grep -E "$KV_STAMP" "$OUT" | cut -c22- |
        grep -E "^Sending request to $1 \([^)]*\) for $2-record for ${3//./\\.}$" | grep -vqF '(external)'
}

# Each query is answered the same three times: from the servers, from the cache
# with the servers stopped, and from the cache file after a restart.
check_answers() {   # check_answers <round label>
    local tag=$1 r

    r=$(kv_dig www.example.test A)
    kv_check "$tag: www.example.test A 10.1.2.3" \
        bash -c '[ "$1" = NOERROR ] && [ "$2" = "www.example.test. IN A 10.1.2.3" ]' _ "$(kv_status "$r")" "$(kv_section "$r" ANSWER)"
    kv_check "$tag: www.example.test answer is not authoritative" bash -c '! [[ " $1 " == *" aa "* ]]' _ "$(kv_flags "$r")"
    local ttl
    ttl=$(kv_ttl_of "$r" www.example.test. A)
    kv_check "$tag: www.example.test TTL within the zone's 300 s (got $ttl)" \
        bash -c '[ -n "$1" ] && [ "$1" -le 300 ] && [ "$1" -gt 200 ]' _ "$ttl"

    r=$(kv_dig alias.example.test A)
    kv_check "$tag: alias.example.test -> CNAME www.example.test. + A 10.1.2.3" \
        [ "$(kv_section "$r" ANSWER)" = $'alias.example.test. IN CNAME www.example.test.\nwww.example.test. IN A 10.1.2.3' ]

    r=$(kv_dig far.example.test A)
    kv_check "$tag: far.example.test -> CNAME web.other.test. + A 10.1.3.7 (alias into another zone)" \
        [ "$(kv_section "$r" ANSWER)" = $'far.example.test. IN CNAME web.other.test.\nweb.other.test. IN A 10.1.3.7' ]

    r=$(kv_dig example.test MX)
    kv_check "$tag: example.test MX 10 mail.example.test." \
        [ "$(kv_section "$r" ANSWER)" = "example.test. IN MX 10 mail.example.test." ]
    kv_check "$tag: MX additional holds mail.example.test A 10.1.2.4" \
        bash -c 'grep -qxF "mail.example.test. IN A 10.1.2.4" <<<"$1"' _ "$(kv_section "$r" ADDITIONAL)"

    r=$(kv_dig nothere.example.test A)
    kv_check "$tag: nothere.example.test NXDOMAIN" [ "$(kv_status "$r")" = NXDOMAIN ]
    kv_check "$tag: NXDOMAIN carries the example.test. SOA in authority" \
        bash -c 'grep -qE "^example\.test\. IN SOA ns1\.example\.test\. hostmaster\.example\.test\. 1 3600 900 604800 60$" <<<"$1"' _ "$(kv_section "$r" AUTHORITY)"

    r=$(kv_dig www.example.test MX)
    kv_check "$tag: www.example.test MX is NODATA (NOERROR, no answer)" \
        bash -c '[ "$1" = NOERROR ] && [ -z "$2" ]' _ "$(kv_status "$r")" "$(kv_section "$r" ANSWER)"
    kv_check "$tag: NODATA carries the example.test. SOA in authority" \
        bash -c 'grep -qE "^example\.test\. IN SOA ns1\.example\.test\. " <<<"$1"' _ "$(kv_section "$r" AUTHORITY)"

    r=$(kv_dig pc1.home.lan A)
    kv_check "$tag: own zone pc1.home.lan A 192.168.50.11, authoritative" \
        bash -c '[ "$1" = "pc1.home.lan. IN A 192.168.50.11" ] && [[ " $2 " == *" aa "* ]]' _ "$(kv_section "$r" ANSWER)" "$(kv_flags "$r")"
    r=$(kv_dig nohost.home.lan A)
    kv_check "$tag: own zone unknown name NXDOMAIN" [ "$(kv_status "$r")" = NXDOMAIN ]
}

# --- round 1: resolved through the servers
check_answers "servers"
kv_check "root server asked for www.example.test (label other than external)" asked 127.0.0.11 A www.example.test.
kv_check "test. server asked for www.example.test" asked 127.0.0.12 A www.example.test.
kv_check "example.test. server asked for www.example.test" asked 127.0.0.13 A www.example.test.
kv_check "other.test. server asked for the alias target web.other.test" asked 127.0.0.14 A web.other.test.
kv_check "log \"Reply from 127.0.0.13 about A-record for www.example.test.:\"" \
    kv_has_line "$OUT" "Reply from 127.0.0.13 about A-record for www.example.test.:"
kv_check "log \"-> Answer: A-record for www.example.test. = 10.1.2.3\"" \
    kv_has_line "$OUT" "-> Answer: A-record for www.example.test. = 10.1.2.3"
kv_check "log \"-> Header: Name does not exist!\" for the NXDOMAIN reply" \
    kv_has_line "$OUT" "-> Header: Name does not exist!"
kv_check "no request for the own zone left the server" bash -c '! grep -q "Sending request to .* home\.lan\.$" "$1"' _ "$OUT"

# --- round 2: the servers are gone; everything must come from the cache
for p in "${KV_NSD_PIDS[@]}"; do kill "$p" 2>/dev/null; done
for p in "${KV_NSD_PIDS[@]}"; do
    for _ in $(seq 1 50); do kill -0 "$p" 2>/dev/null || break; sleep 0.1; done
    kv_untrack "$p"
done
s1=$(sent); q1=$(kv_count "$OUT" "Request from 127.0.0.1 for ")
check_answers "cache"
kv_check "cache: no \"Sending request to \" line while answering from the cache ($s1 -> $(sent))" [ "$(sent)" = "$s1" ]
kv_check "cache: the queries reached the server" [ "$(kv_count "$OUT" "Request from 127.0.0.1 for ")" -ge $((q1 + 8)) ]

# --- round 3: stop, check the cache file, start again and answer from it
kv_stop_korvane "$PID"
kv_check "SIGTERM: exit status 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
C=$KV_TMP/named.cache.first
cp "$DIR/named.cache" "$C"
cline() { tr -d '\r' <"$C" | grep -qE "$1"; }
kv_check "named.cache: www.example.test. A 10.1.2.3" cline '^www\.example\.test\. [0-9]+ A 10\.1\.2\.3$'
kv_check "named.cache: alias.example.test. CNAME www.example.test." cline '^alias\.example\.test\. [0-9]+ CNAME www\.example\.test\.$'
kv_check "named.cache: far.example.test. CNAME web.other.test." cline '^far\.example\.test\. [0-9]+ CNAME web\.other\.test\.$'
kv_check "named.cache: web.other.test. A 10.1.3.7" cline '^web\.other\.test\. [0-9]+ A 10\.1\.3\.7$'
kv_check "named.cache: example.test. MX 10 mail.example.test." cline '^example\.test\. [0-9]+ MX 10 mail\.example\.test\.$'
kv_check "named.cache: example.test. SOA" cline '^example\.test\. [0-9]+ SOA ns1\.example\.test\. hostmaster\.example\.test\. 1 3600 900 604800 60$'
kv_check "named.cache: nothere.example.test. NE <zone>" cline '^nothere\.example\.test\. [0-9]+ NE [a-z.]+$'
kv_check "named.cache: www.example.test. REMX <zone>" cline '^www\.example\.test\. [0-9]+ REMX [a-z.]+$'
kv_check "named.cache: no permanent records" bash -c '! grep -qE "home\.lan|root-servers" "$1"' _ "$C"

OUT=$KV_TMP/korvane2.out
kv_start_korvane "$DIR" "$OUT" "$NS" --dns-port 53
PID=$KV_PID
check_answers "restart"
kv_check "restart: no \"Sending request to \" line (all from named.cache)" [ "$(sent)" = 0 ]

kv_stop_korvane "$PID"
kv_check "second SIGTERM: exit status 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
kv_finish
