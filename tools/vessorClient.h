// Client side of the daemon's command socket: one request per connection,
// answered by a 256-byte decimal length header and the reply text, after
// which the client acknowledges with one byte.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class CUnixSocketIpc;

namespace vessorclient {

// The daemon's socket, under the test root when VESSORD_ROOT is set.
std::string default_socket_path();

// Text escaped for an XML element's content.
std::string xml_escape(const std::string& text);

// True for a name that can stand as an element name in a packet.
bool valid_param_name(const std::string& name);

typedef std::vector<std::pair<std::string, std::string>> paramList_t;

// <root><command>..</command><paramList><name>value</name>..</paramList></root>;
// the paramList is left out when there are no parameters.
std::string build_packet(const std::string& command, const paramList_t& params);

// One connection to the daemon, for callers that need to control the bytes
// on the wire (tests, the benchmark); request() below covers the usual case.
class CVessorConnection {
 public:
  explicit CVessorConnection(const std::string& socketPath);
  ~CVessorConnection();
  CVessorConnection(const CVessorConnection&) = delete;
  CVessorConnection& operator=(const CVessorConnection&) = delete;

  // False when the socket could not be made or connected.
  bool ok() const { return m_bConnected; }
  const std::string& error() const { return m_error; }

  // Writes all of `data`. False on failure.
  bool send(const void* data, size_t len);
  bool send(const std::string& data) { return send(data.data(), data.size()); }
  // Tells the daemon that nothing more comes (its read then ends).
  void finishSending();
  // Reads the length header and exactly that many bytes of reply. False
  // when the daemon closed early or the header is not a length.
  bool receive(std::string& reply);
  // The one-byte acknowledgement that lets the daemon close.
  bool acknowledge();
  // Closes the connection now (the destructor does it otherwise).
  void close();
  // The connected descriptor, -1 when none.
  int fd() const;

 private:
  bool readExact(char* buf, size_t len);

  std::unique_ptr<CUnixSocketIpc> m_ipc;
  bool m_bConnected = false;
  std::string m_error;
};

// Connect, send `packet`, receive the reply, acknowledge. 0 with the reply
// text, or -1 with `error` set.
int request(const std::string& socketPath, const std::string& packet, std::string& reply, std::string* error = nullptr);

// The text of a node of the reply: a child of `root`, or a path of first
// children such as "device/deviceName". False when there is no such node
// (a node without text gives true and "").
bool reply_node_text(const std::string& reply, const std::string& path, std::string& text);

// True when the reply's status is "0" or "ECHO".
bool reply_succeeded(const std::string& reply);

}  // namespace vessorclient
