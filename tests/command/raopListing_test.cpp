// The speakers step of ListAirplayRender: the device nodes read from the
// browse's records, which speakers qualify, and the merge that marks only
// the RAOP entries unseen.
#include "command/raopListing.h"

#include <string>

#include <gtest/gtest.h>

#include "command/renderListing.h"
#include "foundation/thread.h"
#include "manager/playerManager.h"
#include "player/player.h"
#include "support/testRoot.h"

namespace {

bool cached(CPlayerManager& m, const std::string& id, renderCacheInfo_s& out) {
  ThreadReadLock registry(m.getRWLock());
  return m.searchRenderInCache_(id, out) == 0;
}

std::string attr(const XMLNode& device, const char* name) {
  const char* v = device.getChildNode("type").getAttribute(name);
  return v ? v : "<none>";
}

}  // namespace

TEST(RaopListing, TheTxtKeysGiveEtAndCn) {
  XMLNode reply = XMLNode::createXMLTopNode("root");
  const std::string text =
      "=;eth0;IPv4;Bare\\032Name;_raop._tcp;local;h;10.0.0.5;49152;\"et=3,5\" \"cn=2\"\n"
      "=;eth0;IPv4;112233445566@A\\.B@C;_raop._tcp;local;h;10.0.0.6;5000;\"tp=UDP\"\n"
      "=;eth0;IPv4;AA@Empty;_raop._tcp;local;h;10.0.0.7;5000;\"et=\" \"cn=0\"\n"
      "=;eth0;IPv4;AA@Empty;_raop._tcp;local;h;10.0.0.8;5000;\"et=0\" \"cn=0\"\n"
      "=;eth0;IPv4;cut;_raop._tcp;local;h;10.0.0.9\n";
  EXPECT_EQ(4, gen_raop_devices(text, reply));
  ASSERT_EQ(4, reply.nChildNode("device"));

  XMLNode bare = reply.getChildNode("device", 0);
  EXPECT_STREQ("Bare Name", bare.getChildNode("deviceId").getText());
  EXPECT_STREQ("Bare Name", bare.getChildNode("deviceName").getText());
  EXPECT_EQ("notSupport", attr(bare, "et"));
  EXPECT_EQ("notSupport", attr(bare, "cn"));
  EXPECT_EQ("49152", attr(bare, "port"));

  XMLNode dotted = reply.getChildNode("device", 1);
  EXPECT_STREQ("112233445566", dotted.getChildNode("deviceId").getText());
  EXPECT_STREQ("A.B@C", dotted.getChildNode("deviceName").getText()) << "cut at the first @ only";
  EXPECT_EQ("<none>", attr(dotted, "et"));
  EXPECT_EQ("<none>", attr(dotted, "cn"));
  EXPECT_FALSE(raop_device_playable(dotted));

  XMLNode empty = reply.getChildNode("device", 2);
  EXPECT_EQ("<none>", attr(empty, "et")) << "a key without a text gives no attribute";
  EXPECT_FALSE(raop_device_playable(empty));
  XMLNode other = reply.getChildNode("device", 3);
  EXPECT_STREQ("10.0.0.8", other.getChildNode("ip").getText()) << "another address is another service";
  EXPECT_EQ("no", attr(other, "et"));
  EXPECT_TRUE(raop_device_playable(other));
}

TEST(RaopListing, OnlySpeakerEntriesGoUnseenAndTheQualifiedAreCached) {
  testsupport::TestRoot root;
  root.write("/sim/avahi/_raop._tcp.txt",
             "=;eth0;IPv4;AABBCCDDEE01@Kitchen;_raop._tcp;local;k;10.0.0.21;5000;\"cn=0,1\" \"et=0,1\"\n"
             "=;eth0;IPv4;AABBCCDDEE02@Hall;_raop._tcp;local;h;10.0.0.22;7000;\"cn=0\" \"et=0,3\"\n"
             "=;eth0;IPv4;AABBCCDDEE03@Radio;_raop._tcp;local;r;10.0.0.23;5000;\"cn=1\" \"et=1\"\n");
  CPlayerManager manager({}, 0);
  {
    ThreadWriteLock registry(manager.getRWLock());
    manager.addRenderInCache("uuid:tv", "TV", "10.0.0.2", PLAYER_TYPE_DLNA, nullptr, 0, "", "");
    manager.addRenderInCache("OLDSPEAKER", "Gone", "10.0.0.30", PLAYER_TYPE_RAOP | PLAYER_TYPE_AUDIO, "rsa", 5000, "",
                             "");
  }
  XMLNode reply;
  EXPECT_EQ(0, list_airplay_render(&manager, reply));
  EXPECT_EQ(3, reply.nChildNode("device"));
  bool browsed = false;
  for (const std::string& c : root.calls()) browsed |= c == "/usr/sbin/avahi-browse -rkpt _raop._tcp";
  EXPECT_TRUE(browsed);

  renderCacheInfo_s kitchen, hall, radio, old, tv;
  ASSERT_TRUE(cached(manager, "AABBCCDDEE01", kitchen));
  EXPECT_EQ(static_cast<unsigned>(PLAYER_TYPE_RAOP | PLAYER_TYPE_AUDIO), kitchen.type);
  EXPECT_TRUE(kitchen.encrypted);
  EXPECT_EQ("Kitchen", kitchen.deviceName);
  EXPECT_EQ("10.0.0.21", kitchen.ip);
  EXPECT_EQ(5000, kitchen.port);
  ASSERT_TRUE(cached(manager, "AABBCCDDEE02", hall));
  EXPECT_FALSE(hall.encrypted);
  EXPECT_EQ(7000, hall.port);
  EXPECT_FALSE(cached(manager, "AABBCCDDEE03", radio)) << "cn is not pcm";
  ASSERT_TRUE(cached(manager, "OLDSPEAKER", old));
  EXPECT_FALSE(old.valid);
  ASSERT_TRUE(cached(manager, "uuid:tv", tv));
  EXPECT_TRUE(tv.valid);
}
