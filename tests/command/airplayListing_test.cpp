// ListAirplayRender, the extension that brings AirPlay devices into the
// render cache: what the browse finds is answered and cached with the
// AirPlay bit, port and address; only AirPlay entries go unseen when the
// browse no longer finds them; a browse that fails answers an empty list.
#include <string>

#include <gtest/gtest.h>

#include "command/renderListing.h"
#include "foundation/thread.h"
#include "manager/playerManager.h"
#include "player/player.h"
#include "support/testRoot.h"

namespace {

const char kTwoDevices[] =
    "=;eth0;IPv4;Living\\032Room;_airplay._tcp;local;lr.local;10.0.0.7;7100;\"deviceid=58:55:CA:1A:2B:3C\" "
    "\"model=AppleTV3,2\"\n"
    "=;eth0;IPv4;Kodi;_airplay._tcp;local;k.local;10.0.0.3;36667;\"deviceid=01:02:03:04:05:06\" \"model=Xbmc,1\"\n"
    "+;eth0;IPv4;Unresolved;_airplay._tcp;local\n";

bool cached(CPlayerManager& m, const std::string& id, renderCacheInfo_s& out) {
  ThreadReadLock registry(m.getRWLock());
  return m.searchRenderInCache_(id, out) == 0;
}

}  // namespace

TEST(AirplayListing, BrowsedDevicesEnterTheCacheWithTheAirPlayBit) {
  testsupport::TestRoot root;
  root.write("/sim/avahi/_airplay._tcp.txt", kTwoDevices);
  CPlayerManager manager({}, 0);
  {
    ThreadWriteLock registry(manager.getRWLock());
    manager.addRenderInCache("uuid:tv", "TV", "10.0.0.2", PLAYER_TYPE_DLNA, nullptr, 7000, "", "");
  }

  XMLNode reply;
  EXPECT_EQ(0, list_airplay_render(&manager, reply));
  EXPECT_STREQ("0", reply.getChildNode("status").getText());
  ASSERT_EQ(2, reply.nChildNode("device"));
  EXPECT_STREQ("Living Room", reply.getChildNode("device", 0).getChildNode("deviceName").getText());
  EXPECT_STREQ("/usr/sbin/avahi-browse -rkpt _airplay._tcp", root.calls().at(0).c_str());

  renderCacheInfo_s tv, kodi;
  ASSERT_TRUE(cached(manager, "5855CA1A2B3C", tv));
  EXPECT_EQ(static_cast<unsigned>(PLAYER_TYPE_AIRPLAY | PLAYER_TYPE_VIDEO | PLAYER_TYPE_PHOTO | PLAYER_TYPE_AUDIO),
            tv.type);
  EXPECT_EQ("Living Room", tv.deviceName);
  EXPECT_EQ("10.0.0.7", tv.ip);
  EXPECT_EQ(7100, tv.port);
  EXPECT_TRUE(tv.valid);
  ASSERT_TRUE(cached(manager, "010203040506", kodi));
  EXPECT_EQ(static_cast<unsigned>(PLAYER_TYPE_AIRPLAY | PLAYER_TYPE_VIDEO | PLAYER_TYPE_PHOTO), kodi.type);
  EXPECT_EQ(36667, kodi.port);

  // The Apple TV leaves the network: it goes unseen, the DLNA TV does not.
  root.write("/sim/avahi/_airplay._tcp.txt",
             "=;eth0;IPv4;Kodi;_airplay._tcp;local;k.local;10.0.0.3;36667;\"deviceid=01:02:03:04:05:06\" "
             "\"model=Xbmc,1\"\n");
  XMLNode again;
  EXPECT_EQ(0, list_airplay_render(&manager, again));
  EXPECT_EQ(1, again.nChildNode("device"));
  renderCacheInfo_s dlna;
  ASSERT_TRUE(cached(manager, "5855CA1A2B3C", tv));
  EXPECT_FALSE(tv.valid);
  ASSERT_TRUE(cached(manager, "010203040506", kodi));
  EXPECT_TRUE(kodi.valid);
  ASSERT_TRUE(cached(manager, "uuid:tv", dlna));
  EXPECT_TRUE(dlna.valid);
}

TEST(AirplayListing, NoBrowserAnswersAnEmptyList) {
  testsupport::TestRoot root;
  ::unlink(root.path("/usr/sbin/avahi-browse").c_str());
  CPlayerManager manager({}, 0);
  XMLNode reply;
  EXPECT_EQ(0, list_airplay_render(&manager, reply));
  EXPECT_STREQ("0", reply.getChildNode("status").getText());
  EXPECT_EQ(0, reply.nChildNode("device"));
}
