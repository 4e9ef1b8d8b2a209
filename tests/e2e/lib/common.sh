# Shared helpers for the end-to-end scripts. Source it, then call kv_init.
# Every script gets its own temp folder and namespace names, and a cleanup trap
# that kills only the PIDs it registered and deletes only its own namespaces.

KV_PIDS=()
KV_NETNS=()
KV_HOOKS=()
KV_FAILS=0
KV_TMP=""
KV_KEEP=${KV_KEEP:-0}   # set to 1 to keep the temp folder for inspection

kv_init() {   # kv_init <korvane-binary> <short-name>
    KV_BIN=$1
    KV_NAME=$2
    if [ -z "$KV_BIN" ]; then
        echo "usage: $0 <path-to-korvane-binary>" >&2
        exit 2
    fi
    if [ ! -x "$KV_BIN" ]; then
        echo "FAIL: korvane binary not found or not executable: $KV_BIN"
        exit 1
    fi
    KV_BIN=$(readlink -f "$KV_BIN")
    KV_TMP=$(mktemp -d "/tmp/kvt-$KV_NAME.XXXXXX")
    chmod 755 "$KV_TMP"
    trap kv_cleanup EXIT
    trap 'exit 130' INT TERM
}

kv_cleanup() {
    local rc=$?
    local p
    for p in "${KV_PIDS[@]}"; do
        kill "$p" 2>/dev/null
    done
    for p in "${KV_PIDS[@]}"; do
        for _ in $(seq 1 30); do kill -0 "$p" 2>/dev/null || break; sleep 0.1; done
        kill -9 "$p" 2>/dev/null
    done
    for p in "${KV_HOOKS[@]}"; do "$p"; done
    for p in "${KV_NETNS[@]}"; do
        ip netns del "$p" 2>/dev/null
        rm -rf "/etc/netns/$p" 2>/dev/null
    done
    local keep=$KV_KEEP
    [ $rc -ne 0 ] && [ $rc -ne 77 ] && keep=1
    if [ -n "$KV_TMP" ]; then
        if [ "$keep" = 1 ]; then echo "(files kept in $KV_TMP)"; else rm -rf "$KV_TMP"; fi
    fi
    exit $rc
}

kv_track() { KV_PIDS+=("$1"); }

kv_on_cleanup() { KV_HOOKS+=("$1"); }   # a function to run once the PIDs are gone

kv_untrack() {   # forget a PID that has exited
    local p keep=()
    for p in "${KV_PIDS[@]}"; do [ "$p" != "$1" ] && keep+=("$p"); done
    KV_PIDS=("${keep[@]}")
}

kv_skip() { echo "SKIP: $*"; exit 77; }

kv_need_root() {
    [ "$(id -u)" -eq 0 ] || kv_skip "needs root (network namespaces, port 53)"
    ip netns list >/dev/null 2>&1 || kv_skip "ip netns is not usable here"
}

kv_need_tool() {
    local t
    for t in "$@"; do
        command -v "$t" >/dev/null 2>&1 || kv_skip "needs $t (not installed)"
    done
}

kv_pass() { echo "ok   - $*"; }
kv_fail() { echo "FAIL - $*"; KV_FAILS=$((KV_FAILS + 1)); }

kv_check() {   # kv_check <description> <command...>
    local what=$1; shift
    if "$@"; then kv_pass "$what"; else kv_fail "$what"; fi
}

kv_finish() {
    if [ "$KV_FAILS" -gt 0 ]; then
        echo "$KV_FAILS check(s) failed"
        exit 1
    fi
    echo "all checks passed"
    exit 0
}

kv_netns_add() {   # kv_netns_add <name>: a namespace with loopback up
    ip netns add "$1" || { echo "FAIL: cannot create namespace $1"; exit 1; }
    KV_NETNS+=("$1")
    ip -n "$1" link set lo up
}

# kv_xvfb: a virtual display of its own (Xvfb picks a free number); sets
# KV_DISPLAY (":N").
kv_xvfb() {
    Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$KV_TMP/display" 2>"$KV_TMP/xvfb.err" &
    kv_track $!
    local i
    for i in $(seq 1 50); do [ -s "$KV_TMP/display" ] && break; sleep 0.1; done
    [ -s "$KV_TMP/display" ] || { echo "FAIL: Xvfb did not start"; cat "$KV_TMP/xvfb.err"; exit 1; }
    KV_DISPLAY=:$(cat "$KV_TMP/display")
}

# kv_bench_folder <dir>: the program folder the throughput benchmarks serve
# (www.bench.test and mail.bench.test, no root hints); the questions they
# ask are in $KV_TMP/queries.txt.
kv_bench_folder() {
    mkdir -p "$1"
    cat >"$1/named.perm" <<'Z'
bench.test. 3600 SOA ns1.bench.test. hostmaster.bench.test. 1 3600 900 604800 300
bench.test. 3600 NS ns1.bench.test.
ns1.bench.test. 3600 A 10.20.0.1
www.bench.test. 3600 A 10.20.0.2
mail.bench.test. 3600 A 10.20.0.3
Z
    printf '; none\n' >"$1/named.root"
    printf 'www.bench.test A\nmail.bench.test A\n' >"$KV_TMP/queries.txt"
}

kv_free_udp_port() {   # a free UDP port on all addresses
    python3 -c 'import socket; s=socket.socket(socket.AF_INET, socket.SOCK_DGRAM); s.bind(("0.0.0.0", 0)); print(s.getsockname()[1])'
}

# kv_wait_grep <file> <fixed-text> [min-count] [seconds]: wait until the text
# occurs at least min-count times in the file.
kv_wait_grep() {
    local file=$1 text=$2 want=${3:-1} secs=${4:-10}
    local i n
    for i in $(seq 1 $((secs * 10))); do
        n=$(grep -cF -- "$text" "$file" 2>/dev/null)
        [ "${n:-0}" -ge "$want" ] && return 0
        sleep 0.1
    done
    return 1
}

kv_count() { grep -cF -- "$2" "$1" 2>/dev/null || true; }

# kv_start_korvane <dir> <stdout-file> [netns] [extra args...]; sets KV_PID.
# Waits for the DNS service to come up.
kv_start_korvane() {
    local dir=$1 out=$2 ns=$3; shift 3
    local starts
    starts=$(kv_count "$out" "DNS service started")
    if [ -n "$ns" ]; then
        ip netns exec "$ns" "$KV_BIN" --headless --dir "$dir" "$@" >>"$out" 2>>"$out.err" &
    else
        "$KV_BIN" --headless --dir "$dir" "$@" >>"$out" 2>>"$out.err" &
    fi
    KV_PID=$!
    kv_track "$KV_PID"
    if ! kv_wait_grep "$out" "DNS service started" $((starts + 1)) 15; then
        echo "FAIL: korvane did not log \"DNS service started\" within 15 s"
        echo "--- stdout:"; tail -n 20 "$out"
        echo "--- stderr:"; tail -n 20 "$out.err"
        exit 1
    fi
}

# kv_stop_korvane <pid>: SIGTERM and wait; sets KV_RC to the exit status.
kv_stop_korvane() {
    local pid=$1 i
    kill -TERM "$pid" 2>/dev/null
    for i in $(seq 1 100); do
        kill -0 "$pid" 2>/dev/null || break
        sleep 0.1
    done
    if kill -0 "$pid" 2>/dev/null; then
        KV_RC=timeout
        kill -9 "$pid" 2>/dev/null
        wait "$pid" 2>/dev/null
    else
        wait "$pid"
        KV_RC=$?
    fi
    kv_untrack "$pid"
}

# The log line prefix: "yyyy-mm-dd hh:mm:ss" and two blanks.
KV_STAMP='^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}  '

kv_has_line() {   # kv_has_line <file> <exact text after the time stamp>
    local file=$1 text=$2
    grep -E "$KV_STAMP" "$file" | cut -c22- | tr -d '\r' | grep -qxF -- "$text"
}

# dig helpers. KV_DIG holds the common arguments (server, port, timeouts);
# KV_DIG_NS, when set, is the namespace dig runs in.
KV_DIG_NS=""
kv_dig() {
    if [ -n "$KV_DIG_NS" ]; then
        ip netns exec "$KV_DIG_NS" dig "${KV_DIG[@]}" "$@" 2>&1
    else
        dig "${KV_DIG[@]}" "$@" 2>&1
    fi
}

# Fields of a dig reply.
kv_status() { sed -n 's/.*status: \([A-Z]*\),.*/\1/p' <<<"$1" | head -n1; }
kv_flags() { sed -n 's/.*;; flags: \([a-z ]*\);.*/\1/p' <<<"$1" | head -n1; }
kv_section() {   # kv_section <dig-output> ANSWER|AUTHORITY|ADDITIONAL: records, TTL cut out
    awk -v s=";; $2 SECTION:" '$0==s{on=1;next} on&&/^$/{on=0} on&&!/^;/' <<<"$1" |
        awk '{ $2=""; print }' | tr -s ' \t' ' '
}
kv_ttl_of() {   # kv_ttl_of <dig-output> <owner> <type>: TTL of the first such answer record
    awk -v o="$2" -v t="$3" '$1==o && $4==t {print $2; exit}' <<<"$1"
}
kv_has_flag() { [[ " $(kv_flags "$1") " == *" $2 "* ]]; }

# kv_nsd_world <dir> <netns>: a small DNS tree of four NSD servers in the namespace.
#   127.0.0.11  root  (. -> test.)
#   127.0.0.12  test. (delegates example.test. and other.test.)
#   127.0.0.13  example.test.   127.0.0.14  other.test.
# Sets KV_NSD_PIDS.
kv_nsd_world() {
    local d=$1 ns=$2 spec name addr zone file i
    mkdir -p "$d"
    cat >"$d/root.zone" <<'Z'
$TTL 3600
. SOA a.root-servers.net. hostmaster.root. 1 3600 900 604800 300
. NS a.root-servers.net.
a.root-servers.net. A 127.0.0.11
test. NS ns1.test.
ns1.test. A 127.0.0.12
Z
    cat >"$d/test.zone" <<'Z'
$TTL 3600
$ORIGIN test.
@ SOA ns1.test. hostmaster.test. 1 3600 900 604800 300
@ NS ns1.test.
ns1 A 127.0.0.12
example NS ns1.example.test.
ns1.example A 127.0.0.13
other NS ns1.other.test.
ns1.other A 127.0.0.14
Z
    cat >"$d/example.test.zone" <<'Z'
$TTL 300
$ORIGIN example.test.
@ SOA ns1.example.test. hostmaster.example.test. 1 3600 900 604800 60
@ NS ns1.example.test.
@ MX 10 mail.example.test.
ns1 A 127.0.0.13
www A 10.1.2.3
alias CNAME www.example.test.
far CNAME web.other.test.
mail A 10.1.2.4
Z
    cat >"$d/other.test.zone" <<'Z'
$TTL 300
$ORIGIN other.test.
@ SOA ns1.other.test. hostmaster.other.test. 1 3600 900 604800 60
@ NS ns1.other.test.
ns1 A 127.0.0.14
web A 10.1.3.7
Z
    KV_NSD_PIDS=()
    for spec in root/127.0.0.11/./root.zone tld/127.0.0.12/test./test.zone \
                ex/127.0.0.13/example.test./example.test.zone other/127.0.0.14/other.test./other.test.zone; do
        IFS=/ read -r name addr zone file <<<"$spec"
        [ "$zone" = "" ] && zone=.
        cat >"$d/nsd-$name.conf" <<C
server:
    ip-address: $addr
    port: 53
    do-ip6: no
    server-count: 1
    username: ""
    chroot: ""
    zonesdir: "$d"
    database: ""
    zonelistfile: "$d/$name.zonelist"
    xfrdfile: "$d/$name.xfrd.state"
    xfrdir: "$d"
    pidfile: "$d/nsd-$name.pid"
    logfile: "$d/nsd-$name.log"
remote-control:
    control-enable: no
zone:
    name: "$zone"
    zonefile: "$file"
C
        ip netns exec "$ns" nsd -d -c "$d/nsd-$name.conf" >"$d/nsd-$name.out" 2>&1 &
        KV_NSD_PIDS+=($!)
        kv_track $!
    done
    # Ready when each answers its own SOA.
    for spec in 127.0.0.11/. 127.0.0.12/test. 127.0.0.13/example.test. 127.0.0.14/other.test.; do
        addr=${spec%%/*}; zone=${spec#*/}
        for i in $(seq 1 50); do
            ip netns exec "$ns" dig +norec +time=1 +tries=1 @"$addr" "$zone" SOA 2>/dev/null | grep -q 'status: NOERROR' && break
            sleep 0.1
        done
        if [ "$i" -ge 50 ]; then
            echo "FAIL: NSD on $addr did not come up"; cat "$d"/nsd-*.out "$d"/nsd-*.log 2>/dev/null | tail -n 20
            exit 1
        fi
    done
}

# --- DHCP test bed ---------------------------------------------------------

# kv_veth <ns-a> <if-a> <ns-b> <if-b>: a veth pair with one end in each
# namespace, both up. The pair goes when either namespace is deleted.
kv_veth() {
    ip link add "$2" type veth peer name "$4" || { echo "FAIL: cannot create veth $2/$4"; exit 1; }
    ip link set "$2" netns "$1" && ip link set "$4" netns "$3" ||
        { ip link del "$2" 2>/dev/null; echo "FAIL: cannot move veth $2/$4"; exit 1; }
    ip -n "$1" link set "$2" up
    ip -n "$3" link set "$4" up
}

# kv_dhcp_script <path> <dump-prefix>: a client hook script for udhcpc ($1 is
# the event) and dhclient ($reason). Each call dumps the environment to
# <prefix>.<event> and appends the event to <prefix>.events; a bound or renewed
# lease puts the address on the interface so that unicast renewals work.
kv_dhcp_script() {
    cat >"$1" <<S
#!/bin/sh
ev=\${reason:-\$1}
env | sort >"$2.\$ev"
echo "\$ev" >>"$2.events"
case "\$ev" in
    bound|renew|BOUND|RENEW|REBOOT)
        a=\${ip:-\$new_ip_address}; m=\${subnet:-\$new_subnet_mask}
        d=\${interface}
        [ -n "\$a" ] && ip addr replace "\$a/\$m" dev "\$d" ;;
    deconfig) ip addr flush dev "\$interface" ;;
    RELEASE|EXPIRE|STOP)
        [ -n "\$old_ip_address" ] && ip addr del "\$old_ip_address/\$old_subnet_mask" dev "\$interface" 2>/dev/null ;;
esac
exit 0
S
    chmod 755 "$1"
}

# kv_env_val <dump-file> <variable>: one value from a kv_dhcp_script dump.
kv_env_val() { sed -n "s/^$2=//p" "$1" 2>/dev/null | head -n1; }

# Starts Korvane on port 53 of 127.0.0.1 in namespace NS and points kv_dig
# there; sets PID.
kv_start_dns_in_ns() {
    local dir=$1 out=$2 ns=$3
    kv_start_korvane "$dir" "$out" "$ns" --dns-port 53
    PID=$KV_PID
    KV_DIG_NS=$ns
    KV_DIG=(@127.0.0.1 +time=6 +tries=1)
}
