#!/usr/bin/env bash
# The log never holds up the answers: a log file that is a FIFO read at
# 1 KB/s while 20,000 queries are answered, then the lost-lines line once it
# is read again; a log folder on a full tmpfs (answers go on, one report,
# lines resume when space is freed); SIGTERM right after a burst writes every
# queued line, the close line last.
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" logload
kv_need_root
kv_need_tool python3 dig unshare nsenter mount

LONG=a-rather-long-host-name-that-fills-the-log-queue-quickly.kvtest.example
write_prog() {   # write_prog DIR
    mkdir -p "$1"
    printf 'Name: ns1.kvtest.example\nWriteLog: YES\n' >"$1/korvane.ini"
    printf '; no root hints in this test\n' >"$1/named.root"
    cat >"$1/named.perm" <<P
kvtest.example. 3600 SOA ns1.kvtest.example. hostmaster.kvtest.example. 7 3600 900 604800 300
kvtest.example. 3600 NS ns1.kvtest.example.
ns1.kvtest.example. 3600 A 10.9.0.1
$LONG. 3600 A 10.9.0.2
P
}

# client.py PORT COUNT MODE NAME: MODE "wait" sends one query at a time and
# waits up to 1 s for its answer; "burst" sends them all without waiting;
# "spread" sends them all to 127.0.0.2 to .5 at once and counts the answers,
# which a connected socket takes only from the address it asked.
cat >"$KV_TMP/client.py" <<'PY'
import socket, struct, sys, time
port, count, mode, name = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3], sys.argv[4]
qname = b"".join(bytes([len(l)]) + l.encode() for l in name.split(".")) + b"\0"
def query(qid):
    return struct.pack(">HHHHHH", qid, 0x0100, 1, 0, 0, 0) + qname + b"\0\1\0\1"
if mode == "spread":
    socks = []
    for a in range(2, 6):
        c = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        c.connect(("127.0.0.%d" % a, port))
        c.settimeout(2.0)
        socks.append(c)
    for i in range(count):
        socks[i % len(socks)].send(query(i))
    answered = 0
    for c in socks:
        try:
            while answered < count:
                c.recv(4096)
                answered += 1
                c.settimeout(0.2)
        except socket.timeout:
            pass
    print(answered, 0)
    sys.exit(0)
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.connect(("127.0.0.1", port))
answered, slowest = 0, 0.0
for i in range(count):
    qid = i % 65536
    s.send(query(qid))
    if mode != "wait":
        continue
    start = time.monotonic()
    s.settimeout(1.0)
    try:
        while True:
            reply = s.recv(4096)
            if struct.unpack(">H", reply[:2])[0] == qid:
                break
        answered += 1
        slowest = max(slowest, time.monotonic() - start)
    except socket.timeout:
        pass
print(answered, round(slowest * 1000))
PY

# --- a FIFO as the day's log file, read at 1 KB/s
DIR=$KV_TMP/fifo
OUT=$KV_TMP/fifo.out
write_prog "$DIR"
mkdir -p "$DIR/logs"
FIFO=$DIR/logs/$(date +%Y%m%d).log
mkfifo "$FIFO"
cat >"$KV_TMP/reader.py" <<'PY'
import fcntl, os, signal, sys, time
fast = False
def go_fast(*_):
    global fast
    fast = True
signal.signal(signal.SIGUSR1, go_fast)
fd = os.open(sys.argv[1], os.O_RDONLY | os.O_NONBLOCK)
fcntl.fcntl(fd, fcntl.F_SETFL, 0)
with open(sys.argv[2], "ab") as out:
    while True:
        data = os.read(fd, 65536 if fast else 1024)
        if not data:
            time.sleep(0.05)
        out.write(data)
        out.flush()
        if not fast:
            time.sleep(1)
PY
python3 "$KV_TMP/reader.py" "$FIFO" "$KV_TMP/fifo.read" &
READER=$!
kv_track "$READER"
sleep 0.3
PORT=$(kv_free_udp_port)
kv_start_korvane "$DIR" "$OUT" "" --dns-port "$PORT"
read -r answered slowest < <(python3 "$KV_TMP/client.py" "$PORT" 20000 wait "$LONG")
kv_check "stalled log: all 20,000 queries answered within 1 s each (got $answered, slowest $slowest ms)" \
    [ "$answered" = 20000 ]
kill -USR1 "$READER"
LOST="log lines were lost (log disk too slow)."
kv_check "log read again: the lost-lines line reaches the file" kv_wait_grep "$KV_TMP/fifo.read" "$LOST" 1 60
kv_check "log read again: and standard output" kv_wait_grep "$OUT" "$LOST" 1 10
n=$(grep -F "$LOST" "$OUT" | head -n1 | sed -E 's/^.{21}([0-9]+) .*/\1/')
kv_check "the line counts the missing lines ($n)" bash -c '[ "${1:-0}" -gt 0 ]' _ "$n"
kv_stop_korvane "$KV_PID"
kill "$READER"; wait "$READER" 2>/dev/null; kv_untrack "$READER"

# --- SIGTERM right after a burst
DIR=$KV_TMP/burst
OUT=$KV_TMP/burst.out
write_prog "$DIR"
PORT=$(kv_free_udp_port)
kv_start_korvane "$DIR" "$OUT" "" --dns-port "$PORT"
read -r answered _ < <(python3 "$KV_TMP/client.py" "$PORT" 64 spread "$LONG")
kv_check "queries to 127.0.0.2-5 in one batch answered from the address asked (got $answered of 64)" \
    [ "$answered" = 64 ]
python3 "$KV_TMP/client.py" "$PORT" 5000 burst "$LONG" >/dev/null
kv_stop_korvane "$KV_PID"
LOGF=$(ls "$DIR"/logs/*.log)
CLOSE="Program was closed through a termination signal."
kv_check "SIGTERM after a burst: exit status 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
kv_check "the log file ends with the close line" \
    bash -c '[ "$(tail -n1 "$1" | tr -d "\r" | cut -c22-)" = "$2" ]' _ "$LOGF" "$CLOSE"
kv_check "standard output ends with the close line" \
    bash -c '[ "$(tail -n1 "$1" | cut -c22-)" = "$2" ]' _ "$OUT" "$CLOSE"
kv_check "file and standard output hold the same requests" \
    [ "$(kv_count "$LOGF" "Request from")" = "$(kv_count "$OUT" "Request from")" ]

# --- the log folder on a full tmpfs, in a mount namespace of its own
DIR=$KV_TMP/full
OUT=$KV_TMP/full.out
write_prog "$DIR"
mkdir -p "$DIR/logs"
PORT=$(kv_free_udp_port)
unshare --mount --propagation private sh -c '
    mount -t tmpfs -o size=64k tmpfs "$1/logs" || exit 1
    dd if=/dev/zero of="$1/logs/filler" bs=4k 2>/dev/null
    exec "$2" --headless --dir "$1" --dns-port "$3"' _ "$DIR" "$KV_BIN" "$PORT" >"$OUT" 2>"$OUT.err" &
PID=$!
kv_track "$PID"
kv_wait_grep "$OUT" "DNS service started" 1 15 || { echo "FAIL: korvane did not start"; cat "$OUT.err"; exit 1; }
read -r answered slowest < <(python3 "$KV_TMP/client.py" "$PORT" 500 wait "$LONG")
kv_check "full disk: 500 queries answered (got $answered)" [ "$answered" = 500 ]
kv_check "full disk: one report" [ "$(kv_count "$OUT.err" "An error has occured in Korvane!")" = 1 ]
kv_check "full disk: the report names the log" grep -qF "Module: modMain AddLine" "$OUT.err"
kv_check "full disk: still running" kill -0 "$PID"
nsenter -t "$PID" -m rm -f "$DIR/logs/filler"
in_file() {   # lines of the day's file (seen inside the namespace) that hold the text
    nsenter -t "$PID" -m sh -c 'cat "$1"/logs/*.log' _ "$DIR" 2>/dev/null | grep -cF "$1"
}
resumed() {   # queries until the file takes lines again (the retry comes within a minute)
    local i
    for i in $(seq 1 80); do
        python3 "$KV_TMP/client.py" "$PORT" 1 wait "$LONG" >/dev/null
        [ "$(in_file "log lines were lost (log file could not be written).")" = 1 ] && return 0
        sleep 1
    done
    return 1
}
kv_check "space freed: lines resume with the count of those lost" resumed
requests=$(in_file "Request from 127.0.0.1")
kv_check "space freed: answers logged again ($requests)" [ "${requests:-0}" -gt 0 ]
kv_check "space freed: still one report" [ "$(kv_count "$OUT.err" "An error has occured in Korvane!")" = 1 ]
kv_stop_korvane "$PID"
kv_check "full disk: exit status 0 (got $KV_RC)" [ "$KV_RC" = 0 ]

kv_finish
