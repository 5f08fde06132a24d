// Path resolution shared by the daemon's start-up, the playlist store and
// the agent calls.
#pragma once

#include <string>

// Resolves `path` into `out` (1024 bytes): a regular file keeps its name
// behind its resolved directory, anything else is resolved whole. Every
// single quote of the result becomes '\'' so that the text can stand inside
// single quotes on a command line. 0, or -1 when the path cannot be resolved
// or the result would not fit.
int get_real_path(const char* path, char* out);

namespace vessord {

// The directory that holds the share "Public": the resolved base share
// (under the test root, if one is set) cut at the text "Public", keeping
// its final slash. "" when the share cannot be resolved.
std::string public_parent_dir();

}  // namespace vessord
