#!/usr/bin/env bash
# Starts Korvane on the example program folder (copied to run/ on first use):
# the main window on a desktop, headless without a display.
# Extra arguments for the program can be given in KORVANE_ARGS, for example
# KORVANE_ARGS="--dns-port 5353" when not running as root.
set -euo pipefail
build=${1:-build}
cd "$(dirname "$0")/.."
if [ ! -d run ]; then
  cp -r examples/office run
  echo "Created run/ from examples/office"
fi
exec "$build/korvane" --dir run ${KORVANE_ARGS:-}
