// The one resolver for the fixed absolute paths of the daemon.
//
// With VESSORD_ROOT unset or empty every path is used exactly as written.
// With VESSORD_ROOT=D, a fixed path P (a tool, a config file, the socket,
// /share/Public, /tmp files, /proc/asound, /proc/net, /etc/...) becomes D+P,
// so that a test or the demo runs the daemon inside a simulated appliance.
// Only the process table (/proc and /proc/<pid>) and /dev stay real.
#pragma once

#include <string>

namespace vessord {

// The test root, read once from the environment; "" when none is set.
const std::string& test_root();

// Overrides the root for this process (tests that run the code in-process).
// Not thread-safe against concurrent readers: call before starting threads.
void set_test_root(const std::string& root);

// True for a fixed absolute path that moves under the test root.
bool is_rooted_path(const char* path);

// The path as the daemon must use it: D+path under a root, else unchanged.
std::string root_path(const char* path);
inline std::string root_path(const std::string& path) { return root_path(path.c_str()); }

// A root is usable only when a shell reads it as plain text (letters,
// digits and / . _ - + , : @ %), since it is spliced into command lines.
bool test_root_is_valid();

// A fixed shell template with each fixed absolute path that starts a word
// (after white space, a quote, '=', or a redirection) moved under the root.
std::string root_command(const std::string& templ);

}  // namespace vessord
