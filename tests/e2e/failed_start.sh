#!/usr/bin/env bash
# Starts that cannot serve, and folders that are not as they should be: the
# headless program says why and exits with status 1 when the DNS port is
# taken (by a socket in a namespace) or may not be bound (as nobody), says at
# start that a read-only folder cannot be written and exits 1 when its saves
# fail, starts with the defaults and one line without korvane.ini, asks no
# question it cannot get answered; a bad option exits 2; --check tells a
# clean folder from a broken one.
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" failstart
kv_need_root
kv_need_tool python3 setpriv unshare mount

NS=kvfs$$
kv_netns_add "$NS"
SRC=$(cd "$(dirname "$0")/../.." && pwd)/examples/office

fresh() {   # fresh <name>: a copy of the example folder
    rm -rf "$KV_TMP/$1"
    cp -r "$SRC" "$KV_TMP/$1"
    echo "$KV_TMP/$1"
}

# run_in_ns <out> <args...>: korvane in the namespace until it ends by itself
# (20 s at most); sets RC.
run_in_ns() {
    local out=$1; shift
    ip netns exec "$NS" timeout 20 "$@" >"$out" 2>"$out.err"
    RC=$?
}

lines_of() { grep -E "$KV_STAMP" "$1" | cut -c22- | tr -d '\r'; }

# kv_lines_follow <file> <line>...: the lines stand in the log one after the other.
kv_lines_follow() {
    local file=$1; shift
    local want
    want=$(printf '%s\n' "$@")
    lines_of "$file" | grep -qxF -- "$1" || return 1
    [ "$(lines_of "$file" | grep -A$(($# - 1)) -xF -- "$1" | head -n $#)" = "$want" ]
}

# --- the DNS port taken by another program's socket on loopback
cat >"$KV_TMP/holder.py" <<'EOF'
import socket, sys, time
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.bind(("127.0.0.1", 53))
print("ready", flush=True)
time.sleep(120)
EOF
ip netns exec "$NS" python3 "$KV_TMP/holder.py" >"$KV_TMP/holder.out" 2>&1 &
HOLDER=$!
kv_track "$HOLDER"
kv_wait_grep "$KV_TMP/holder.out" ready 1 10 || { echo "FAIL: the port holder did not start"; cat "$KV_TMP/holder.out"; exit 1; }
HOLDER_NAME=$(cat "/proc/$HOLDER/comm")
REASON="Address already in use: port 53 is used by $HOLDER_NAME (pid $HOLDER)"

DIR=$(fresh taken)
run_in_ns "$KV_TMP/taken.out" "$KV_BIN" --headless --dir "$DIR" --dns-port 53
kv_check "port taken: exit status 1 (got $RC)" [ "$RC" = 1 ]
kv_check "port taken: the bind failure, the holder, the close" kv_lines_follow "$KV_TMP/taken.out" \
    "Binding DNS service failed - DNS service not started!" "$REASON" \
    "Program was closed because the DNS service could not be started."
kv_check "port taken: no service started" bash -c '! grep -q "service started" "$1"' _ "$KV_TMP/taken.out"
kv_check "port taken: nothing on standard error (no box)" [ ! -s "$KV_TMP/taken.out.err" ]

printf 'DNSBind: 127.0.0.1\nWriteLog: YES\n' >"$DIR/korvane.ini"
run_in_ns "$KV_TMP/taken2.out" "$KV_BIN" --headless --dir "$DIR" --dns-port 53
kv_check "port taken on the DNSBind address: exit status 1 (got $RC)" [ "$RC" = 1 ]
kv_check "port taken on the DNSBind address: the Part's line, then the holder" kv_lines_follow \
    "$KV_TMP/taken2.out" "Binding DNS service to 127.0.0.1 failed - DNS service not started!" "$REASON"
kv_check "port taken: the reason is in the log file too" grep -qF "$REASON" "$DIR"/logs/*.log
ip netns exec "$NS" "$KV_BIN" --check --dir "$DIR" >"$KV_TMP/check-taken.out" 2>&1
RC=$?
kv_check "--check with the port taken: exit status 1 (got $RC)" [ "$RC" = 1 ]
kv_check "--check with the port taken: names the holder" \
    grep -qxF "$REASON - the DNS service will not start." "$KV_TMP/check-taken.out"
kill "$HOLDER"; wait "$HOLDER" 2>/dev/null; kv_untrack "$HOLDER"

# --- no permission for port 53: an unprivileged user
DIR=$(fresh nobody)
chown -R 65534:65534 "$DIR"
run_in_ns "$KV_TMP/nobody.out" setpriv --reuid=65534 --regid=65534 --clear-groups \
    "$KV_BIN" --headless --dir "$DIR" --dns-port 53
kv_check "no permission: exit status 1 (got $RC)" [ "$RC" = 1 ]
kv_check "no permission: the bind failure and the reason" kv_lines_follow "$KV_TMP/nobody.out" \
    "Binding DNS service failed - DNS service not started!" \
    "Permission denied: ports below 1024 need root or cap_net_bind_service"
run_in_ns "$KV_TMP/check-nobody.out" setpriv --reuid=65534 --regid=65534 --clear-groups \
    "$KV_BIN" --check --dir "$DIR"
kv_check "--check as nobody: exit status 1 (got $RC)" [ "$RC" = 1 ]
kv_check "--check as nobody: port 53 may not be bound" grep -qxF \
    "Permission denied: ports below 1024 need root or cap_net_bind_service - the DNS service will not start." \
    "$KV_TMP/check-nobody.out"

# --- a folder on a read-only file system
DIR=$(fresh readonly)
printf 'HostsTTL: 3600\n' >"$DIR/korvane.ini"   # no log files: the log stays in order
PORT=$(kv_free_udp_port)
OUT=$KV_TMP/readonly.out
unshare -m sh -c 'mount --bind "$1" "$1" && mount -o remount,bind,ro "$1" && exec "$2" --headless --dir "$1" --dns-port "$3"' \
    _ "$DIR" "$KV_BIN" "$PORT" >"$OUT" 2>"$OUT.err" &
PID=$!
kv_track "$PID"
if kv_wait_grep "$OUT" "DNS service started" 1 15; then
    PROBLEM="The program folder $DIR cannot be written: Read-only file system. The cache and the DHCP leases cannot be saved."
    kv_check "read-only folder: said at start, before the service starts" kv_lines_follow "$OUT" \
        "Loading DHCP Leases..." "$PROBLEM" "DNS service started."
    kv_stop_korvane "$PID"
    kv_check "read-only folder: the saves fail at the close, exit status 1 (got $KV_RC)" [ "$KV_RC" = 1 ]
    kv_check "read-only folder: the failed cache save is told" grep -qF "Module: modDNS saveCache" "$OUT.err"
else
    kv_fail "read-only folder: the server did not start"; cat "$OUT" "$OUT.err"
fi
unshare -m sh -c 'mount --bind "$1" "$1" && mount -o remount,bind,ro "$1" && exec "$2" --check --dir "$1"' \
    _ "$DIR" "$KV_BIN" >"$KV_TMP/check-ro.out" 2>&1
RC=$?
kv_check "--check on a read-only folder: exit status 1 (got $RC)" [ "$RC" = 1 ]
kv_check "--check on a read-only folder: names the folder and the reason" \
    grep -qxF "The program folder $DIR cannot be written: Read-only file system. The cache and the DHCP leases cannot be saved." \
    "$KV_TMP/check-ro.out"

# --- a first start without korvane.ini and named.root: one line each, no box, no report
DIR=$(fresh bare)
rm "$DIR/korvane.ini" "$DIR/named.root"
kv_start_korvane "$DIR" "$KV_TMP/bare.out" "" --dns-port "$(kv_free_udp_port)"
kv_check "no korvane.ini: one line naming the file" kv_has_line "$KV_TMP/bare.out" \
    "Options file $DIR/korvane.ini not found - starting with the default options."
kv_check "no named.root: logged" kv_has_line "$KV_TMP/bare.out" \
    "Root server file $DIR/named.root could not be read: No such file or directory."
kv_stop_korvane "$KV_PID"
kv_check "no korvane.ini: a clean close, exit status 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
kv_check "no korvane.ini: nothing on standard error, no support.txt" \
    bash -c '[ ! -s "$1.err" ] && [ ! -e "$2/support.txt" ]' _ "$KV_TMP/bare.out" "$DIR"

# --- an error box headless: its text, but not the question nobody can answer
DIR=$(fresh boxed)
rm "$DIR/korvane.ini"; mkdir "$DIR/korvane.ini"
kv_start_korvane "$DIR" "$KV_TMP/boxed.out" "" --dns-port "$(kv_free_udp_port)"
kv_wait_grep "$KV_TMP/boxed.out.err" "Module: modMain LoadOptions" 1 5
kv_stop_korvane "$KV_PID"
kv_check "error box headless: its text is printed" grep -qxF "Module: modMain LoadOptions" "$KV_TMP/boxed.out.err"
kv_check "error box headless: no question" bash -c '! grep -qF "now ?" "$1"' _ "$KV_TMP/boxed.out.err"
kv_check "error box headless: the report names the file" \
    grep -qF "Additional : $DIR/korvane.ini" "$DIR/support.txt"

# --- the command line
"$KV_BIN" --dns-port 99999 >"$KV_TMP/usage.out" 2>&1
RC=$?
kv_check "--dns-port 99999: exit status 2 (got $RC)" [ "$RC" = 2 ]
kv_check "--dns-port 99999: says which and why" grep -qxF "korvane: --dns-port: 99999 is not a port" "$KV_TMP/usage.out"
kv_check "--help: the exit statuses" bash -c '"$1" --help | grep -qF "Exit status: 0 clean; 1 a failed start"' _ "$KV_BIN"

# --- --check: the example folder is clean; a pool on no interface and a foreign DNSBind are not
DIR=$(fresh checked)
ip netns exec "$NS" "$KV_BIN" --check --dir "$DIR" >"$KV_TMP/check.out" 2>&1
RC=$?
kv_check "--check on the example folder: exit status 0 (got $RC)" [ "$RC" = 0 ]
kv_check "--check on the example folder: no problems" grep -qxF "$DIR: no problems found." "$KV_TMP/check.out"
printf 'DNSBind: 192.0.2.7\n' >"$DIR/korvane.ini"
echo "office.example. 3600 DHCP 10.9.0.100 10.9.0.200 255.255.255.0 10.9.0.1" >>"$DIR/named.perm"
LINE=$(grep -c '' "$DIR/named.perm")
ip netns exec "$NS" "$KV_BIN" --check --dir "$DIR" >"$KV_TMP/check2.out" 2>&1
RC=$?
kv_check "--check on a broken folder: exit status 1 (got $RC)" [ "$RC" = 1 ]
kv_check "--check: the pool on no interface, with its line" grep -qxF \
    "named.perm:$LINE: DHCP pool 10.9.0.100 - 10.9.0.200 is on no local interface, pool skipped" "$KV_TMP/check2.out"
kv_check "--check: the foreign DNSBind" grep -qxF \
    "DNSBind: 192.0.2.7 is not an address of this machine - the DNS service will not start." "$KV_TMP/check2.out"
kv_check "--check wrote no file" \
    bash -c '[ ! -e "$1/named.cache" ] && [ ! -e "$1/dhcp.dat" ] && [ ! -e "$1/logs" ]' _ "$DIR"

kv_finish
