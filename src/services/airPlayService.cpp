#include "services/airPlayService.h"

#include <utility>

#include "foundation/log.h"

namespace vessord {

AirPlayService::AirPlayService(std::string renderId, const std::string& ip, int port, std::string name,
                               std::string second, std::string first, bool flagA, bool flagB) {
  update(std::move(renderId), ip, port, std::move(name), std::move(second), std::move(first), flagA, flagB);
}

void AirPlayService::update(std::string renderId, const std::string& ip, int port, std::string name) {
  Service::update(std::move(renderId), ip, port, std::move(name));
  m_curlWrapper.setIp(ip);
  m_curlWrapper.setPort(port);
}

void AirPlayService::update(std::string renderId, const std::string& ip, int port, std::string name,
                            std::string second, std::string first, bool flagA, bool flagB) {
  update(std::move(renderId), ip, port, std::move(name));
  m_serviceAttrA = std::move(first);
  m_serviceAttrB = std::move(second);
  m_serviceFlagA = flagA;
  m_serviceFlagB = flagB;
}

std::string AirPlayService::urlEscape(std::string text) { return m_curlWrapper.urlEscape(text); }

int AirPlayService::setContentUrl(Response& response, std::string url) {
  VLOG(LOG_COLOR_TRACE, "performing setContentUrl ");
  return m_curlWrapper.airplayPostPlay(response, url);
}

int AirPlayService::play(Response& response) {
  VLOG(LOG_COLOR_TRACE, "performing play ");
  return m_curlWrapper.airplayPostRate(response, 1.0F);
}

int AirPlayService::pause(Response& response) {
  VLOG(LOG_COLOR_TRACE, "performing pause ");
  return m_curlWrapper.airplayPostRate(response, 0.0F);
}

int AirPlayService::stop(Response& response) {
  VLOG(LOG_COLOR_TRACE, "performing stop ");
  return m_curlWrapper.airplayPostStop(response);
}

int AirPlayService::seek(Response& response, float seconds) {
  VLOG(LOG_COLOR_TRACE, "performing seek ");
  return m_curlWrapper.airplayPostScrub(response, seconds);
}

int AirPlayService::getPosInfo(Response& response) {
  VLOG(LOG_COLOR_TRACE, "performing getPosInfo ");
  return m_curlWrapper.airplayGetScrub(response);
}

int AirPlayService::playPhoto(Response& response, const std::string& path) {
  VLOG(LOG_COLOR_TRACE, "performing playPhoto ");
  return m_curlWrapper.airplayPutPhoto(response, path);
}

}  // namespace vessord
