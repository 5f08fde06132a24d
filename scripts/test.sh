#!/bin/sh
# Installs what is missing, builds, and runs every test.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/deps.sh"
BUILD_DIR=${BUILD_DIR:-$top/build} "$top/scripts/build.sh"
cd "${BUILD_DIR:-$top/build}"
ctest --output-on-failure -j"$(( $(nproc) * 2 ))"
