#include "services/service.h"

#include <sstream>
#include <utility>

#include "foundation/log.h"

namespace vessord {

std::string Response::fToString(float value) {
  std::stringstream ss;
  ss << value;
  std::string word;
  ss >> word;
  return word;
}

float Response::stringToF(const std::string& text) {
  std::stringstream ss;
  ss << text;
  float value = 0;
  ss >> value;
  // A failed extraction already stores 0; say so for older libraries too.
  if (ss.fail()) return 0;
  return value;
}

void Response::dump() {
  VLOG(LOG_COLOR_DUMP, "m_response=%ld", static_cast<long>(m_response));
  VLOG(LOG_COLOR_DUMP, "m_duration=%f", static_cast<double>(m_duration));
  VLOG(LOG_COLOR_DUMP, "m_position=%f", static_cast<double>(m_position));
  VLOG(LOG_COLOR_DUMP, "m_volume=%f", static_cast<double>(m_volume));
  VLOG(LOG_COLOR_DUMP, "m_muted=%d", m_muted);
  VLOG(LOG_COLOR_DUMP, "m_errMsg=%s", m_errMsg.c_str());
  VLOG(LOG_COLOR_DUMP, "m_state=%s", m_state.c_str());
}

Service::Service(std::string renderId, std::string ip, int port, std::string name)
    : m_name(std::move(name)), m_renderId(std::move(renderId)), m_ip(std::move(ip)), m_port(port) {}

void Service::update(std::string renderId, std::string ip, int port, std::string name) {
  m_renderId = std::move(renderId);
  m_ip = std::move(ip);
  m_port = port;
  m_name = std::move(name);
}

}  // namespace vessord
