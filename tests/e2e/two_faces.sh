#!/usr/bin/env bash
# One binary, two faces: with a display the program opens its main window
# (and prints no log lines), with a display that cannot be opened it starts
# again headless by itself; both answer, and both close in order on SIGTERM
# without a question. Needs no root: a free high port and a virtual display.
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" faces
kv_need_tool dig python3 Xvfb

DIR=$KV_TMP/prog
mkdir -p "$DIR"
printf 'Name: ns1.kvtest.example\nWriteLog: YES\n' >"$DIR/korvane.ini"
printf '; no root hints in this test\n' >"$DIR/named.root"
cat >"$DIR/named.perm" <<'EOF'
kvtest.example. 3600 SOA ns1.kvtest.example. hostmaster.kvtest.example. 7 3600 900 604800 300
www.kvtest.example. 1800 A 10.9.0.2
EOF
answers() { [ "$(kv_section "$(kv_dig www.kvtest.example A)" ANSWER)" = "www.kvtest.example. IN A 10.9.0.2" ]; }
waits_for_answer() {
    local i
    for i in $(seq 1 100); do answers && return 0; sleep 0.1; done
    return 1
}
last_logged() {   # last_logged <text>: the day's log file ends with that line
    [ "$(cat "$DIR"/logs/*.log | tr -d '\r' | tail -n 1 | cut -c22-)" = "$1" ]
}
no_fallback() { ! grep -q "running headless" "$KV_TMP/window.err"; }
main_window() { timeout 10 env DISPLAY="$KV_DISPLAY" xdotool search --sync --name '^Korvane$' >/dev/null; }

# --- a display that is named but cannot be opened: headless after all
PORT=$(kv_free_udp_port)
KV_DIG=(@127.0.0.1 -p "$PORT" +time=2 +tries=1)
DISPLAY=:7345 WAYLAND_DISPLAY='' "$KV_BIN" --dir "$DIR" --dns-port "$PORT" \
    >"$KV_TMP/fallback.out" 2>"$KV_TMP/fallback.err" &
PID=$!
kv_track $PID
kv_check "no usable display: answers all the same" waits_for_answer
kv_check "no usable display: says it runs headless" \
    grep -q "the display cannot be opened; running headless" "$KV_TMP/fallback.err"
kv_check "no usable display: log lines on standard output" kv_has_line "$KV_TMP/fallback.out" "DNS service started."
kv_stop_korvane $PID
kv_check "no usable display: SIGTERM exits 0 (got $KV_RC)" [ "$KV_RC" = 0 ]

# --- a virtual display: the window
kv_xvfb
PORT=$(kv_free_udp_port)
KV_DIG=(@127.0.0.1 -p "$PORT" +time=2 +tries=1)
rm -f "$DIR/named.cache"
DISPLAY=$KV_DISPLAY "$KV_BIN" --dir "$DIR" --dns-port "$PORT" >"$KV_TMP/window.out" 2>"$KV_TMP/window.err" &
PID=$!
kv_track $PID
kv_check "windowed: answers" waits_for_answer
if command -v xdotool >/dev/null; then
    kv_check "windowed: the main window \"Korvane\" is open" main_window
fi
kv_check "windowed: no log lines on standard output" [ ! -s "$KV_TMP/window.out" ]
kv_check "windowed: did not fall back" no_fallback
kv_stop_korvane $PID
kv_check "windowed: SIGTERM exits 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
kv_check "windowed: closed without the question, the reason logged" \
    last_logged "Program was closed through a termination signal."
kv_check "windowed: the cache file was written" [ -f "$DIR/named.cache" ]

# --- the DNS port held by another program: headless ends with status 1, the
# window stays, paused, with its box, until it is closed
python3 -c 'import socket, time; s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM); s.bind(("0.0.0.0", 0)); print(s.getsockname()[1], flush=True); time.sleep(120)' \
    >"$KV_TMP/holder.port" &
kv_track $!
kv_wait_grep "$KV_TMP/holder.port" "" 1 5
PORT=$(head -n1 "$KV_TMP/holder.port")
"$KV_BIN" --headless --dir "$DIR" --dns-port "$PORT" >"$KV_TMP/taken.out" 2>&1
RC=$?
kv_check "port taken, headless: exit status 1 (got $RC)" [ "$RC" = 1 ]
DISPLAY=$KV_DISPLAY "$KV_BIN" --dir "$DIR" --dns-port "$PORT" >"$KV_TMP/taken-w.out" 2>&1 &
PID=$!
kv_track $PID
box_open() { timeout 10 env DISPLAY="$KV_DISPLAY" xdotool search --sync --name '^Korvane$' | [ "$(wc -l)" -ge 2 ]; }
if command -v xdotool >/dev/null; then
    kv_check "port taken, windowed: the window and its box are open" box_open
fi
sleep 1
kv_check "port taken, windowed: still running" kill -0 $PID
kv_check "port taken, windowed: the failure and its reason logged" \
    grep -q "Address already in use: port $PORT is used by python3" "$DIR"/logs/*.log
kv_stop_korvane $PID
kv_check "port taken, windowed: SIGTERM with the box open exits 0 (got $KV_RC)" [ "$KV_RC" = 0 ]
kv_finish
