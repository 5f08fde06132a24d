// Files of fixed names in /tmp, which anyone can write in while the daemon
// runs as root: a name found there may be a link or a file planted by
// someone else. These helpers never follow a link and never truncate or
// remove a file that is not the daemon's own; removing a link removes the
// link alone.
#pragma once

#include <string>

namespace vessord {
namespace raop {

// Removes `path` when it is the daemon's own entry or a link. True when
// nothing is left there; false (and the entry kept) for another user's.
bool remove_own(const std::string& path);

// Makes `path` a new empty file of the daemon's own (mode 0600), after
// removing what remove_own may remove there. False when that fails; a shell
// redirection to `path` then writes into this file, as a planted name of
// another user is neither replaced nor written through.
bool prepare_own(const std::string& path);

// Opens `path` for reading, refusing a link and a file that is not a regular
// file of the daemon's own. The descriptor (close-on-exec), or -1.
int open_own(const std::string& path);

// True when `path` is a socket of the daemon's own (not a link).
bool own_socket_at(const std::string& path);

}  // namespace raop
}  // namespace vessord

namespace vessord {
namespace raop {

// The longest quoted path that the probe's line holds, with its end.
constexpr size_t kQuotedPathBuf = 512;

// True when the quoted path can stand inside the single quotes of the
// probe's line: it fits, and the shell reads it as the path and nothing
// more. A path that cannot is treated as a file that is not there.
bool probe_takes(const std::string& quoted);

}  // namespace raop
}  // namespace vessord
