// The texts the daemon reads back from its tools and devices: the music
// daemon's status and output lines and attribute texts, the media agent's
// XML replies, the device script's status and position replies, and the
// Chromecast sender child's answers (and the JSON it is sent). Any bytes,
// under the sanitizers, with the invariants the callers rely on.
#include <cstdint>
#include <string>

#include "backends/alsaCommands.h"
#include "backends/mpdStatus.h"
#include "devices/alsaDevices.h"
#include "player/agentCommand.h"
#include "services/chromecastService.h"
#include "services/vexAirplayOp.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 5) {
    case 0: {
      const vessord::MpdStatus st = vessord::ParseMpdStatus(text.c_str());
      if (st.elapsed < 0 || st.total < 0) __builtin_trap();
      int rate = 0, dsd = 0;
      if (vessord::ParseMpdAttr(text.c_str(), &rate, &dsd) == 0 && (dsd < -2 || dsd > 1 || rate < -2)) __builtin_trap();
      break;
    }
    case 1: {
      alsaOutput_s out;
      parse_output_line(text, out);
      int advance = 0;
      Get_Output_DeviceType(text.c_str(), &advance);
      if (advance < 0 || static_cast<size_t>(advance) > text.size()) __builtin_trap();
      break;
    }
    case 2: {
      std::string value;
      vessord::player::agent_value(text, "root", "status", value);
      vessord::player::agent_value(text, "root", "RelTime", value);
      break;
    }
    case 3: {
      // No child runs: an answer that reads as a lost device only closes
      // descriptors that are not open.
      vessord::ChromecastService service;
      vessord::Response response;
      service.parseRetXml(text.c_str(), response);
      const std::string escaped = vessord::ChromecastService::jsonEscape(text);
      for (unsigned char c : escaped)
        if (c < 0x20) __builtin_trap();  // a control character would break the line
      break;
    }
    default: {
      int position = -7, duration = -7;
      CVexAirplay::CVexAirplayOpInterface::parseStatus(text);
      if (CVexAirplay::CVexAirplayOpInterface::parsePosition(text, position, duration) != 0 &&
          (position != -7 || duration != -7))
        __builtin_trap();  // a failed read leaves both numbers
      break;
    }
  }
  return 0;
}
