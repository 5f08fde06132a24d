// The Service of a Chromecast device, driven through a sender child: a node
// script that speaks the Cast protocol to the device. The daemon writes one
// JSON line to the child's standard input for each command and reads one XML
// document back from its standard output.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <cstddef>
#include <string>

#include "services/service.h"

namespace vessord {

// How long the service waits on its child. Tests shorten both.
struct chromecastTiming_s {
  // An answer that has not begun by then counts as a time-out.
  int replyTimeoutMs = 35000;
  // After the pipes are closed the child has this long to leave by itself
  // before it is killed, so that closing never hangs on a stuck child.
  int exitGraceMs = 2000;
};

// Every public operation holds the object's one recursive lock, so each
// command and its answer stay one pair whatever threads call in.
class ChromecastService : public Service {
 public:
  enum pipeEnd_e { READ = 0, WRITE = 1 };
  // An answer is one document of at most this many bytes.
  static constexpr size_t kReplySize = 1024;
  static constexpr const char* kNodePath = "/usr/local/medialibrary/bin/node";
  static constexpr const char* kSenderPath = "/usr/local/medialibrary/bin/nodejs/ChromecastSender.js";

  ChromecastService();
  ChromecastService(std::string renderId, std::string ip, int port, std::string name);
  // Closes the pipes and reaps the child (no CLOSE command is sent: a
  // caller that wants the device let go calls _close first).
  ~ChromecastService() override;
  ChromecastService(const ChromecastService&) = delete;
  ChromecastService& operator=(const ChromecastService&) = delete;

  // Takes a finished command text; starts the child and launches the
  // receiver first when no child runs.
  int setContentUrl(Response& response, std::string message) override;
  int play(Response& response) override;
  int pause(Response& response) override;
  int stop(Response& response) override;
  int seek(Response& response, float seconds) override;
  int getPosInfo(Response& response) override;
  virtual int setContentUrl(Response& response, const std::string& url, const std::string& title,
                            const std::string& imageUrl, const std::string& subtitle);
  virtual int getVolume(Response& response);
  virtual int setVolume(Response& response, float volume);
  virtual int getMute(Response& response);
  virtual int setMute(Response& response, bool mute);
  // Sends CLOSE, then closes the pipes and reaps the child in any case.
  virtual int _close(Response& response);

  // Starts the child on two fresh pipes. 0, or the failed call's error.
  int init();
  // Closes the four pipe ends (each set to -1) and reaps the child.
  void closeFd();
  // The text a failed exchange leaves in the buffer, for the log only.
  static void genStatusXml(char* buffer, size_t size, int status, const char* error);
  // One exchange: the message down, one read of the answer into `buffer`
  // (always NUL-terminated, so at most size-1 bytes). 0 when `buffer` holds
  // the child's answer, else 1. `timeoutSeconds` 0 means the timing's own.
  int sendMessage(const std::string& message, char* buffer, size_t size, int timeoutSeconds);
  // Reads an answer into `response`; a status of -1 means the child lost
  // the device, and the pipes are closed. 0, or 1 for an unusable answer.
  int parseRetXml(const char* xml, Response& response);
  // The LOAD command. Every value is escaped for a JSON string.
  static void genMedia(std::string& out, const std::string& url, const std::string& title,
                       const std::string& imageUrl, const std::string& subtitle);
  // `text` as the inside of a JSON string: quote, backslash and control
  // characters escaped, everything else as it stands.
  static std::string jsonEscape(const std::string& text);

  void setTiming(const chromecastTiming_s& timing);
  bool inited() const { return mInited != 0; }
  bool launched() const { return mLaunched != 0; }
  // The running child's process id, or -1.
  pid_t childPid() const { return mChildPid; }
  int outPipe(int end) const { return mOutPipe[end]; }
  int inPipe(int end) const { return mInPipe[end]; }

 private:
  // One locked command exchange with the reply parsed into `response`.
  int exchange(const char* command, Response& response);
  void reapChild();

  int mOutPipe[2];
  int mInPipe[2];
  int mInited = 0;
  int mLaunched = 0;
  pthread_mutex_t mLock;
  pid_t mChildPid = -1;
  // Watches the child's end without the race of a reused process id.
  int mChildPidFd = -1;
  chromecastTiming_s mTiming;
};

}  // namespace vessord
