// How the player composes the media library's command lines and reads the
// agent's replies. Internal to the player.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "foundation/shellRunner.h"

namespace vessord {
namespace player {

// The size of the buffer that a command line and an agent reply share.
constexpr size_t kAgentBuf = 4096;

// A command line built like a C string in a fixed buffer: a template with
// "%s" slots, then pieces appended with a bound, and the length the line
// has with its values in place (the fixed paths as the appliance has them).
class AgentCommand {
 public:
  AgentCommand(const char* format, std::vector<std::string> values);

  // Appends `prefix` + `value` as strncat appends a piece that snprintf
  // built in a scratch buffer of `pieceCap` bytes, with at most `limit`
  // minus the current length taken (an underflow takes all, as unsigned
  // arithmetic does). A value cut short stays a value.
  void append(const std::string& prefix, const std::string& value, size_t pieceCap, size_t limit);

  // The plain length of the line.
  size_t length() const { return m_length; }
  // False when the line would not have fitted a buffer of `size` bytes: the
  // cut line would run something else, so it is not run at all.
  bool fits(size_t size) const { return m_length < size; }
  ShellLine line() const { return ShellLine(m_format.c_str(), m_values); }

 private:
  std::string m_format;
  std::vector<std::string> m_values;
  size_t m_length;
};

// Runs the line and gives what one read of at most `cap` bytes took from
// its output; false when nothing could run.
bool agent_read(const ShellLine& line, std::string& reply, size_t cap = kAgentBuf);

// Parses `reply` with `tag` ("root", or null for the single top element)
// and copies the text of the top's child `node` into `out`. 0, or -1 when
// the document, the node or its text is missing (`out` untouched).
int agent_value(const std::string& reply, const char* tag, const char* node, std::string& out);

}  // namespace player
}  // namespace vessord
