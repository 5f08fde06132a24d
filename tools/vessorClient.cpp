#include "vessorClient.h"

#include <sys/socket.h>

#include <cctype>
#include <cstring>

#include "command/unixSocketIpc.h"
#include "foundation/rootPath.h"
#include "foundation/xmlParser.h"

namespace vessorclient {
namespace {

constexpr size_t kHeaderSize = 256;
// Far above any reply the daemon makes; a larger header is not a length.
constexpr size_t kReplyLimit = 64u << 20;

}  // namespace

std::string default_socket_path() { return vessord::root_path("/tmp/.@vessord.xxx"); }

std::string xml_escape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&apos;"; break;
      default: out += c;
    }
  }
  return out;
}

bool valid_param_name(const std::string& name) {
  if (name.empty()) return false;
  unsigned char first = static_cast<unsigned char>(name[0]);
  if (!(std::isalpha(first) || first == '_')) return false;
  for (unsigned char c : name)
    if (!(std::isalnum(c) || c == '_' || c == '-' || c == '.')) return false;
  return true;
}

std::string build_packet(const std::string& command, const paramList_t& params) {
  std::string out = "<root><command>" + xml_escape(command) + "</command>";
  if (!params.empty()) {
    out += "<paramList>";
    for (const auto& p : params) out += "<" + p.first + ">" + xml_escape(p.second) + "</" + p.first + ">";
    out += "</paramList>";
  }
  return out + "</root>";
}

CVessorConnection::CVessorConnection(const std::string& socketPath) {
  try {
    m_ipc.reset(new CUnixSocketIpc(socketPath.c_str(), false));
  } catch (const char*) {
    m_error = std::string("cannot make a socket: ") + std::strerror(errno);
    return;
  }
  if (m_ipc->Connect() != 0) {
    m_error = "cannot connect to " + socketPath + ": " + std::strerror(errno);
    return;
  }
  m_bConnected = true;
}

CVessorConnection::~CVessorConnection() = default;

void CVessorConnection::close() {
  m_ipc.reset();
  m_bConnected = false;
}

int CVessorConnection::fd() const { return m_ipc && m_bConnected ? m_ipc->fd() : -1; }

bool CVessorConnection::send(const void* data, size_t len) {
  if (!m_bConnected) return false;
  const char* p = static_cast<const char*>(data);
  while (len > 0) {
    ssize_t n = m_ipc->Write(p, len, -1);
    if (n <= 0) {
      m_error = std::string("write failed: ") + std::strerror(errno);
      return false;
    }
    p += n;
    len -= static_cast<size_t>(n);
  }
  return true;
}

bool CVessorConnection::readExact(char* buf, size_t len) {
  size_t got = 0;
  while (got < len) {
    ssize_t n = m_ipc->Read(buf + got, len - got, -1);
    if (n < 0) {
      m_error = std::string("read failed: ") + std::strerror(errno);
      return false;
    }
    if (n == 0) {
      m_error = "the daemon closed the connection";
      return false;
    }
    got += static_cast<size_t>(n);
  }
  return true;
}

bool CVessorConnection::receive(std::string& reply) {
  reply.clear();
  if (!m_bConnected) return false;
  char header[kHeaderSize];
  if (!readExact(header, sizeof header)) return false;
  size_t i = 0;
  size_t length = 0;
  while (i < sizeof header && std::isdigit(static_cast<unsigned char>(header[i])) && length <= kReplyLimit)
    length = length * 10 + static_cast<size_t>(header[i++] - '0');
  bool padded = i > 0 && length <= kReplyLimit;
  for (size_t k = i; padded && k < sizeof header; ++k) padded = header[k] == '\0';
  if (!padded) {
    m_error = "the reply header is not a length";
    return false;
  }
  reply.resize(length);
  if (length && !readExact(&reply[0], length)) {
    reply.clear();
    return false;
  }
  return true;
}

void CVessorConnection::finishSending() {
  if (m_bConnected) ::shutdown(m_ipc->fd(), SHUT_WR);
}

bool CVessorConnection::acknowledge() { return send("1", 1); }

int request(const std::string& socketPath, const std::string& packet, std::string& reply, std::string* error) {
  CVessorConnection conn(socketPath);
  bool ok = conn.ok() && conn.send(packet);
  // An empty request is only seen as such at the end of the stream.
  if (ok && packet.empty()) conn.finishSending();
  ok = ok && conn.receive(reply);
  if (ok) conn.acknowledge();  // the daemon closes either way
  if (!ok && error) *error = conn.error();
  return ok ? 0 : -1;
}

bool reply_node_text(const std::string& reply, const std::string& path, std::string& text) {
  text.clear();
  XMLNode node = XMLNode::parseString(reply.c_str(), "root", nullptr);
  size_t at = 0;
  while (!node.isEmpty() && at <= path.size()) {
    size_t slash = path.find('/', at);
    std::string name = path.substr(at, slash == std::string::npos ? std::string::npos : slash - at);
    node = node.getChildNode(name.c_str());
    if (slash == std::string::npos) break;
    at = slash + 1;
  }
  if (node.isEmpty() || path.empty()) return false;
  const char* t = node.getText();
  if (t) text = t;
  return true;
}

bool reply_succeeded(const std::string& reply) {
  std::string status;
  return reply_node_text(reply, "status", status) && (status == "0" || status == "ECHO");
}

}  // namespace vessorclient
