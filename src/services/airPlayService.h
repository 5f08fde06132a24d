// The Service of an AirPlay device: each operation one request of its
// HTTP client.
#pragma once

#include <string>

#include "services/curlWrapper.h"
#include "services/service.h"

namespace vessord {

class AirPlayService : public Service {
 public:
  AirPlayService() = default;
  AirPlayService(std::string renderId, const std::string& ip, int port, std::string name, std::string second,
                 std::string first, bool flagA, bool flagB);

  int setContentUrl(Response& response, std::string url) override;
  int play(Response& response) override;
  int pause(Response& response) override;
  int stop(Response& response) override;
  int seek(Response& response, float seconds) override;
  int getPosInfo(Response& response) override;
  virtual int playPhoto(Response& response, const std::string& path);

  // Hides Service::update: the client follows the address and port.
  void update(std::string renderId, const std::string& ip, int port, std::string name);
  void update(std::string renderId, const std::string& ip, int port, std::string name, std::string second,
              std::string first, bool flagA, bool flagB);
  std::string urlEscape(std::string text);

  std::string m_serviceAttrA;
  std::string m_serviceAttrB;
  bool m_serviceFlagA = false;
  bool m_serviceFlagB = false;
  CurlWrapper m_curlWrapper;
};

}  // namespace vessord
