// Drives a device through the media library's device script: one process a
// call, its XML reply read for the status and the position.
#pragma once

#include <string>

#include "foundation/shellRunner.h"

namespace CVexAirplay {

class CVexAirplayOpInterface {
 public:
  enum Op { OP_STOP = 1, OP_PAUSE = 2, OP_RESUME = 3, OP_PHOTO = 4, OP_PLAY = 5, OP_STOP_ONLY = 6, OP_SCRUB = 7 };

  // 0 when the script reports success, else -1.
  static int sendCommand(int op, const std::string& deviceId, const char* arg1, const char* arg2, const char* arg3);
  // Whole seconds; both 0 unless the reply carries them.
  static int getPosInfo(const std::string& deviceId, int& position, int& duration);

  // The line for an operation; not ok() for an unknown one, a photo without
  // its path, or a value that cannot stand in its place.
  static vessord::ShellLine commandLine(int op, const std::string& deviceId, const char* arg1, const char* arg2,
                                        const char* arg3);
  // The reply's status: 0 for "0", else -1.
  static int parseStatus(const std::string& reply);
  // 0 with both numbers (cut at the point), else -1 leaving them.
  static int parsePosition(const std::string& reply, int& position, int& duration);

  // A script that talks to a device that stopped answering must not hold a
  // player: it is ended after this long.
  static constexpr int kScriptLimitSec = 60;
};

}  // namespace CVexAirplay
