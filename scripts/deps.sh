#!/bin/sh
# Installs the Debian packages the build and the tests need, when missing.
set -eu
pkgs="cmake ninja-build g++ clang clang-tidy libclang-rt-14-dev libsqlite3-dev libgtest-dev libgmock-dev
      libcurl4-openssl-dev libcpp-httplib-dev procps mpd mpc"
# systemd-analyze checks the service unit.
pkgs="$pkgs systemd"
# The Chromecast sender stand-in runs on node.
pkgs="$pkgs nodejs"
missing=""
for p in $pkgs; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
  echo "installing:$missing"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO=sudo
  $SUDO apt-get update -q
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q --no-install-recommends $missing
fi
