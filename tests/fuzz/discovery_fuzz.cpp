// Discovery records as the network gives them: the mDNS browse lines of
// AirPlay, Chromecast and speaker services with their TXT records, turned
// into device nodes. Any bytes, under the sanitizers; the reply that comes
// out is written as it would go to a client. (Whether it reads back depends
// on the bytes' UTF-8, which the XML fuzz target covers.)
#include <cstdint>
#include <string>

#include "command/raopListing.h"
#include "devices/avahiDevices.h"
#include "foundation/xmlParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  XMLNode reply = XMLNode::createXMLTopNode("root");
  switch (data[0] % 3) {
    case 0: gen_avahi_device(0, text, reply); break;
    case 1: gen_avahi_device(1, text, reply); break;
    default:
      gen_raop_devices(text, reply);
      for (int i = 0; i < reply.nChildNode("device"); ++i) raop_device_playable(reply.getChildNode("device", i));
      break;
  }
  XMLString written(reply.createXMLString(1));
  if (!written.get()) __builtin_trap();
  return 0;
}
