#include "services/curlWrapper.h"

#include <sys/stat.h>

#include <cstring>
#include <mutex>

#include "foundation/log.h"
#include "foundation/thread.h"

namespace vessord {

namespace {

// Reports a failed option by its name and leaves the function with 1.
#define SETOPT_OR_FAIL(handle, opt, value)                                   \
  do {                                                                       \
    if (curl_easy_setopt(handle, opt, value) != CURLE_OK) {                  \
      VLOG(LOG_COLOR_FAIL, "curl_easy_setopt() " #opt " fail.");             \
      return 1;                                                              \
    }                                                                        \
  } while (0)

}  // namespace

CurlWrapper::CurlWrapper() : m_curlLock() {
  VLOG(LOG_COLOR_TRACE, "performing constructor. ");
  // curl_easy_init would set the library up itself, but not thread-safely.
  static std::once_flag global;
  std::call_once(global, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
  m_curl.reset(curl_easy_init());
  if (!m_curl) VLOG(LOG_COLOR_FAIL, "curl_easy_init() fail.");
  CThread::mutexInit(m_curlLock, MUTEX_ATTR_NORMAL);
}

CurlWrapper::~CurlWrapper() {
  m_curl.reset();
  m_headers.reset();
  pthread_mutex_destroy(&m_curlLock);
}

int CurlWrapper::setIp(std::string ip) {
  m_ip = std::move(ip);
  prepareUrl();
  return 0;
}

int CurlWrapper::setPort(int port) {
  if (port < 0) {
    VLOG(LOG_COLOR_FAIL, "port can not be negative. ");
    return 1;
  }
  m_port = port;
  prepareUrl();
  return 0;
}

std::string CurlWrapper::getIp() { return m_ip; }

int CurlWrapper::getPort() { return m_port; }

int CurlWrapper::prepareUrl() {
  if (m_port < 1 || m_ip.empty()) return 1;
  m_url = "http://" + m_ip + ":" + std::to_string(m_port);
  return 0;
}

int CurlWrapper::check() {
  if (m_ip.empty()) {
    VLOG(LOG_COLOR_FAIL, "ip is not set.");
    return 1;
  }
  if (m_port < 1) {
    VLOG(LOG_COLOR_FAIL, "port is not set.");
    return 1;
  }
  if (m_url.empty()) {
    VLOG(LOG_COLOR_FAIL, "url is not set.");
    return 1;
  }
  if (!m_curl) {
    VLOG(LOG_COLOR_FAIL, "curl ez handle is not ready.");
    return 1;
  }
  return 0;
}

std::string CurlWrapper::urlEscape(std::string& text) {
  // Escaping is only a computation on the handle, but share it under the lock
  // like every other use of the handle.
  ThreadSingleLock lock(m_curlLock);
  char* escaped = curl_easy_escape(m_curl.get(), text.c_str(), static_cast<int>(text.size()));
  if (escaped == nullptr) return text;
  std::string out(escaped);
  curl_free(escaped);
  return out;
}

size_t CurlWrapper::curlCallback(void* contents, size_t size, size_t nmemb, void* target) {
  if (contents == nullptr) {
    VLOG(LOG_COLOR_FAIL, "contents == NULL");
    return size * nmemb;
  }
  // Replies are text: take the bytes up to the first NUL, yet report the
  // whole chunk taken so the transfer goes on.
  const char* text = static_cast<const char*>(contents);
  size_t total = size * nmemb;
  const void* nul = memchr(text, '\0', total);
  size_t len = nul ? static_cast<size_t>(static_cast<const char*>(nul) - text) : total;
  static_cast<std::string*>(target)->append(text, len);
  return total;
}

int CurlWrapper::curlPrepare(CURL* handle, const std::string& url, std::string* header, std::string* content) {
  if (handle == nullptr) {
    VLOG(LOG_COLOR_FAIL, "null handle");
    return 1;
  }
  curl_easy_reset(handle);
  SETOPT_OR_FAIL(handle, CURLOPT_URL, url.c_str());
  m_headers.reset();
  SETOPT_OR_FAIL(handle, CURLOPT_HEADERFUNCTION, &CurlWrapper::curlCallback);
  SETOPT_OR_FAIL(handle, CURLOPT_HEADERDATA, header);
  SETOPT_OR_FAIL(handle, CURLOPT_WRITEFUNCTION, &CurlWrapper::curlCallback);
  SETOPT_OR_FAIL(handle, CURLOPT_WRITEDATA, content);
  return 0;
}

int CurlWrapper::setLimits_(CURL* handle) {
  SETOPT_OR_FAIL(handle, CURLOPT_CONNECTTIMEOUT, CurlLimits::kConnectTimeoutSec);
  SETOPT_OR_FAIL(handle, CURLOPT_LOW_SPEED_LIMIT, CurlLimits::kLowSpeedBytes);
  SETOPT_OR_FAIL(handle, CURLOPT_LOW_SPEED_TIME, CurlLimits::kLowSpeedSec);
  SETOPT_OR_FAIL(handle, CURLOPT_TIMEOUT, CurlLimits::kTotalTimeoutSec);
  // Time-outs by alarm would hit other threads; resolving an address needs none.
  SETOPT_OR_FAIL(handle, CURLOPT_NOSIGNAL, 1L);
  return 0;
}

int CurlWrapper::curlParseResponse(CURL* handle, Response& response, const std::string& header, const std::string& content) {
  long code = 0;
  if (curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &code) != CURLE_OK) {
    VLOG(LOG_COLOR_FAIL, "curl_easy_getinfo, CURLINFO_RESPONSE_CODE fail.");
    return -1;
  }
  response.m_response = code;
  // The same length as the older double-valued info, -1 when unknown.
  curl_off_t length = 0;
  if (curl_easy_getinfo(handle, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length) != CURLE_OK) {
    VLOG(LOG_COLOR_FAIL, "curl_easy_getinfo, CURLINFO_CONTENT_LENGTH_DOWNLOAD fail.");
    return -1;
  }
  if (length > 0) {
    // Only lines closed by a line feed count.
    size_t start = 0;
    for (size_t nl = content.find('\n'); nl != std::string::npos; nl = content.find('\n', start)) {
      std::string line = content.substr(start, nl - start);
      start = nl + 1;
      static const std::string kDuration = "duration: ";
      static const std::string kPosition = "position: ";
      if (line.compare(0, kDuration.size(), kDuration) == 0)
        response.m_duration = Response::stringToF(line.substr(kDuration.size()));
      else if (line.compare(0, kPosition.size(), kPosition) == 0)
        response.m_position = Response::stringToF(line.substr(kPosition.size()));
    }
  }
  VLOG(LOG_COLOR_DUMP, "%s", header.c_str());
  VLOG(LOG_COLOR_DUMP, "%s", content.c_str());
  response.dump();
  return 0;
}

int CurlWrapper::perform_(Response& response, const std::string& header, const std::string& content) {
  CURLcode rc = curl_easy_perform(m_curl.get());
  if (rc != CURLE_OK) {
    VLOG(LOG_COLOR_FAIL, "curl_easy_perform() fail, err_code=%d", static_cast<int>(rc));
    return -1;
  }
  return curlParseResponse(m_curl.get(), response, header, content);
}

int CurlWrapper::prepare_(const std::string& path, std::string& header, std::string& content) {
  const std::string url = m_url + path;
  VLOG(LOG_COLOR_TRACE, "url>>> %s", url.c_str());
  if (curlPrepare(m_curl.get(), url, &header, &content) != 0) {
    VLOG(LOG_COLOR_FAIL, "curlPrepare() fail.");
    return -1;
  }
  return setLimits_(m_curl.get());
}

int CurlWrapper::simpleRequest_(Response& response, const std::string& path, Method method) {
  std::string header, content;
  if (prepare_(path, header, content) != 0) return -1;
  if (method == Method::Post && curl_easy_setopt(m_curl.get(), CURLOPT_POST, 1L) != CURLE_OK) return -1;
  return perform_(response, header, content);
}

int CurlWrapper::airplayPostStop(Response& response) {
  if (check() != 0) return -1;
  ThreadSingleLock lock(m_curlLock);
  std::string header, content;
  if (prepare_("/stop", header, content) != 0) return -1;
  if (curl_easy_setopt(m_curl.get(), CURLOPT_EXPECT_100_TIMEOUT_MS, 3000L) != CURLE_OK) return -1;
  if (curl_easy_setopt(m_curl.get(), CURLOPT_POST, 1L) != CURLE_OK) return -1;
  return perform_(response, header, content);
}

int CurlWrapper::airplayPostRate(Response& response, float rate) {
  if (check() != 0) return -1;
  ThreadSingleLock lock(m_curlLock);
  if (rate < 0.0F || rate > 1.0F) {
    VLOG(LOG_COLOR_FAIL, "out of rate range, must between 0.0 - 1.0");
    return -1;
  }
  return simpleRequest_(response, "/rate?value=" + Response::fToString(rate), Method::Post);
}

int CurlWrapper::airplayPostScrub(Response& response, float seconds) {
  if (check() != 0) return -1;
  ThreadSingleLock lock(m_curlLock);
  if (seconds < 0.0F) {
    VLOG(LOG_COLOR_FAIL, "seekTime can not be negative");
    return -1;
  }
  return simpleRequest_(response, "/scrub?position=" + Response::fToString(seconds), Method::Post);
}

int CurlWrapper::airplayGetScrub(Response& response) {
  ThreadSingleLock lock(m_curlLock);
  if (check() != 0) return -1;
  return simpleRequest_(response, "/scrub", Method::Get);
}

int CurlWrapper::airplayPostPlay(Response& response, const std::string& url) {
  if (check() != 0) return -1;
  ThreadSingleLock lock(m_curlLock);
  std::string header, content;
  if (prepare_("/play", header, content) != 0) return -1;
  // The body lives until the request ends: libcurl does not copy POSTFIELDS.
  std::string body = "Content-Location: " + url + "\r\n" + "Start-Position: 0.0" + "\r\n";
  if (curl_easy_setopt(m_curl.get(), CURLOPT_POSTFIELDS, body.c_str()) != CURLE_OK) return -1;
  if (curl_easy_setopt(m_curl.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size())) != CURLE_OK)
    return -1;
  return perform_(response, header, content);
}

int CurlWrapper::airplayPutPhoto(Response& response, const std::string& path) {
  if (check() != 0) return -1;
  ThreadSingleLock lock(m_curlLock);
  std::string header, content;
  if (prepare_("/photo", header, content) != 0) return -1;
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) {
    VLOG(LOG_COLOR_FAIL, "can't stat %s", path.c_str());
    return -1;
  }
  FilePtr file(fopen(path.c_str(), "rb"));
  if (!file) {
    VLOG(LOG_COLOR_FAIL, "fopen %s fail", path.c_str());
    return -1;
  }
  if (curl_easy_setopt(m_curl.get(), CURLOPT_UPLOAD, 1L) != CURLE_OK) return -1;
  if (curl_easy_setopt(m_curl.get(), CURLOPT_READDATA, file.get()) != CURLE_OK) return -1;
  if (curl_easy_setopt(m_curl.get(), CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(st.st_size)) != CURLE_OK)
    return -1;
  CURLcode rc = curl_easy_perform(m_curl.get());
  // The handle must not keep reading from a closed file on a later request.
  curl_easy_setopt(m_curl.get(), CURLOPT_READDATA, stdin);
  file.reset();
  if (rc != CURLE_OK) {
    VLOG(LOG_COLOR_FAIL, "curl_easy_perform() fail, err_code=%d", static_cast<int>(rc));
    return -1;
  }
  return curlParseResponse(m_curl.get(), response, header, content);
}

int CurlWrapper::airplayPostGetProperty(Response& response) {
  if (check() != 0) return -1;
  ThreadSingleLock lock(m_curlLock);
  std::string header, content;
  if (prepare_("/getProperty?playbackAccessLog", header, content) != 0) return -1;
  if (curl_easy_setopt(m_curl.get(), CURLOPT_POST, 1L) != CURLE_OK) return -1;
  // curlPrepare has just emptied the list, so this sends no extra header.
  if (curl_easy_setopt(m_curl.get(), CURLOPT_HTTPHEADER, m_headers.get()) != CURLE_OK) return -1;
  return perform_(response, header, content);
}

int CurlWrapper::airplayGetServerInfo(Response& response) {
  if (check() != 0) return -1;
  ThreadSingleLock lock(m_curlLock);
  return simpleRequest_(response, "/server-info", Method::Get);
}

int CurlWrapper::airplayGetSlideshowFeature(Response& response) {
  if (check() != 0) return -1;
  ThreadSingleLock lock(m_curlLock);
  return simpleRequest_(response, "/slideshow-features", Method::Get);
}

int CurlWrapper::airplayGetPlaybackInfo(Response& response) {
  if (check() != 0) return -1;
  ThreadSingleLock lock(m_curlLock);
  return simpleRequest_(response, "/playback-info", Method::Get);
}

void CurlWrapper::curlDebugDumpHex(const char* text, FILE* stream, unsigned char* data, size_t size) {
  const size_t width = 16;
  fprintf(stream, "%s, %10.10ld bytes (0x%8.8lx)\n", text, static_cast<long>(size), static_cast<unsigned long>(size));
  for (size_t i = 0; i < size; i += width) {
    fprintf(stream, "%4.4lx: ", static_cast<unsigned long>(i));
    for (size_t c = 0; c < width; c++) {
      if (i + c < size)
        fprintf(stream, "%02x ", data[i + c]);
      else
        fputs("   ", stream);
    }
    for (size_t c = 0; c < width && i + c < size; c++) {
      unsigned char ch = data[i + c];
      fputc((ch >= 0x20 && ch < 0x80) ? ch : '.', stream);
    }
    fputc('\n', stream);
  }
  fflush(stream);
}

int CurlWrapper::curlDebugCallback(CURL* handle, curl_infotype type, char* data, size_t size, void* user) {
  (void)handle;
  (void)user;
  const char* text = nullptr;
  switch (type) {
    case CURLINFO_TEXT:
      fprintf(stderr, "== Info: %.*s", static_cast<int>(size), data);
      return 0;
    case CURLINFO_HEADER_OUT: text = "=> Send header"; break;
    case CURLINFO_DATA_OUT: text = "=> Send data"; break;
    case CURLINFO_SSL_DATA_OUT: text = "=> Send SSL data"; break;
    case CURLINFO_HEADER_IN: text = "<= Recv header"; break;
    case CURLINFO_DATA_IN: text = "<= Recv data"; break;
    case CURLINFO_SSL_DATA_IN: text = "<= Recv SSL data"; break;
    default: return 0;
  }
  curlDebugDumpHex(text, stderr, reinterpret_cast<unsigned char*>(data), size);
  return 0;
}

}  // namespace vessord
