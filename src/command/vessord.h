// The connection thread's body and the command envelope: one request read
// from the socket, parsed, dispatched by its command text, answered.
#pragma once

#include <cstddef>
#include <string>

#include "foundation/xmlParser.h"

class CPlayerManager;
class CUnixSocketIpc;

// What the accept loop hands to one connection thread (malloc'ed by the
// loop, freed by the thread).
struct connectionArgs_s {
  int fd;
  CUnixSocketIpc* ipc;
  CPlayerManager* manager;
};
typedef connectionArgs_s connectionArgs_t;

// A request is what one read returns, at most this many bytes.
constexpr size_t kRequestMax = 4096;
// The reply's length travels as decimal text in a block of this size.
constexpr size_t kReplyHeaderSize = 256;

// The thread entry: serves the connection of `arg` (a connectionArgs_s)
// and frees it. A handler that leaves no reply ends the daemon: the thread
// throws "porcess()".
void* process(void* arg);

// A handler of the dispatch table. `root` is the parsed request, `reply`
// starts empty. 0 or more: `reply` is the finished document; negative:
// `reply` stays empty and the envelope answers with the code.
typedef int (*commandHandler_t)(CPlayerManager* manager, XMLNode& root, XMLNode& reply);

struct commandEntry_s {
  const char* name;  // matched exactly, case-sensitively
  commandHandler_t handler;
};
typedef commandEntry_s commandEntry_t;

// The dispatch table, in the order of the tests.
extern const commandEntry_s g_commandTable[];
extern const size_t g_commandTableSize;

// The first entry of `table` named `name`, or null.
const commandEntry_s* find_command(const commandEntry_s* table, size_t count, const char* name);

// How one request ended.
struct requestOutcome_s {
  std::string command;  // the command's text; "" when none was read
  std::string dev;      // the dev parameter's text; "N/A" without one
  int code = 0;         // the result code that the reply carries
  bool fatal = false;   // the handler left no reply: the daemon must end
};
typedef requestOutcome_s requestOutcome_t;

// Everything between the read and the framing: parses `len` bytes of `buf`
// (up to the first zero byte), logs the trace, runs the command through
// `table` and leaves the reply document in `reply` (the status reply of the
// code for errors). A handler that gave 0 or more with an empty reply sets
// `outcome.fatal` and leaves `reply` empty; nothing is thrown here.
void handle_request(CPlayerManager* manager, const char* buf, size_t len, XMLNode& reply, requestOutcome_s& outcome,
                    const commandEntry_s* table = g_commandTable, size_t tableSize = g_commandTableSize);

// Puts `version` first under the reply's root, with the text of getVersion
// (package "KIVO", falling back to the firmware). False when no version
// could be read; the reply is then left as it is.
bool add_version_node(XMLNode& reply);

// How long a connection may stay silent before its request, or before its
// acknowledgement of the reply: 60 s, or VESSORD_IDLE_CLIENT_MS.
int client_idle_ms();

// The reply document as it goes on the wire: indented, no declaration.
std::string reply_text(const XMLNode& reply);

// The commands of the envelope itself.
int echo(XMLNode& reply);
int create_player(XMLNode& reply);
