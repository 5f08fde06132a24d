#include "services/vexAirplayOp.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "foundation/log.h"
#include "foundation/nasUtil.h"
#include "foundation/shellRunner.h"
#include "foundation/xmlParser.h"

namespace CVexAirplay {

namespace {

using vessord::ShellLine;

#define VEX_SCRIPT "/usr/local/apache/bin/php /usr/local/medialibrary/bin/VexAirplay/vexairplay.php"
const size_t kLineMax = 4096;  // the line buffer, its NUL included
const size_t kReplyMax = 4096;

// Escaped for the shell, to stand without quotes; false when too long.
bool shellQuote(const char* text, std::string& out) {
  std::vector<char> buf(1024);
  if (::convert_utf8_linux_filepath_2(text, buf.data(), static_cast<int>(buf.size())) < 0) return false;
  out = buf.data();
  return true;
}

ShellLine refused() { return ShellLine("%s", {std::string(";")}); }

// popen, one read of at most kReplyMax bytes, pclose; with a time limit.
int runScript(const ShellLine& line, std::string& out) {
  out.clear();
  if (!line.ok() || line.display().size() >= kLineMax) return -1;
  VLOG(LOG_COLOR_AGENT, "%s", line.display().c_str());
  vessord::ShellChild child;
  if (!child.start(line)) return -1;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(CVexAirplayOpInterface::kScriptLimitSec);
  char buf[kReplyMax];
  while (out.size() < kReplyMax) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      child.stop(500);
      return -1;
    }
    pollfd p{child.output_fd(), POLLIN, 0};
    int r = poll(&p, 1, static_cast<int>(left.count()));
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) continue;  // the deadline check above ends it
    ssize_t n = ::read(child.output_fd(), buf, kReplyMax - out.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      child.wait();
      out.clear();
      return -1;
    }
    if (n == 0) break;
    out.append(buf, static_cast<size_t>(n));
  }
  child.wait();
  return 0;
}

}  // namespace

ShellLine CVexAirplayOpInterface::commandLine(int op, const std::string& deviceId, const char* arg1,
                                              const char* arg2, const char* arg3) {
  const std::string& id = deviceId;
  switch (op) {
    case OP_STOP: return ShellLine(VEX_SCRIPT " -c=stop -d='%s' -x", {id});
    case OP_PAUSE: return ShellLine(VEX_SCRIPT " -c=pause -d='%s' -x", {id});
    case OP_RESUME: return ShellLine(VEX_SCRIPT " -c=resume -d='%s' -x", {id});
    case OP_STOP_ONLY: return ShellLine(VEX_SCRIPT " -c=stop_only -d='%s' -x", {id});
    case OP_SCRUB: return ShellLine(VEX_SCRIPT " -c=scrub -d='%s' -t='%s' -x", {id, arg1 ? arg1 : ""});
    case OP_PHOTO: {
      std::string quoted;
      if (arg1 == nullptr || !shellQuote(arg1, quoted)) return refused();
      return ShellLine(VEX_SCRIPT " -c=photo -d='%s' -u=%s -x", {id, quoted});
    }
    case OP_PLAY: {
      std::string templ = VEX_SCRIPT " -c=play -d='%s' -u='%s' -x";
      std::vector<std::string> values{id, arg1 ? arg1 : ""};
      if (arg2 != nullptr) {
        templ += " -i='%s'";
        values.emplace_back(arg2);
      }
      if (arg3 != nullptr) {
        std::string quoted;
        if (!shellQuote(arg3, quoted)) return refused();
        templ += " -t=%s";
        values.push_back(quoted);
      }
      return ShellLine(templ.c_str(), values);
    }
    default: return refused();
  }
}

int CVexAirplayOpInterface::parseStatus(const std::string& reply) {
  ::XMLNode root = ::XMLNode::parseString(reply.c_str(), "root");
  if (root.isEmpty()) return -1;
  ::XMLNode status = root.getChildNode("status");
  const char* text = status.isEmpty() ? nullptr : status.getText();
  return (text != nullptr && strcmp(text, "0") == 0) ? 0 : -1;
}

int CVexAirplayOpInterface::parsePosition(const std::string& reply, int& position, int& duration) {
  ::XMLNode root = ::XMLNode::parseString(reply.c_str(), "root");
  if (root.isEmpty()) return -1;
  ::XMLNode dur = root.getChildNode("duration");
  ::XMLNode pos = root.getChildNode("position");
  const char* durText = dur.isEmpty() ? nullptr : dur.getText();
  const char* posText = pos.isEmpty() ? nullptr : pos.getText();
  if (durText == nullptr || posText == nullptr) {
    VLOG(LOG_COLOR_FAIL, "....err");
    return -1;
  }
  // Whole seconds: the text is cut at its point.
  std::string d(durText), p(posText);
  d = d.substr(0, d.find('.'));
  p = p.substr(0, p.find('.'));
  duration = static_cast<int>(strtol(d.c_str(), nullptr, 10));
  position = static_cast<int>(strtol(p.c_str(), nullptr, 10));
  return 0;
}

int CVexAirplayOpInterface::sendCommand(int op, const std::string& deviceId, const char* arg1, const char* arg2,
                                        const char* arg3) {
  std::string reply;
  if (runScript(commandLine(op, deviceId, arg1, arg2, arg3), reply) != 0) return -1;
  return parseStatus(reply);
}

int CVexAirplayOpInterface::getPosInfo(const std::string& deviceId, int& position, int& duration) {
  position = 0;
  duration = 0;
  std::string reply;
  if (runScript(ShellLine(VEX_SCRIPT " -c=status -d='%s' -x", {deviceId}), reply) != 0) return -1;
  return parsePosition(reply, position, duration);
}

}  // namespace CVexAirplay
