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
  # The sound output's private music daemons end with the demo.
  for conf in "$root"/sim/mpd/*/mpd.conf; do
    [ -f "$conf" ] && mpd --kill "$conf" >/dev/null 2>&1 || true
  done
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
ctl --get version echo
ctl NoSuchCommand dev=renderer-1

# A renderer on the simulated network, and three short tracks the media
# library knows, so the play queue walks through them in a few seconds.
dev="uuid:living-room-tv"
printf '%s' "<root><status>success</status><device><deviceId>$dev</deviceId><deviceName>Living Room TV</deviceName><type>video,photo,audio</type><ip>127.0.0.1</ip></device></root>" \
  >"$root/sim/dlna-devices.xml"
mkdir -p "$root/sim/renderers"
music=/share/CACHEDEV1_DATA/Public
n=0
for t in "Morning Walk.mp3" "What's Going On?.mp3" "#1 Hits ~ 2024.mp3"; do
  n=$((n + 1))
  echo "data" >"$root$music/$t"
  printf 'd%d\t%d\t0\t%s\t00:00:06\n' "$n" "$((3000 + n))" "$music/$t" >>"$root/sim/media.tsv"
done

ctl --get device/deviceName ListRender
ctl CreatePlaylist playlist=Demo playlistType=audio appType=music owner=admin
for t in "Morning Walk.mp3" "What's Going On?.mp3" "#1 Hits ~ 2024.mp3"; do
  ctl AddContent playlist=Demo appType=music contentType=file mediaType=audio "content=$music/$t"
done
ctl --get size SizeOfListContent playlist=Demo appType=music
ctl SetPlaylist "dev=$dev" playlist=Demo appType=music
ctl Play "dev=$dev"
echo "Polling the status once a second: state, track, position, duration, content"
ctl --watch 4 --every 1 --get playerState,currTrack,currTime,totalTime,trackContent GetPlayerStatus "dev=$dev"
ctl Pause "dev=$dev"
ctl --get playerState,currTrack,currTime GetPlayerStatus "dev=$dev"
ctl Play "dev=$dev"
ctl --watch 16 --every 1 --get playerState,currTrack,currTime,totalTime,trackContent GetPlayerStatus "dev=$dev"
ctl Stop "dev=$dev"

# The box's own sound output, through a private copy of the real music
# daemon (Debian's mpd and mpc behind the appliance's adapters).
out=ANALOG_card0
mkdir -p "$root$music/Box"
for t in "Overture" "Finale"; do
  "$build/sim/bin/tone" "$root$music/Box/$t.wav" 5
done
ctl --get device/deviceName,device/deviceId ListRender renderType=alsa
ctl CreatePlaylist playlist=Box playlistType=audio appType=music owner=admin
for t in "Overture" "Finale"; do
  ctl AddContent playlist=Box appType=music contentType=file mediaType=audio "content=$music/Box/$t.wav"
done
ctl SetPlaylist "dev=$out" playlist=Box appType=music
ctl Play "dev=$out"
ctl --watch 4 --every 1 --get playerState,currTrack,currTime,totalTime GetPlayerStatus "dev=$out"
ctl SetVolume "dev=$out" vol=40
ctl --get volume GetVolume "dev=$out"
ctl Next "dev=$out"
ctl --watch 3 --every 1 --get playerState,currTrack,currTime,trackContent GetPlayerStatus "dev=$out"
ctl Stop "dev=$out"
echo "The tool calls the daemon made, as the appliance would see them:"
sed "s|$root||g" "$root/sim/calls.log" | sort | uniq -c
echo
echo "The daemon's command trace:"
sed 's/\x1b\[[0-9;]*m//g; s/^\[File:[^]]*\]\[Line:[0-9]*\]\[Func:[^]]*\]: //' "$root/daemon.log" | grep -E '^Command:|not found' | grep -v '(done)$' | uniq -c || true
