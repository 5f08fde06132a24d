#include "player/agentCommand.h"

#include <cstring>
#include <limits>
#include <utility>

#include "foundation/xmlParser.h"

namespace vessord {
namespace player {

namespace {

// Escapes '%' so that fixed text can stand in a template.
std::string literal(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '%') out += "%%";
    else out += c;
  }
  return out;
}

}  // namespace

AgentCommand::AgentCommand(const char* format, std::vector<std::string> values)
    : m_format(format ? format : ""), m_values(std::move(values)), m_length(0) {
  size_t next = 0;
  for (size_t i = 0; i < m_format.size(); ++i) {
    if (m_format[i] == '%' && i + 1 < m_format.size() && (m_format[i + 1] == '%' || m_format[i + 1] == 's')) {
      m_length += m_format[i + 1] == '%' ? 1 : (next < m_values.size() ? m_values[next++].size() : 0);
      ++i;
      continue;
    }
    ++m_length;
  }
}

void AgentCommand::append(const std::string& prefix, const std::string& value, size_t pieceCap, size_t limit) {
  size_t room = limit >= m_length ? limit - m_length : std::numeric_limits<size_t>::max();
  size_t n = prefix.size() + value.size();
  if (pieceCap > 0 && n > pieceCap - 1) n = pieceCap - 1;
  if (n > room) n = room;
  if (n <= prefix.size()) {
    m_format += literal(prefix.substr(0, n));
  } else {
    m_format += literal(prefix) + "%s";
    m_values.push_back(value.substr(0, n - prefix.size()));
  }
  m_length += n;
}

bool agent_read(const ShellLine& line, std::string& reply, size_t cap) {
  if (!line.ok()) return false;
  return shell_read(line, reply, cap) == 0;
}

int agent_value(const std::string& reply, const char* tag, const char* node, std::string& out) {
  XMLNode top = XMLNode::parseString(reply.c_str(), tag);
  if (top.isEmpty()) return -1;
  XMLNode child = top.getChildNode(node);
  if (child.isEmpty()) return -1;
  const char* text = child.getText();
  if (!text) return -1;
  out = text;
  return 0;
}

}  // namespace player
}  // namespace vessord
