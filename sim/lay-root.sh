#!/bin/sh
# Lays out a simulated appliance under ROOT: the stand-in tools at their
# appliance paths, the sample configuration and media files, the share and
# /tmp. Usage: lay-root.sh ROOT SIM_BIN_DIR
set -eu
root=$1
bindir=$2
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$root/sim" "$root/tmp" "$root/share/Public" "$root/etc/config"
: >>"$root/sim/calls.log"
# configuration and media samples
if [ -d "$here/files" ]; then
  cp -R "$here/files/." "$root/"
fi
while read -r bin dest; do
  case "$bin" in ''|'#'*) continue ;; esac
  mkdir -p "$root$(dirname "$dest")"
  ln -sf "$bindir/$bin" "$root$dest"
done <"$here/standins.txt"
