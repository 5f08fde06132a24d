// The command envelope on arbitrary bytes: parse, dispatch decision and the
// reply, as one connection would run them, without the socket. Only the
// commands that need no player manager are in the table; CreatePlayer is
// among them, since the envelope only reports its fatal outcome.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "command/vessord.h"
#include "foundation/xmlParser.h"

namespace {

std::vector<commandEntry_s> safe_table() {
  std::vector<commandEntry_s> table;
  for (size_t i = 0; i < g_commandTableSize; ++i) {
    const char* name = g_commandTable[i].name;
    if (std::strcmp(name, "echo") == 0 || std::strcmp(name, "CreatePlayer") == 0) table.push_back(g_commandTable[i]);
  }
  return table;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::vector<commandEntry_s> table = safe_table();
  // A request is what one read returns, and the daemon's buffer keeps a
  // zero behind it.
  if (size > kRequestMax) size = kRequestMax;
  std::vector<char> buffer(data, data + size);
  buffer.push_back('\0');

  XMLNode reply;
  requestOutcome_s outcome;
  handle_request(nullptr, buffer.data(), size, reply, outcome, table.data(), table.size());
  if (outcome.fatal) {
    if (!reply.isEmpty() || outcome.command != "CreatePlayer") __builtin_trap();
    return 0;
  }
  // Every other outcome is a whole reply whose status tells the code.
  const std::string text = reply_text(reply);
  XMLNode back = XMLNode::parseString(text.c_str(), "root", nullptr);
  const char* status = back.getChildNode("status").getText();
  if (!status) __builtin_trap();
  if (outcome.code < 0 && std::to_string(outcome.code) != status) __builtin_trap();
  if (outcome.code >= 0 && outcome.command != "echo") __builtin_trap();
  return 0;
}
