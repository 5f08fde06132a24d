#!/bin/sh
# Builds the benchmarks (optimised) and runs them all, writing the figures
# with a description of the machine to docs/performance.md.
# Usage: bench/run.sh [output file]
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-$top/docs/performance.md}
dir=${BUILD_DIR:-$top/build-bench}
"$top/scripts/deps.sh"
BUILD_DIR=$dir "$top/scripts/build.sh" -DCMAKE_BUILD_TYPE=Release -DVESSORD_TESTS=OFF -DVESSORD_BENCH=ON

cpu=$(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//')
mem=$(awk '/MemTotal/ {printf "%.1f GiB", $2/1048576}' /proc/meminfo)
tmp=$(mktemp)
{
  echo "# Performance"
  echo
  echo "Every figure stands beside a baseline measured in the same run, on the same machine,"
  echo "so the ratios hold across machines better than the absolute numbers."
  echo "Regenerate with \`bench/run.sh\` (optimised build, about two minutes)."
  echo
  echo "Machine: $(nproc) cores, $cpu, $mem, Linux $(uname -r), $(c++ --version | head -1)."
  echo "Run on $(date -u +%Y-%m-%d)."
  echo
  for b in "$dir"/bench/*_bench; do
    [ -x "$b" ] || continue
    echo "running $(basename "$b")" >&2
    "$b"
    echo
  done
} >"$tmp"
if [ -f "$top/docs/performance-notes.md" ]; then
  cat "$top/docs/performance-notes.md" >>"$tmp"
fi
mv "$tmp" "$out"
echo "wrote $out" >&2
