#!/bin/sh
# Configures and builds into BUILD_DIR (default build). Extra arguments go to cmake.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
dir=${BUILD_DIR:-$top/build}
cmake -S "$top" -B "$dir" -G Ninja "$@" >/dev/null
cmake --build "$dir" -j"$(nproc)"
