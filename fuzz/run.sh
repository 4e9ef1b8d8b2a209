#!/usr/bin/env bash
# Runs fuzz harnesses: each over its seed corpus, then on fresh input for
# SECONDS, and prints one line per harness (executions, coverage, corpus,
# what went wrong). Exit 1 when any found a crash, a leak or undefined
# behaviour; the input that did it is kept in BUILD/crashes/.
#   fuzz/run.sh BUILD SECONDS [HARNESS...]     (default: every fuzz_* in BUILD)
set -uo pipefail

build=$(cd "$1" && pwd)
seconds=$2
shift 2
here=$(cd "$(dirname "$0")" && pwd)
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  for exe in "$build"/fuzz_*; do [ -x "$exe" ] && names+=("${exe##*/fuzz_}"); done
fi
# The file harnesses write a file per input: keep that in memory.
[ -d /dev/shm ] && export TMPDIR=/dev/shm
mkdir -p "$build/crashes" "$build/logs"

failed=0
for name in "${names[@]}"; do
  corpus="$build/corpus/$name"      # what this machine's runs found; seeds stay as they are
  log="$build/logs/$name.log"
  mkdir -p "$corpus"
  "$build/fuzz_$name" -max_total_time="$seconds" -print_final_stats=1 -timeout=10 \
    -rss_limit_mb=2048 -artifact_prefix="$build/crashes/$name-" \
    "$corpus" "$here/corpus/$name" >"$log" 2>&1
  status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
  ft=$(grep -o 'ft: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
  units=$(find "$corpus" -type f | wc -l)
  crashes=0 leaks=0 ub=0
  if [ $status -ne 0 ]; then
    failed=1
    if grep -q 'ERROR: LeakSanitizer' "$log"; then leaks=1
    elif grep -q 'runtime error:' "$log"; then ub=1
    else crashes=1; fi
  fi
  printf '%-13s runs %10s  cov %5s  ft %6s  corpus %5s  crashes %d  leaks %d  ub %d\n' \
    "$name" "${runs:-?}" "${cov:-?}" "${ft:-?}" "$units" $crashes $leaks $ub
  if [ $status -ne 0 ]; then
    grep -E 'ERROR|runtime error|broken:|unexpected failure|#[0-9]+ 0x|Test unit written' "$log" |
      head -30
  fi
done
exit $failed
