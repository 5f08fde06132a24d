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
# The fuzz targets, each FUZZ_SECONDS (300) before the figures are written.
fuzzdir=${FUZZ_BUILD_DIR:-$top/build-fuzz}
CC=clang CXX=clang++ cmake -S "$top" -B "$fuzzdir" -G Ninja -DVESSORD_FUZZ=ON -DVESSORD_BENCH=OFF >/dev/null
fuzzers=$(cd "$top/tests/fuzz" && ls *_fuzz.cpp | sed 's/\.cpp$//')
cmake --build "$fuzzdir" -j"$(nproc)" --target $fuzzers
fuzzrows=""
for f in $fuzzers; do
  log="$fuzzdir/$f.reliability.log"
  if "$fuzzdir/tests/fuzz/$f" -max_total_time="${FUZZ_SECONDS:-300}" -max_len=8192 -timeout=10 >/dev/null 2>"$log"; then
    verdict="no finding"
  else
    verdict="FINDING (see $log)"
  fi
  runs=$(grep -o 'Done [0-9]* runs' "$log" | tail -1 | cut -d' ' -f2)
  fuzzrows="$fuzzrows| $f | ${runs:-?} | $verdict |
"
done
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
  "$build/bench/injection_check"
  echo
  echo "## Fuzzing"
  echo
  echo "Each libFuzzer target (AddressSanitizer and UndefinedBehaviorSanitizer) for ${FUZZ_SECONDS:-300} s."
  echo
  echo "| Target | Runs | Result |"
  echo "| --- | ---: | --- |"
  printf '%s' "$fuzzrows"
  echo
  cat "$top/docs/reliability-notes.md"
} >"$tmp"
mv "$tmp" "$out"
echo "wrote $out" >&2
