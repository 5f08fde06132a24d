// The AirPlay HTTP client: one libcurl easy handle per device, one request at
// a time, each request a blocking call that fills a Response.
#pragma once

#include <curl/curl.h>
#include <pthread.h>

#include <cstdio>
#include <memory>
#include <string>

#include "services/service.h"

namespace vessord {

// Owners of the C resources a request uses.
struct CurlEasyDeleter {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct CurlSlistDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};
using CurlEasyPtr = std::unique_ptr<CURL, CurlEasyDeleter>;
using CurlSlistPtr = std::unique_ptr<curl_slist, CurlSlistDeleter>;
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// Limits set on every request so that a device that stops answering cannot
// hold the caller and m_curlLock for as long as TCP allows. No live device
// on a home network comes near them.
struct CurlLimits {
  static constexpr long kConnectTimeoutSec = 10;
  // Abort when fewer than kLowSpeedBytes a second flow for kLowSpeedSec.
  static constexpr long kLowSpeedBytes = 1;
  static constexpr long kLowSpeedSec = 30;
  // The whole request, upload of a photo included.
  static constexpr long kTotalTimeoutSec = 120;
};

class CurlWrapper {
 public:
  CurlWrapper();
  virtual ~CurlWrapper();
  CurlWrapper(const CurlWrapper&) = delete;
  CurlWrapper& operator=(const CurlWrapper&) = delete;

  // Not locked: called when the player is built, before any request.
  int setIp(std::string ip);
  int setPort(int port);
  std::string getIp();
  int getPort();
  int prepareUrl();
  int check();
  std::string urlEscape(std::string& text);

  static size_t curlCallback(void* contents, size_t size, size_t nmemb, void* target);
  int curlPrepare(CURL* handle, const std::string& url, std::string* header, std::string* content);
  int curlParseResponse(CURL* handle, Response& response, const std::string& header, const std::string& content);

  int airplayPostStop(Response& response);
  int airplayPostRate(Response& response, float rate);
  int airplayPostScrub(Response& response, float seconds);
  int airplayGetScrub(Response& response);
  int airplayPostPlay(Response& response, const std::string& url);
  int airplayPutPhoto(Response& response, const std::string& path);
  int airplayPostGetProperty(Response& response);
  int airplayGetServerInfo(Response& response);
  int airplayGetSlideshowFeature(Response& response);
  int airplayGetPlaybackInfo(Response& response);

  // A developer's trace; no request installs it.
  static int curlDebugCallback(CURL* handle, curl_infotype type, char* data, size_t size, void* user);
  static void curlDebugDumpHex(const char* text, FILE* stream, unsigned char* data, size_t size);

 private:
  enum class Method { Get, Post };
  // Steps 3 to 7 of a request, with m_curlLock held by the caller.
  // The handle made ready for m_url + path, with the time limits; the
  // caller holds m_curlLock and adds what its request needs.
  int prepare_(const std::string& path, std::string& header, std::string& content);
  int simpleRequest_(Response& response, const std::string& path, Method method);
  int perform_(Response& response, const std::string& header, const std::string& content);
  // The time limits; with the lock held, after curlPrepare.
  int setLimits_(CURL* handle);

  CurlEasyPtr m_curl;
  CurlSlistPtr m_headers;
  std::string m_ip;
  int m_port = 7000;
  std::string m_url;
  pthread_mutex_t m_curlLock;
};

}  // namespace vessord
