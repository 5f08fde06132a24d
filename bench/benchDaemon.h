// What the socket benchmarks share: a simulated root laid out in /tmp, and
// the real daemon started in it with its log in the root.
#pragma once

#include <sys/types.h>

#include <string>

namespace benchdaemon {

// A fresh simulated root, or "" when it could not be made.
std::string make_root();
// True once a socket listens at `path` (read from /proc/net/unix).
bool listening(const std::string& path);
// The daemon started in `root`, its standard error appended to
// root/sim/daemon.log; its pid once it listens, or -1.
pid_t spawn_daemon(const std::string& root);
void stop_daemon(pid_t pid);
// Ends the private music daemons that sound-output players started in
// `root`: the daemon has no orderly stop, so they outlive it.
void end_music_daemons(const std::string& root);
// The daemon's socket in `root`.
std::string socket_of(const std::string& root);

}  // namespace benchdaemon
