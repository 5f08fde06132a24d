// What a listing hands to the render cache: the type bits, which devices
// qualify, the filter words, the ten-second clock, and the merge itself
// against a real manager.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "command/renderListing.h"
#include "command/renderMerge.h"
#include "foundation/thread.h"
#include "manager/playerManager.h"
#include "support/testRoot.h"

namespace {

XMLNode doc_of(const std::string& devices) {
  return XMLNode::parseString(("<root><status>0</status>" + devices + "</root>").c_str(), "root", nullptr);
}

int lookup(CPlayerManager& manager, const std::string& id, renderCacheInfo_s& out) {
  ThreadReadLock registry(manager.getRWLock());
  return manager.searchRenderInCache_(id, out);
}

}  // namespace

TEST(RenderMerge, TypeBitsOfEachKind) {
  struct Case {
    const char* device;
    unsigned type;
  } cases[] = {
      {"<device Type=\"DLNA\"><type>video,photo,audio</type></device>", 0x10007},
      {"<device Type=\"DLNA\"><type>photo</type></device>", 0x10000},
      {"<device Type=\"DLNA\"><type>audio</type></device>", 0x10002},
      {"<device Type=\"ALSA\" Subtype=\"ANALOG\"><type>audio</type></device>", 0x80102},
      {"<device Type=\"ALSA\" Subtype=\"HDMI\"><type>audio</type></device>", 0x80202},
      {"<device Type=\"ALSA\" Subtype=\"USB\"><type>audio</type></device>", 0x80402},
      {"<device Type=\"ALSA\" Subtype=\"UNKNOWN\"><type>audio</type></device>", 0x80002},
      {"<device Type=\"KINOVUER\"><type>video</type></device>", 0x200005},
      {"<device Type=\"AirPlay\"><type protocol=\"airplay\">video,photo</type></device>", 0x20005},
      {"<device Type=\"Chromecast\"><type protocol=\"chromecast\">audio</type></device>", 0x100002},
      // The Type wins over the protocol; RAOP has no kind of its own here.
      {"<device Type=\"DLNA\"><type protocol=\"chromecast\">audio</type></device>", 0x10002},
      {"<device Type=\"AirPlay\"><type protocol=\"raop\">audio</type></device>", 0},
      {"<device Type=\"dlna\"><type>audio</type></device>", 0},
      {"<device><type>audio</type></device>", 0},
  };
  for (const Case& c : cases) {
    XMLNode device = XMLNode::parseString(c.device, "device", nullptr);
    EXPECT_EQ(c.type, render_type_of(device)) << c.device;
  }
}

TEST(RenderMerge, WhichDevicesEnterTheCacheAndWithWhat) {
  const XMLNode doc = doc_of(
      "<device Type=\"DLNA\"><deviceId>d1</deviceId><deviceName>TV</deviceName><type>video</type></device>"
      "<device Type=\"DLNA\"><deviceId>d2</deviceId><deviceName>No ip</deviceName><type>audio</type><ip/></device>"
      "<device Type=\"DLNA\"><deviceId></deviceId><deviceName>x</deviceName><type>audio</type></device>"
      "<device Type=\"DLNA\"><deviceId>d3</deviceId><deviceName/><type>audio</type></device>"
      "<device Type=\"DLNA\"><deviceId>d4</deviceId><deviceName>x</deviceName><type/></device>"
      "<device Type=\"Raop\"><deviceId>r0</deviceId><deviceName>x</deviceName>"
      "<type protocol=\"raop\" cn=\"pcm\" et=\"rsa\">audio</type></device>"
      "<device Type=\"DLNA\"><deviceId>r1</deviceId><deviceName>R</deviceName><ip>1.2.3.4</ip>"
      "<type protocol=\"raop\" cn=\"pcm\" et=\"rsa\" port=\"5000\">audio</type></device>"
      "<device Type=\"DLNA\"><deviceId>r2</deviceId><deviceName>R</deviceName>"
      "<type protocol=\"raop\" cn=\"notSupport\" et=\"rsa\">audio</type></device>"
      "<device Type=\"DLNA\"><deviceId>r3</deviceId><deviceName>R</deviceName>"
      "<type protocol=\"raop\" cn=\"pcm\" et=\"notSupport\">audio</type></device>"
      "<device Type=\"DLNA\"><deviceId>r4</deviceId><deviceName>R</deviceName>"
      "<type protocol=\"raop\" cn=\"pcm\">audio</type></device>"
      "<device Type=\"ALSA\" Subtype=\"USB\" card=\"1\" device=\"2\"><deviceId>a1</deviceId>"
      "<deviceName>DAC</deviceName><type>audio</type><ip>3</ip></device>"
      "<device Type=\"ALSA\" Subtype=\"HDMI\"><deviceId>a2</deviceId><deviceName>H</deviceName>"
      "<type>audio</type></device>"
      "<device Type=\"Chromecast\"><deviceId>c1</deviceId><deviceName>C</deviceName><ip>5.6.7.8</ip>"
      "<type protocol=\"chromecast\" port=\"8009\">video,photo,audio</type></device>");
  const std::vector<renderEntry_s> got = render_entries_of(doc);
  std::vector<std::string> ids;
  for (const renderEntry_s& e : got) ids.push_back(e.renderID);
  EXPECT_EQ((std::vector<std::string>{"d1", "d2", "r1", "a1", "a2", "c1"}), ids);
  ASSERT_EQ(6u, got.size());
  EXPECT_EQ(0x10005u, got[0].type);
  EXPECT_EQ(7000, got[0].port);
  EXPECT_FALSE(got[0].hasEncryption);
  EXPECT_EQ("", got[1].ip);
  EXPECT_EQ(5000, got[2].port);
  EXPECT_TRUE(got[2].hasEncryption);
  EXPECT_EQ("rsa", got[2].encryption);
  EXPECT_EQ("1.2.3.4", got[2].ip);
  EXPECT_EQ("1", got[3].card);
  EXPECT_EQ("2", got[3].device);
  EXPECT_EQ("3", got[3].ip);
  EXPECT_EQ("", got[4].card);
  EXPECT_EQ(0x100007u, got[5].type);
  EXPECT_EQ(7000, got[5].port);  // the advertised port is not taken
}

TEST(RenderMerge, ListingMarksEveryEntryThenAddsWhatItSaw) {
  testsupport::TestRoot root;
  CPlayerManager manager;
  XMLNode first = doc_of(
      "<device Type=\"DLNA\"><deviceId>d1</deviceId><deviceName>TV</deviceName><ip>10.0.0.1</ip>"
      "<type>video</type></device>"
      "<device Type=\"ALSA\" Subtype=\"ANALOG\" card=\"0\" device=\"0\"><deviceId>ANALOG_card0</deviceId>"
      "<deviceName>Line out</deviceName><type>audio</type><ip>1</ip></device>");
  merge_render_list(&manager, first);
  renderCacheInfo_s info;
  ASSERT_EQ(0, lookup(manager, "d1", info));
  EXPECT_TRUE(info.valid);
  EXPECT_EQ("TV", info.deviceName);
  EXPECT_EQ("10.0.0.1", info.ip);
  EXPECT_EQ(0x10005u, info.type);
  ASSERT_EQ(0, lookup(manager, "ANALOG_card0", info));
  EXPECT_EQ("0", info.card);
  // The sample front-end file gives the analog output its applications.
  EXPECT_STREQ("MusicStation", first.getChildNode("device", 1).getChildNode("inuse_apps").getText());

  // A listing that finds no device leaves every entry unseen but known.
  XMLNode empty = doc_of("");
  merge_render_list(&manager, empty);
  ASSERT_EQ(0, lookup(manager, "d1", info));
  EXPECT_FALSE(info.valid);
  ASSERT_EQ(0, lookup(manager, "ANALOG_card0", info));
  EXPECT_FALSE(info.valid);

  XMLNode again = doc_of(
      "<device Type=\"DLNA\"><deviceId>d1</deviceId><deviceName>Renamed</deviceName><type>audio</type></device>");
  merge_render_list(&manager, again);
  ASSERT_EQ(0, lookup(manager, "d1", info));
  EXPECT_TRUE(info.valid);
  EXPECT_EQ("Renamed", info.deviceName);
  EXPECT_EQ(0x10002u, info.type);
  ASSERT_EQ(0, lookup(manager, "ANALOG_card0", info));
  EXPECT_FALSE(info.valid);
  EXPECT_EQ(-1, lookup(manager, "never", info));
}

TEST(RenderListing, FilterWords) {
  struct Case {
    const char* text;
    unsigned mask;
  } cases[] = {
      {nullptr, 0},       {"DLNA+ALSA", 0x9}, {"dlna", 0x1},      {"ChromeCast+airplay+KinoVuer", 0x16},
      {"0x5", 0x5},       {"0X5", 0},          {"zz0x5", 0},       {"alsa+0x10", 0xa},  // read as hexadecimal from the start: "a", then "l" ends it
      {"foo+bar", 0},     {"", 0},             {"dlna+", 0x1},     {"+alsa++", 0x8},
  };
  for (const Case& c : cases) EXPECT_EQ(c.mask, parse_render_mask(c.text)) << (c.text ? c.text : "(none)");
  // Only the first 255 characters are read.
  EXPECT_EQ(0u, parse_render_mask((std::string(255, '+') + "0x8").c_str()));
  EXPECT_EQ(0x8u, parse_render_mask((std::string(251, '+') + "alsa").c_str()));
  EXPECT_EQ(0u, parse_render_mask((std::string(252, '+') + "alsa").c_str()));
}

TEST(RenderListing, TenSecondClock) {
  CRenderListCache cache;
  EXPECT_TRUE(cache.checkStale(1000));   // the first listing
  EXPECT_FALSE(cache.checkStale(1005));
  EXPECT_FALSE(cache.checkStale(1010));  // exactly ten seconds is fresh
  EXPECT_TRUE(cache.checkStale(1011));
  EXPECT_FALSE(cache.checkStale(1015));  // counted from the stale listing
  EXPECT_FALSE(cache.checkStale(1021));
  EXPECT_TRUE(cache.checkStale(1022));
  cache.setDlnaOutput("a");
  cache.setChromecastOutput("b");
  EXPECT_EQ("a", cache.dlnaOutput());
  EXPECT_EQ("b", cache.chromecastOutput());
}
