#!/usr/bin/env bash
# The Debian package as an operator meets it: built by scripts/build-deb.sh,
# free of lintian errors and warnings, installed with apt-get (files, user,
# folder, desktop entry, an enabled unit that systemd-analyze verify accepts),
# the installed program run as the unit runs it (its user, only its
# capabilities, a read-only system but its folder, in a network namespace)
# and asked with dig, reloaded with the unit's reload commands (a check, then
# SIGHUP), run by a user without --dir (a folder of their own made from the
# example), reinstalled without losing the operator's records and leases, and
# purged. Leaves no package, folder, user, enabled unit or manual index entry.
# KV_DEB=<file.deb> tries a package built before instead of building one.
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" package
kv_need_root
kv_need_tool dpkg-buildpackage dh lintian apt-get setpriv unshare dig systemd-analyze man \
    desktop-file-validate
SRC=$(cd "$(dirname "$0")/../.." && pwd)
BUILD=$(dirname "$KV_BIN")
FOLDER=/var/lib/korvane
UNIT=/lib/systemd/system/korvane.service
WANTS=/etc/systemd/system/multi-user.target.wants/korvane.service

if dpkg -s korvane >/dev/null 2>&1 || getent passwd korvane >/dev/null || [ -e "$FOLDER" ]; then
    kv_skip "korvane is installed here (package, user or $FOLDER): the test would remove it"
fi

# Whatever happens, the machine is left as it was found.
INSTALLED=0
pkg_cleanup() {
    [ "$INSTALLED" = 1 ] || return 0
    dpkg -s korvane >/dev/null 2>&1 && apt_get purge korvane >/dev/null 2>&1
    getent passwd korvane >/dev/null && deluser --system --quiet korvane >/dev/null 2>&1
    getent group korvane >/dev/null && delgroup --system --quiet korvane >/dev/null 2>&1
    rm -rf "$FOLDER"
    # man-db's trigger keeps the entries of removed pages until its daily run,
    # and a formatted copy of the page would keep its entry.
    find /var/cache/man -name 'korvane.8*' -delete
    whatis korvane >/dev/null 2>&1 && mandb --quiet
    return 0
}
kv_on_cleanup pkg_cleanup

apt_get() {
    DEBIAN_FRONTEND=noninteractive apt-get -y -qq -o DPkg::Lock::Timeout=300 "$@"
}

# --- the package build and lintian
touch "$KV_TMP/stamp"
started=$(date +%s)
if [ -n "${KV_DEB:-}" ]; then   # a package built before, to try the rest again quickly
    echo "$KV_DEB" >"$KV_TMP/build.out"; RC=0
else
    "$SRC/scripts/build-deb.sh" "$BUILD" >"$KV_TMP/build.out" 2>&1
    RC=$?
fi
DEB=$(readlink -f "$(tail -n 1 "$KV_TMP/build.out")")
if [ "$RC" != 0 ] || [ ! -f "$DEB" ]; then
    echo "FAIL: the package build failed"; cat "$KV_TMP/build.out"; exit 1
fi
echo "package built in $(($(date +%s) - started)) s: $DEB"
kv_check "the package is named korvane_<version>_<arch>.deb" \
    [ "$(basename "$DEB")" = "korvane_$(dpkg-deb -f "$DEB" Version)_$(dpkg-deb -f "$DEB" Architecture).deb" ]
# What a package build in the tree itself would leave: debian/korvane/,
# debian/files ..., obj-<triplet>/, and the packages beside the tree.
tree_kept() {
    local left
    left=$(cd "$SRC" && ls -d debian/korvane debian/.debhelper debian/files debian/*.substvars \
        debian/debhelper-build-stamp obj-* 2>/dev/null)
    [ -z "$left" ] && [ -z "$(find "$SRC/.." -maxdepth 1 -name 'korvane_*' -newer "$KV_TMP/stamp")" ]
}
kv_check "the package build left the source tree and its parent as they were" tree_kept

lintian --fail-on error,warning "$DEB" >"$KV_TMP/lintian.out" 2>&1
RC=$?
sed 's/^/    lintian: /' "$KV_TMP/lintian.out"
kv_check "lintian finds no error and no warning (status $RC)" [ "$RC" = 0 ]

# --- installation
INSTALLED=1
apt_get install "$DEB" >"$KV_TMP/install.out" 2>&1 ||
    { echo "FAIL: apt-get install"; cat "$KV_TMP/install.out"; exit 1; }

# installed <path> <source>: the installed file is the source's.
installed() { [ -f "$1" ] && cmp -s "$1" "$2"; }
kv_check "/usr/bin/korvane is the program" bash -c '[ -x /usr/bin/korvane ] && [ "$(/usr/bin/korvane --help)" = "$("$1" --help)" ]' _ "$KV_BIN"
for f in korvane.ini named.perm named.root; do
    kv_check "the example has $f" installed "/usr/share/korvane/example/$f" "$SRC/examples/office/$f"
    kv_check "$FOLDER has the example's $f, owned by korvane" \
        bash -c 'cmp -s "$1" "$2" && [ "$(stat -c %U:%G "$1")" = korvane:korvane ]' _ "$FOLDER/$f" "$SRC/examples/office/$f"
done
kv_check "man korvane finds the page in section 8" [ "$(man -w korvane 2>/dev/null)" = /usr/share/man/man8/korvane.8.gz ]
# Read as a file: `man korvane` would keep a formatted copy in /var/cache/man.
kv_check "the page reads without warnings" \
    bash -c '[ -z "$(man --warnings -l /usr/share/man/man8/korvane.8.gz 2>&1 >/dev/null)" ]'
DESKTOP=/usr/share/applications/korvane.desktop
ICONS=/usr/share/icons/hicolor/scalable/apps
kv_check "the help pages are installed as /usr/share/doc/korvane/html" diff -r "$SRC/docs/help" /usr/share/doc/korvane/html
kv_check "the desktop entry is installed" installed "$DESKTOP" "$SRC/packaging/korvane.desktop"
kv_check "the icon is installed in $ICONS" installed "$ICONS/korvane.svg" "$SRC/packaging/korvane.svg"
# It exits 0 on hints too (two main categories show the entry twice in menus).
kv_check "desktop-file-validate accepts the desktop entry without a hint" \
    bash -c 'out=$(desktop-file-validate "$1" 2>&1) && [ -z "$out" ] || { echo "$out"; false; }' _ "$DESKTOP"
desktop_key() { sed -n "s/^$1=//p" "$DESKTOP" | head -n 1; }
kv_check "the desktop entry starts the installed program" \
    [ "$(command -v "$(desktop_key Exec | cut -d' ' -f1)")" = /usr/bin/korvane ]
kv_check "the desktop entry's icon is the installed one" [ -f "$ICONS/$(desktop_key Icon).svg" ]

IFS=: read -r _ _ uid _ _ home shell < <(getent passwd korvane)
kv_check "a system user korvane (uid $uid, home $home, shell $shell)" \
    bash -c '[ "$1" -lt 1000 ] && [ "$2" = /var/lib/korvane ] && [[ "$3" == */nologin || "$3" = /bin/false ]]' _ "$uid" "$home" "$shell"
kv_check "$FOLDER belongs to korvane and is closed to others" [ "$(stat -c %U:%G:%a "$FOLDER")" = korvane:korvane:750 ]
kv_check "the unit is installed and enabled" bash -c '[ -f "$1" ] && [ "$(readlink -f "$2")" = "$(readlink -f "$1")" ]' _ "$UNIT" "$WANTS"

# systemd-analyze verify says what it dislikes and still exits 0: any output
# fails. Its look at Documentation= would format the page into
# /var/cache/man; man -w above has found it.
verify() { systemd-analyze verify --man=no "$1" >"$KV_TMP/verify.out" 2>&1 && [ ! -s "$KV_TMP/verify.out" ]; }
kv_check "systemd-analyze verify accepts the unit" verify "$UNIT"
sed 's/^/    verify: /' "$KV_TMP/verify.out"
sed 's/^ProtectSystem=strict/ProtectSystem=stricter/' "$UNIT" >"$KV_TMP/broken.service"
refused() { ! verify "$1"; }
kv_check "systemd-analyze verify refuses a broken copy of it" refused "$KV_TMP/broken.service"

# --- the installed program, run as the unit runs it
unit_value() { sed -n "s/^$1=//p" "$UNIT" | tail -n 1; }
USER_=$(unit_value User)
CAPS=$(unit_value AmbientCapabilities | tr 'A-Z' 'a-z' | sed 's/cap_/+/g; s/ /,/g')
kv_check "the unit's capabilities are exactly the two" [ "$CAPS" = "+net_bind_service,+net_raw" ]
kv_check "the unit's folder is the one it may write" [ "$(unit_value ReadWritePaths)" = "$FOLDER" ]
read -r -a PRE <<<"$(unit_value ExecStartPre)"
read -r -a START <<<"$(unit_value ExecStart)"
mapfile -t RELOADS < <(sed -n 's/^ExecReload=//p' "$UNIT")

NS=kvpk$$
kv_netns_add "$NS"
# AS_UNIT <command...>: in the namespace, every mount read-only but the
# folder, a private /tmp, no homes; as the unit's user with only its
# capabilities and no way to gain more. Each step execs the next, so the
# PID of a command started in the background is the program's.
AS_UNIT=(ip netns exec "$NS" unshare -m --propagation private sh -c '
        rw=$1; shift
        mount --bind "$rw" "$rw"
        findmnt -rno TARGET | awk -v rw="$rw" '"'"'$0 != rw && $0 !~ "^/(proc|sys|dev)(/|$)"'"'"' |
            while read -r m; do mount -o remount,bind,ro "$m" 2>/dev/null; done
        for d in /tmp /var/tmp /root /home; do [ -d "$d" ] && mount -t tmpfs tmpfs "$d"; done
        exec "$@"' _ "$FOLDER"
    setpriv --reuid="$USER_" --regid="$USER_" --init-groups --no-new-privs
    --inh-caps=-all,"$CAPS" --ambient-caps=-all,"$CAPS" --bounding-set=-all,"$CAPS")

"${AS_UNIT[@]}" "${PRE[@]}" >"$KV_TMP/check.out" 2>&1
RC=$?
kv_check "ExecStartPre (${PRE[*]}) finds no problem (status $RC)" \
    bash -c '[ "$1" = 0 ] && tail -n 1 "$2" | grep -qxF "$3: no problems found."' _ "$RC" "$KV_TMP/check.out" "$FOLDER"

"${AS_UNIT[@]}" "${START[@]}" >"$KV_TMP/server.out" 2>"$KV_TMP/server.err" &
PID=$!
kv_track "$PID"
KV_DIG_NS=$NS
KV_DIG=(@127.0.0.1 +time=2 +tries=1)
answer() { kv_dig +short "$@" | head -n 1; }
# answer_within <seconds> <want> <dig args...>
answer_within() {
    local secs=$1 want=$2 i; shift 2
    for i in $(seq 1 $((secs * 4))); do
        [ "$(answer "$@")" = "$want" ] && return 0
        kill -0 "$PID" 2>/dev/null || return 1
        sleep 0.25
    done
    return 1
}
if answer_within 15 192.0.2.10 www.office.example A; then
    kv_pass "the service answers www.office.example with 192.0.2.10"
    REPLY=$(kv_dig www.office.example A)
    kv_check "the answer is authoritative" kv_has_flag "$REPLY" aa
    kv_check "the reverse name of 192.0.2.10 is www.office.example." [ "$(answer -x 192.0.2.10)" = www.office.example. ]
    kv_check "--quiet: nothing on standard output" [ ! -s "$KV_TMP/server.out" ]
    kv_check "the log goes to $FOLDER/logs, owned by korvane" \
        bash -c 'grep -qF "DNS service started." "$1"/logs/*.log && [ "$(stat -c %U "$1/logs")" = korvane ]' _ "$FOLDER"

    ip netns exec "$NS" /usr/bin/korvane --check --dir "$FOLDER" >"$KV_TMP/check-running.out" 2>&1
    RC=$?
    kv_check "--check as root while the service runs: its port is no problem (status $RC)" \
        bash -c '[ "$1" = 0 ] && grep -qxF "Port 53 is used by the server running on this folder (pid $2)." "$3"' \
        _ "$RC" "$PID" "$KV_TMP/check-running.out"

    # As systemd reloads: each ExecReload line in turn, as the unit's user,
    # until one fails.
    reload() {
        local line command
        : >"$KV_TMP/reload.out"
        for line in "${RELOADS[@]}"; do
            read -r -a command <<<"${line//\$MAINPID/$PID}"
            "${AS_UNIT[@]}" "${command[@]}" >>"$KV_TMP/reload.out" 2>&1 || return 1
        done
    }
    kv_check "the unit checks the folder before it reloads" \
        [ "${#RELOADS[@]}:${RELOADS[0]}" = "2:${PRE[*]}" ]
    echo "new.office.example. 3600 A 192.0.2.77" >>"$FOLDER/named.perm"
    kv_check "a reload passes the check (the service's own port is no problem to its user)" reload
    sed 's/^/    reload: /' "$KV_TMP/reload.out"
    kv_check "a reload loads a changed named.perm" answer_within 10 192.0.2.77 new.office.example A
    cp -p "$FOLDER/named.perm" "$KV_TMP/named.perm"
    echo "lab.example. 86400 DHCP 10.9.0.100 10.9.0.200 255.255.255.0 10.9.0.1" >>"$FOLDER/named.perm"
    if reload; then kv_fail "a reload of a folder that fails the check fails"; else
        kv_pass "a reload of a folder that fails the check fails"; fi
    kv_check "... and says why" grep -qF "DHCP pool 10.9.0.100 - 10.9.0.200 is on no local interface" "$KV_TMP/reload.out"
    cp -p "$KV_TMP/named.perm" "$FOLDER/named.perm"

    kv_stop_korvane "$PID"
    kv_check "SIGTERM closes the service cleanly (status $KV_RC)" [ "$KV_RC" = 0 ]
    kv_check "the close saved the cache and the leases as korvane" \
        bash -c '[ "$(stat -c %U "$1/named.cache" "$1/dhcp.dat" | sort -u)" = korvane ]' _ "$FOLDER"
else
    kv_fail "the service did not answer www.office.example"
    cat "$KV_TMP/server.out" "$KV_TMP/server.err" "$FOLDER"/logs/*.log 2>/dev/null | tail -n 20
fi

# --- the installed program started by a user, as from the desktop menu:
# no --dir, a folder of the user's own made from the example
OWN_HOME=$KV_TMP/home
OWN=$OWN_HOME/.local/share/korvane
mkdir -p "$OWN_HOME" && chown nobody:nogroup "$OWN_HOME"
AS_USER=(ip netns exec "$NS" setpriv --reuid=nobody --regid=nogroup --clear-groups
    env -i HOME="$OWN_HOME" PATH=/usr/bin:/bin /usr/bin/korvane)
"${AS_USER[@]}" --headless --dns-port 5353 --dhcp-port 6767 >"$KV_TMP/own.out" 2>&1 &
PID=$!
kv_track "$PID"
if answer_within 15 192.0.2.10 -p 5353 www.office.example A; then
    kv_pass "started without --dir, the user's program answers www.office.example"
else
    kv_fail "started without --dir, the user's program did not answer"; tail -n 20 "$KV_TMP/own.out"
fi
kv_stop_korvane "$PID"
kv_check "... and closes cleanly (status $KV_RC)" [ "$KV_RC" = 0 ]
kv_check "the log names the folder" kv_has_line "$KV_TMP/own.out" "Program folder: $OWN"
kv_check "... and says it was made from the example" kv_has_line "$KV_TMP/own.out" \
    "Program folder created from the example /usr/share/korvane/example: named.perm, named.root, korvane.ini."
for f in korvane.ini named.perm named.root; do
    kv_check "the user's folder has the example's $f" cmp -s "$OWN/$f" "/usr/share/korvane/example/$f"
done
kv_check "the user's folder is theirs alone and holds the day's log" \
    bash -c '[ "$(stat -c %U:%a "$1")" = nobody:700 ] && ls "$1"/logs/*.log >/dev/null' _ "$OWN"
echo "; the user's own" >>"$OWN/named.perm"
"${AS_USER[@]}" --check --dns-port 5353 >"$KV_TMP/own-check.out" 2>&1
RC=$?
kv_check "--check without --dir checks the same folder (status $RC)" \
    bash -c '[ "$1" = 0 ] && head -n 1 "$2" | grep -qxF "Program folder: $3" &&
        tail -n 1 "$2" | grep -qxF "$3: no problems found."' _ "$RC" "$KV_TMP/own-check.out" "$OWN"
kv_check "... and copies nothing over the user's files" grep -qxF "; the user's own" "$OWN/named.perm"

# --- a reinstallation keeps the operator's folder
printf '; Korvane - DHCP Leases\r\nlaptop.office.example. 192.0.2.150 01aabbccddeeff 2030-01-01 12:00:00\r\n' >"$FOLDER/dhcp.dat"
rm -f "$FOLDER/named.root"   # an operator's choice, not to be undone either
chown korvane:korvane "$FOLDER/dhcp.dat"
snapshot() { (cd "$FOLDER" && find . -printf '%p %U:%G %m\n' | sort && find . -type f -exec md5sum {} + | sort); }
before=$(snapshot)
apt_get install --reinstall "$DEB" >"$KV_TMP/reinstall.out" 2>&1 || { kv_fail "apt-get install --reinstall"; cat "$KV_TMP/reinstall.out"; }
kv_check "a reinstallation changes nothing in $FOLDER (named.perm, dhcp.dat, a removed file)" \
    [ "$(snapshot)" = "$before" ]
kv_check "the changed named.perm survived" grep -qxF "new.office.example. 3600 A 192.0.2.77" "$FOLDER/named.perm"

# --- purge
apt_get purge korvane >"$KV_TMP/purge.out" 2>&1 || { kv_fail "apt-get purge"; cat "$KV_TMP/purge.out"; }
kv_check "purged: the package, its folder, its unit and the enable link are gone" \
    bash -c '! dpkg -s korvane >/dev/null 2>&1 && [ ! -e /usr/bin/korvane ] && [ ! -e "$1" ] && [ ! -e "$2" ] && [ ! -L "$3" ]' \
    _ "$FOLDER" "$UNIT" "$WANTS"
none_enabled() { [ -z "$(find /etc/systemd /var/lib/systemd/deb-systemd-helper-enabled -name 'korvane*' 2>/dev/null)" ]; }
kv_check "no unit is left enabled" none_enabled
pkg_cleanup
INSTALLED=0
kv_check "the user korvane is gone" bash -c '! getent passwd korvane >/dev/null && ! getent group korvane >/dev/null'
kv_check "the manual index and cache know no korvane" \
    bash -c '! whatis korvane >/dev/null 2>&1 && [ -z "$(find /var/cache/man -name "korvane*")" ]'

kv_finish
