#include "airplay/airplayDevice.h"

#include <httplib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace sim {

namespace {

std::string fixed6(double v) {
  char buf[64];
  snprintf(buf, sizeof buf, "%f", v);
  return buf;
}

// The header lines a device sends: "Content-Location: URL" CRLF ...
std::map<std::string, std::string> parseTextBody(const std::string& body) {
  std::map<std::string, std::string> out;
  size_t start = 0;
  while (start < body.size()) {
    size_t end = body.find('\n', start);
    if (end == std::string::npos) end = body.size();
    std::string line = body.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    size_t colon = line.find(": ");
    if (colon != std::string::npos) out[line.substr(0, colon)] = line.substr(colon + 2);
    start = end + 1;
  }
  return out;
}

const char* kServerInfo =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<plist version=\"1.0\">\n<dict>\n"
    "<key>deviceid</key>\n<string>58:55:CA:1A:E2:88</string>\n"
    "<key>features</key>\n<integer>14839</integer>\n"
    "<key>model</key>\n<string>AppleTV2,1</string>\n"
    "<key>protovers</key>\n<string>1.0</string>\n"
    "<key>srcvers</key>\n<string>120.2</string>\n"
    "</dict>\n</plist>\n";

const char* kSlideshowFeatures =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<plist version=\"1.0\">\n<dict>\n<key>themes</key>\n<array>\n"
    "<dict><key>key</key><string>Dissolve</string><key>name</key><string>Dissolve</string></dict>\n"
    "</array>\n</dict>\n</plist>\n";

}  // namespace

AirplayDevice::AirplayDevice() : m_server(new httplib::Server) {
  // Header and body go out in separate writes: without this, Nagle and the
  // client's delayed ACK would stall every reply on a kept connection.
  m_server->set_tcp_nodelay(true);
  install_();
}

AirplayDevice::~AirplayDevice() { stop(); }

bool AirplayDevice::start(const std::string& host, int port) {
  if (port == 0) {
    m_port = m_server->bind_to_any_port(host.c_str());
  } else {
    m_port = m_server->bind_to_port(host.c_str(), port) ? port : -1;
  }
  if (m_port <= 0) return false;
  m_thread = std::thread([this] { m_server->listen_after_bind(); });
  while (!m_server->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return true;
}

void AirplayDevice::stop() {
  if (m_server) m_server->stop();
  if (m_thread.joinable()) m_thread.join();
}

void AirplayDevice::setDuration(const std::string& url, double seconds) {
  std::lock_guard<std::mutex> g(m_lock);
  m_durations[url] = seconds;
}

void AirplayDevice::setDefaultDuration(double seconds) {
  std::lock_guard<std::mutex> g(m_lock);
  m_defaultDuration = seconds;
}

void AirplayDevice::setRefuse(int status) {
  std::lock_guard<std::mutex> g(m_lock);
  m_refuse = status;
}

void AirplayDevice::setScrubReply(const std::string& body) {
  std::lock_guard<std::mutex> g(m_lock);
  m_scrubReply = body;
}

std::vector<AirplayRequest> AirplayDevice::requests() const {
  std::lock_guard<std::mutex> g(m_lock);
  return m_requests;
}

void AirplayDevice::clearRequests() {
  std::lock_guard<std::mutex> g(m_lock);
  m_requests.clear();
}

std::string AirplayDevice::currentUrl() const {
  std::lock_guard<std::mutex> g(m_lock);
  return m_url;
}

double AirplayDevice::rate() const {
  std::lock_guard<std::mutex> g(m_lock);
  return m_rate;
}

double AirplayDevice::position() const {
  std::lock_guard<std::mutex> g(m_lock);
  return positionLocked_();
}

std::string AirplayDevice::lastPhoto() const {
  std::lock_guard<std::mutex> g(m_lock);
  return m_photo;
}

double AirplayDevice::positionLocked_() const {
  if (m_url.empty()) return 0;
  double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_baseTime).count();
  return std::min(m_duration, m_basePos + elapsed * m_rate);
}

void AirplayDevice::route_(const std::string& method, const std::string& path, const RouteHandler& handler) {
  // Every request is recorded with its body first; a refusing device
  // answers nothing else.
  auto wrapped = [this, handler](const httplib::Request& req, httplib::Response& res) {
    {
      std::lock_guard<std::mutex> g(m_lock);
      AirplayRequest r;
      r.method = req.method;
      r.path = req.target;
      for (const auto& h : req.headers) r.headers[h.first] = h.second;
      r.body = req.body;
      m_requests.push_back(r);
      if (m_refuse != 0) {
        res.status = m_refuse;
        return;
      }
    }
    handler(req, res);
  };
  if (method == "GET")
    m_server->Get(path, wrapped);
  else if (method == "PUT")
    m_server->Put(path, wrapped);
  else
    m_server->Post(path, wrapped);
}

void AirplayDevice::install_() {
  route_("POST", "/play", [this](const httplib::Request& req, httplib::Response& res) {
    auto fields = parseTextBody(req.body);
    auto it = fields.find("Content-Location");
    if (it == fields.end()) {
      res.status = 400;
      return;
    }
    std::lock_guard<std::mutex> g(m_lock);
    m_url = it->second;
    auto d = m_durations.find(m_url);
    m_duration = d == m_durations.end() ? m_defaultDuration : d->second;
    m_basePos = atof(fields["Start-Position"].c_str()) * m_duration;
    m_rate = 1;
    m_baseTime = std::chrono::steady_clock::now();
  });

  route_("POST", "/rate", [this](const httplib::Request& req, httplib::Response& res) {
    if (!req.has_param("value")) {
      res.status = 400;
      return;
    }
    std::lock_guard<std::mutex> g(m_lock);
    m_basePos = positionLocked_();
    m_baseTime = std::chrono::steady_clock::now();
    m_rate = atof(req.get_param_value("value").c_str());
  });

  route_("POST", "/scrub", [this](const httplib::Request& req, httplib::Response& res) {
    if (!req.has_param("position")) {
      res.status = 400;
      return;
    }
    std::lock_guard<std::mutex> g(m_lock);
    m_basePos = std::min(m_duration, std::max(0.0, atof(req.get_param_value("position").c_str())));
    m_baseTime = std::chrono::steady_clock::now();
  });

  route_("GET", "/scrub", [this](const httplib::Request& req, httplib::Response& res) {
    std::lock_guard<std::mutex> g(m_lock);
    if (!m_scrubReply.empty()) {
      res.set_content(m_scrubReply, "text/parameters");
      return;
    }
    double dur = m_url.empty() ? 0 : m_duration;
    res.set_content("duration: " + fixed6(dur) + "\nposition: " + fixed6(positionLocked_()) + "\n",
                    "text/parameters");
  });

  route_("POST", "/stop", [this](const httplib::Request& req, httplib::Response& res) {
    std::lock_guard<std::mutex> g(m_lock);
    m_url.clear();
    m_rate = 0;
    m_basePos = 0;
  });

  route_("PUT", "/photo", [this](const httplib::Request& req, httplib::Response& res) {
    std::lock_guard<std::mutex> g(m_lock);
    m_photo = req.body;
  });

  route_("GET", "/playback-info", [this](const httplib::Request& req, httplib::Response& res) {
    std::lock_guard<std::mutex> g(m_lock);
    double pos = positionLocked_();
    bool playing = !m_url.empty() && m_rate > 0 && pos < m_duration;
    std::string body =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
        "<key>duration</key>\n<real>" + fixed6(m_url.empty() ? 0 : m_duration) + "</real>\n"
        "<key>position</key>\n<real>" + fixed6(pos) + "</real>\n"
        "<key>rate</key>\n<real>" + fixed6(playing ? m_rate : 0) + "</real>\n"
        "<key>readyToPlay</key>\n<" + std::string(m_url.empty() ? "false" : "true") + "/>\n"
        "</dict>\n</plist>\n";
    res.set_content(body, "text/x-apple-plist+xml");
  });

  route_("GET", "/server-info", [](const httplib::Request& req, httplib::Response& res) {
    res.set_content(kServerInfo, "text/x-apple-plist+xml");
  });

  route_("GET", "/slideshow-features", [](const httplib::Request& req, httplib::Response& res) {
    res.set_content(kSlideshowFeatures, "text/x-apple-plist+xml");
  });

  route_("POST", "/getProperty", [](const httplib::Request& req, httplib::Response& res) {
    res.set_content(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
        "<key>errorCode</key>\n<integer>0</integer>\n<key>value</key>\n<array/>\n</dict>\n</plist>\n",
        "text/x-apple-plist+xml");
  });
}

}  // namespace sim
