#!/bin/sh
# Recovery from the daemon's ends: under a supervisor (a restart loop that
# waits a second, as the service unit does with RestartSec=1), each command
# that ends the daemon by contract and each fatal signal is sent in turn;
# the time until `echo` answers again is measured, and every playlist and
# element is checked against what was stored before. Prints a Markdown
# section. Usage: scripts/recovery.sh [BUILD_DIR]
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-${BUILD_DIR:-$top/build}}
ctl="$build/tools/vessorctl"
[ -x "$build/src/vessord" ] && [ -x "$ctl" ] || { echo "build first: $build" >&2; exit 1; }

root=$(mktemp -d "${TMPDIR:-/tmp}/vessord-recovery-XXXXXX")
sup=""
cleanup() {
  [ -n "$sup" ] && kill "$sup" 2>/dev/null || true
  [ -f "$root/pid" ] && kill "$(cat "$root/pid")" 2>/dev/null || true
  rm -rf "$root"
}
trap cleanup EXIT
"$top/sim/lay-root.sh" "$root" "$build/sim/bin"
export VESSORD_ROOT="$root"

# The supervisor: start the daemon again a second after any end.
(
  while :; do
    "$build/src/vessord" 2>>"$root/daemon.log" &
    echo $! >"$root/pid"
    wait $! || true
    sleep 1
  done
) 2>/dev/null &
sup=$!

now_ms() { date +%s%3N; }
wait_echo() {
  i=0
  until "$ctl" echo >/dev/null 2>&1; do
    i=$((i + 1))
    [ "$i" -lt 400 ] || return 1
    sleep 0.02
  done
}
daemon_pid() { cat "$root/pid"; }
wait_echo || { echo "the daemon did not come up" >&2; exit 1; }

# Playlists to keep: three of them, with elements.
for p in One Two Three; do
  "$ctl" CreatePlaylist "playlist=$p" playlistType=audio appType=music owner=admin >/dev/null
  for i in 1 2 3 4 5; do
    "$ctl" AddContent "playlist=$p" appType=music contentType=file mediaType=audio \
      "content=/share/Public/$p-$i.mp3" >/dev/null
  done
done
state() {
  for p in One Two Three; do
    "$ctl" ListContentOfPlaylist "playlist=$p" appType=music start=0 count=100 2>/dev/null || echo "-"
  done
}
before=$(state)
[ "$(echo "$before" | grep -c 'mp3')" -eq 15 ] || { echo "the playlists were not stored" >&2; exit 1; }

echo "## Recovery from the daemon's ends"
echo
echo "Under a restart loop that waits one second (the service unit's RestartSec=1), from the end's"
echo "trigger to the first \`echo\` answered again; then every playlist and element compared with"
echo "what was stored before the first end. Goal: under 3 s, nothing lost."
echo
echo "| End | Time to echo again (ms) | Playlists intact |"
echo "| --- | ---: | --- |"
worst=0
lost=0
for end in CreatePlayer GetUpnpObjectID SIGSEGV SIGABRT SIGBUS SIGILL SIGUSR1 SIGKILL; do
  old=$(daemon_pid)
  t0=$(now_ms)
  case "$end" in
    CreatePlayer) "$ctl" CreatePlayer >/dev/null 2>&1 || true ;;
    GetUpnpObjectID) "$ctl" GetUpnpObjectID >/dev/null 2>&1 || true ;;
    *) kill -s "${end#SIG}" "$old" ;;
  esac
  # Gone first, then back.
  i=0
  while kill -0 "$old" 2>/dev/null && [ "$i" -lt 500 ]; do i=$((i + 1)); sleep 0.01; done
  if wait_echo; then
    ms=$(( $(now_ms) - t0 ))
  else
    ms=-1
  fi
  if [ "$(state)" = "$before" ]; then ok=yes; else ok=NO; lost=$((lost + 1)); fi
  [ "$ms" -gt "$worst" ] && worst=$ms
  [ "$ms" -lt 0 ] && worst=999999
  echo "| $end | $ms | $ok |"
done
echo
echo "Slowest: $worst ms. Ends that lost data: $lost."
[ "$lost" -eq 0 ] && [ "$worst" -lt 3000 ]
