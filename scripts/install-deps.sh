#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the benchmarks need.
# Idempotent and quiet: runs apt-get only when something is missing.
set -euo pipefail

packages=(
  # build
  cmake ninja-build g++ make qt6-base-dev libgtest-dev libgmock-dev libbenchmark-dev
  # fuzz harnesses (libFuzzer with its sanitizers)
  clang-14 clang libclang-rt-14-dev
  # the window: SVG icon plugins, a font metric-compatible with Arial
  libqt6svg6 fonts-liberation
  # test peers and tools
  bind9-dnsutils dnsperf iproute2 nsd dnsmasq-base dns-root-data python3
  udhcpc isc-dhcp-client kea-admin procps util-linux mount
  # DHCP rate benchmark peer
  kea-dhcp4-server
  # screenshots and the GUI load benchmark: a virtual display and its tools
  xvfb xauth imagemagick xdotool x11-utils
  # the Debian package: its build, lintian, systemd-analyze verify for the unit
  debhelper dpkg-dev lintian systemd man-db desktop-file-utils
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"

# Server packages must not start their system services on installation.
policy=/usr/sbin/policy-rc.d
made_policy=0
if [ ! -e "$policy" ]; then
  printf '#!/bin/sh\nexit 101\n' | $SUDO tee "$policy" >/dev/null
  $SUDO chmod +x "$policy"
  made_policy=1
fi
trap '[ $made_policy -eq 1 ] && $SUDO rm -f "$policy"' EXIT

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq >/dev/null
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
