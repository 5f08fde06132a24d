// A simulated AirPlay video device for tests: an HTTP server on a loopback
// address and a port of the caller's choice (0 picks a free one), running in
// the test process. It answers as a device does and keeps what it was sent.
//
// After /play the position follows the wall clock (times the rate set by
// /rate) from the start position and stops at the media's duration, where
// the device reads stopped. /scrub POST moves it, /stop clears the media.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
struct Request;
struct Response;
}

namespace sim {

struct AirplayRequest {
  std::string method;
  std::string path;   // with the query string, as sent
  std::map<std::string, std::string> headers;
  std::string body;
};

class AirplayDevice {
 public:
  AirplayDevice();
  ~AirplayDevice();
  AirplayDevice(const AirplayDevice&) = delete;
  AirplayDevice& operator=(const AirplayDevice&) = delete;

  // Listens on host:port (port 0: a free one) and serves from a thread.
  // False when it cannot listen.
  bool start(const std::string& host = "127.0.0.1", int port = 0);
  // Stops answering and closes the socket: the device vanishes.
  void stop();
  int port() const { return m_port; }

  // Seconds of media the device reports for a content URL; others get
  // the default duration.
  void setDuration(const std::string& url, double seconds);
  void setDefaultDuration(double seconds);
  // Every following request answers this HTTP status with an empty body
  // (0: answer normally again).
  void setRefuse(int status);
  // GET /scrub answers this text as it stands ("" : the device's own).
  void setScrubReply(const std::string& body);

  std::vector<AirplayRequest> requests() const;
  void clearRequests();
  // The content URL of the last /play ("" after /stop), the rate, the
  // position as of now, and the bytes of the last photo.
  std::string currentUrl() const;
  double rate() const;
  double position() const;
  std::string lastPhoto() const;

 private:
  double positionLocked_() const;
  using RouteHandler = std::function<void(const httplib::Request&, httplib::Response&)>;
  void route_(const std::string& method, const std::string& path, const RouteHandler& handler);
  void install_();

  std::unique_ptr<httplib::Server> m_server;
  std::thread m_thread;
  int m_port = 0;

  mutable std::mutex m_lock;
  std::vector<AirplayRequest> m_requests;
  std::map<std::string, double> m_durations;
  double m_defaultDuration = 60;
  int m_refuse = 0;
  std::string m_scrubReply;
  std::string m_url;
  double m_duration = 0;
  double m_rate = 0;
  double m_basePos = 0;
  std::chrono::steady_clock::time_point m_baseTime;
  std::string m_photo;
};

}  // namespace sim
