#!/bin/sh
# Lays out a simulated appliance under ROOT: the stand-in tools at their
# appliance paths, the sample configuration and media files, the share and
# /tmp. Usage: lay-root.sh ROOT SIM_BIN_DIR
set -eu
root=$1
bindir=$2
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$root/sim" "$root/tmp" "$root/share/CACHEDEV1_DATA/Public" "$root/etc/config"
: >>"$root/sim/calls.log"
# configuration and media samples
if [ -d "$here/files" ]; then
  cp -R "$here/files/." "$root/"
fi
# As on the appliance, the public share is a link into the data volume, so
# the daemon's log and database land beside it on that volume.
[ -e "$root/share/Public" ] || ln -s CACHEDEV1_DATA/Public "$root/share/Public"
while read -r bin dest; do
  case "$bin" in ''|'#'*) continue ;; esac
  mkdir -p "$root$(dirname "$dest")"
  case "$bin" in
    # Scripts are copied, so that they find the root from their own place.
    *.js) cp "$here/scripts/$bin" "$root$dest" ;;
    *) ln -sf "$bindir/$bin" "$root$dest" ;;
  esac
done <"$here/standins.txt"
# The port search of the private music daemons reads the real TCP table, so
# it sees the ports the real daemons listen on; awk and grep are the real ones.
mkdir -p "$root/proc/net" "$root/bin"
ln -sf /proc/net/tcp "$root/proc/net/tcp"
# The caption test asks a loopback media server over real HTTP.
if real=$(command -v curl); then
  [ -e "$root/sbin/curl" ] || { mkdir -p "$root/sbin"; ln -s "$real" "$root/sbin/curl"; }
fi
for t in awk grep; do
  real=$(command -v "$t")
  [ -e "$root/bin/$t" ] || ln -s "$real" "$root/bin/$t"
done
# The Chromecast sender script runs on the real node.
if real=$(command -v node); then
  mkdir -p "$root/usr/local/medialibrary/bin"
  [ -e "$root/usr/local/medialibrary/bin/node" ] || ln -s "$real" "$root/usr/local/medialibrary/bin/node"
fi
