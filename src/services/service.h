// The base of the objects that drive one render device over the network, and
// the record through which every render control operation hands back what
// the device said. Operations report success by their int result.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vessord {

class Response {
 public:
  // An operation writes only what the reply carried, and a caller reads only
  // what it knows is written; the numbers start at 0 merely so that dump()
  // of an unanswered request reads no indeterminate value.
  Response() = default;

  // Default stream format, so 1.0 is "1" and 0.5 is "0.5": the text goes
  // into query strings.
  static std::string fToString(float value);
  // Stream extraction: leading blanks skipped, trailing text ignored, a text
  // that does not begin with a number gives 0.
  static float stringToF(const std::string& text);
  void dump();

  int64_t m_response = 0;
  float m_duration = 0;
  float m_position = 0;
  float m_volume = 0;
  int m_muted = 0;
  std::string m_errMsg;
  std::string m_state;
  // Released with the record; nothing fills or reads it.
  std::vector<std::pair<float, float>> m_timeRanges;
};

class Service {
 public:
  Service() = default;
  Service(std::string renderId, std::string ip, int port, std::string name);
  virtual ~Service() = default;

  virtual int setContentUrl(Response& response, std::string url) = 0;
  virtual int play(Response& response) = 0;
  virtual int pause(Response& response) = 0;
  virtual int stop(Response& response) = 0;
  virtual int seek(Response& response, float seconds) = 0;
  virtual int getPosInfo(Response& response) = 0;

  // Same argument order as the constructor, not the order of the fields.
  void update(std::string renderId, std::string ip, int port, std::string name);

  std::string m_name;
  std::string m_renderId;
  std::string m_ip;
  int m_port = 0;
};

}  // namespace vessord
