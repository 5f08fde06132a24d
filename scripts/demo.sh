#!/bin/sh
# A short session with the daemon: builds it, lays out a simulated appliance
# in a temporary directory, starts the daemon there, talks to it with
# vessorctl, then stops it and removes the directory.
# Usage: ./scripts/demo.sh   (BUILD_DIR picks the build directory)
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$top/build}

"$top/scripts/deps.sh"
BUILD_DIR=$build "$top/scripts/build.sh"

root=$(mktemp -d "${TMPDIR:-/tmp}/vessord-demo-XXXXXX")
pid=""
cleanup() {
  if [ -n "$pid" ]; then
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  fi
  rm -rf "$root"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

"$top/sim/lay-root.sh" "$root" "$build/sim/bin"
export VESSORD_ROOT="$root"
"$build/src/vessord" 2>"$root/daemon.log" &
pid=$!

ctl() {
  echo "\$ vessorctl $*"
  "$build/tools/vessorctl" "$@" || echo "(exit status $?)"
  echo
}

# The socket file appears a moment before the daemon listens.
tries=0
until "$build/tools/vessorctl" echo >/dev/null 2>&1; do
  tries=$((tries + 1))
  if [ "$tries" -gt 100 ] || ! kill -0 "$pid" 2>/dev/null; then
    echo "the daemon did not come up:" >&2
    cat "$root/daemon.log" >&2
    exit 1
  fi
  sleep 0.1
done

echo "vessord runs in the simulated appliance $root (pid $pid)"
echo
ctl echo
ctl NoSuchCommand dev=renderer-1
ctl --get version echo
echo "The tool calls the daemon made, as the appliance would see them:"
sed "s|$root||g" "$root/sim/calls.log" | sort | uniq -c
echo
echo "The daemon's command trace:"
sed 's/\x1b\[[0-9;]*m//g; s/^\[File:[^]]*\]\[Line:[0-9]*\]\[Func:[^]]*\]: //' "$root/daemon.log" | grep -E '^Command:|not found' || true
