#!/bin/sh
# Regenerates docs/reliability.md: the recovery figures and the flood of
# silent clients, measured on this machine, then the notes of
# docs/reliability-notes.md. Usage: scripts/reliability.sh [output file]
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-$top/docs/reliability.md}
build=${BUILD_DIR:-$top/build-bench}
"$top/scripts/deps.sh"
BUILD_DIR=$build "$top/scripts/build.sh" -DCMAKE_BUILD_TYPE=Release -DVESSORD_TESTS=OFF -DVESSORD_BENCH=ON
tmp=$(mktemp)
{
  echo "# Reliability figures"
  echo
  echo "Regenerate with \`scripts/reliability.sh\`. Machine: $(nproc) cores,"
  echo "$(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//'), Linux $(uname -r); run on $(date -u +%Y-%m-%d)."
  echo
  "$top/scripts/recovery.sh" "$build"
  echo
  "$build/bench/flood_check"
  echo
  "$build/bench/crash_check"
  echo
  cat "$top/docs/reliability-notes.md"
} >"$tmp"
mv "$tmp" "$out"
echo "wrote $out" >&2
