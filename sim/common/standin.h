// Shared by every stand-in tool of the simulated appliance.
#pragma once

#include <string>

namespace sim {

// The root of the simulated appliance: $VESSORD_ROOT, or else derived from
// the tool's own path (ROOT/<appliance path of the tool>).
std::string root(const char* argv0, const char* appliancePath);

// Appends one line to ROOT/sim/calls.log: the arguments as a shell would
// need them written (plain words bare, others in single quotes), argv[0]
// first. One write with O_APPEND, so concurrent calls never interleave.
void log_call(const std::string& root, int argc, char** argv);

// ROOT + path.
std::string path(const std::string& root, const char* appliancePath);

// Whole file as text; "" when it cannot be read.
std::string read_file(const std::string& file);

// A short mono 16-bit PCM WAV file of a square tone, for the music daemon.
void write_wav(const std::string& file, int seconds, int rate = 8000);

}  // namespace sim
