// ListRender and ListUnknowRender through the socket, against the daemon in
// a simulated appliance: the sources and their command lines, the filter,
// the package test, the ten-second text cache, the way into the render
// cache, and hostile discovery records.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/xmlParser.h"
#include "support/daemonHarness.h"
#include "support/testRoot.h"

using testsupport::DaemonProcess;
using testsupport::node;
using testsupport::TestRoot;

namespace {

const char kDlnaList[] =
    "<root><status>success</status>"
    "<device><deviceId>uuid:den-tv</deviceId><deviceName>Den TV</deviceName><type>video,photo,audio</type>"
    "<ip>192.168.1.30</ip><manufacturer>Sim</manufacturer></device>"
    "<device><deviceId>uuid:hifi</deviceId><deviceName>Hi-Fi #2 (kitchen) ~!?</deviceName><type>audio</type>"
    "<ip>192.168.1.31</ip></device>"
    "</root>\n";

struct Listed {
  std::string id, kind, name;
};

std::vector<Listed> devices_of(const std::string& reply) {
  std::vector<Listed> out;
  XMLNode root = XMLNode::parseString(reply.c_str(), "root", nullptr);
  for (int i = 0; i < root.nChildNode("device"); ++i) {
    XMLNode d = root.getChildNode("device", i);
    const char* id = d.getChildNode("deviceId").getText();
    const char* kind = d.getAttribute("Type");
    const char* name = d.getChildNode("deviceName").getText();
    out.push_back({id ? id : "", kind ? kind : "", name ? name : ""});
  }
  return out;
}

std::vector<std::string> ids_of(const std::string& reply) {
  std::vector<std::string> ids;
  for (const Listed& d : devices_of(reply)) ids.push_back(d.id.empty() ? d.name : d.id);
  return ids;
}

class Listing : public ::testing::Test {
 protected:
  void SetUp() override {
    root.write("/sim/dlna-devices.xml", kDlnaList);
    ASSERT_TRUE(daemon.start()) << daemon.log();
    root.clearCalls();
  }
  std::string list(const std::string& renderType = "") {
    if (renderType.empty()) return daemon.command("ListRender");
    return daemon.command("ListRender", {{"renderType", renderType}});
  }
  int count_calls(const std::string& prefix) const {
    const std::vector<std::string> calls = root.calls();
    return static_cast<int>(std::count_if(calls.begin(), calls.end(), [&](const std::string& c) {
      return c.compare(0, prefix.size(), prefix) == 0;
    }));
  }

  TestRoot root{false};
  DaemonProcess daemon{root.dir()};
};

const std::vector<std::string> kAllIds = {"uuid:den-tv",   "uuid:hifi",     "4f2a9c3e11d04e6a", "9b1e77d0aa124c55",
                                          "ANALOG_card0",  "NVidia_hdmi-1", "USB_DAC_0"};

}  // namespace

TEST_F(Listing, AllSourcesInOrderWithTheirCommandLinesThenTheCacheWithinTenSeconds) {
  const std::string first = list();
  EXPECT_EQ("0", node(first, "status"));
  EXPECT_EQ(kAllIds, ids_of(first));
  const std::vector<Listed> d = devices_of(first);
  EXPECT_EQ("DLNA", d[0].kind);
  EXPECT_EQ("Hi-Fi #2 (kitchen) ~!?", d[1].name);
  EXPECT_EQ("Chromecast", d[2].kind);
  EXPECT_EQ("ALSA", d[4].kind);
  // The front-end's file names the analog output.
  EXPECT_NE(std::string::npos, first.find("<inuse_apps>MusicStation</inuse_apps>"));

  EXPECT_EQ(1, count_calls("/sbin/rakcfg -f /etc/config/tarpo.conf -d FALSE -c KIVO Enable"));
  EXPECT_EQ(1, count_calls("/usr/bin/brelctl -c list"));
  EXPECT_EQ(1, count_calls("/usr/sbin/avahi-browse -rkpt _googlecast._tcp"));
  EXPECT_EQ(1, count_calls("/tmp/vexmpd/bin/mpc -p 8893 outputs"));

  // Within ten seconds the agent and the browse are not asked again, and
  // their devices come from the kept texts, even if the network changed.
  root.write("/sim/dlna-devices.xml", "<root><status>success</status></root>\n");
  root.clearCalls();
  const std::string second = list();
  EXPECT_EQ(kAllIds, ids_of(second));
  EXPECT_EQ(0, count_calls("/usr/bin/brelctl"));
  EXPECT_EQ(0, count_calls("/usr/sbin/avahi-browse"));
  EXPECT_EQ(1, count_calls("/tmp/vexmpd/bin/mpc -p 8893 outputs"));  // never cached
}

TEST_F(Listing, FilterSelectsSourcesAndAFilteredListingRestartsTheClock) {
  EXPECT_EQ((std::vector<std::string>{"ANALOG_card0", "NVidia_hdmi-1", "USB_DAC_0"}), ids_of(list("ALSA")));
  EXPECT_EQ(0, count_calls("/usr/bin/brelctl"));
  EXPECT_EQ(0, count_calls("/usr/sbin/avahi-browse"));

  // The alsa listing counted as the refresh: the next full one within ten
  // seconds uses the kept texts, which the skipped sources never filled.
  root.clearCalls();
  EXPECT_EQ((std::vector<std::string>{"ANALOG_card0", "NVidia_hdmi-1", "USB_DAC_0"}), ids_of(list()));
  EXPECT_EQ(0, count_calls("/usr/bin/brelctl"));

  for (const char* onlyNothing : {"airplay", "KINOVUER", "airplay+kinovuer"}) {
    const std::string reply = list(onlyNothing);
    EXPECT_EQ("0", node(reply, "status")) << onlyNothing;
    EXPECT_TRUE(devices_of(reply).empty()) << onlyNothing;
  }
  // Still inside the window: the browse has never run, so its kept text is
  // empty and a Chromecast listing finds nothing.
  EXPECT_TRUE(ids_of(list("0x4")).empty());
}

TEST_F(Listing, DisabledPackageListsOnlyRenderersAndTheirOwnAgentFailureKeepsStatusZero) {
  root.write("/etc/config/tarpo.conf", "[KIVO]\nName = KIVO\nVersion = 3.2.7\nEnable = FALSE\n");
  EXPECT_EQ((std::vector<std::string>{"uuid:den-tv", "uuid:hifi"}), ids_of(list()));
  EXPECT_EQ(0, count_calls("/usr/sbin/avahi-browse"));
  EXPECT_EQ(0, count_calls("/tmp/vexmpd/bin/mpc"));
}

TEST(ListingServer, MediaServerDownStillAnswersZero) {
  TestRoot root(false);
  root.write("/sim/dlna-devices.xml", "<root><status>localServer_ERR</status><device><type>audio</type></device></root>");
  root.write("/etc/config/tarpo.conf", "[KIVO]\nName = KIVO\nVersion = 3.2.7\nEnable = FALSE\n");
  DaemonProcess daemon(root.dir());
  ASSERT_TRUE(daemon.start()) << daemon.log();
  const std::string reply = daemon.command("ListRender");
  EXPECT_EQ("0", node(reply, "status"));
  EXPECT_TRUE(devices_of(reply).empty());
}

TEST_F(Listing, ARendererBecomesPlayableOnlyOnceListed) {
  const std::vector<std::pair<std::string, std::string>> params = {
      {"dev", "uuid:den-tv"}, {"playlist", "none yet"}, {"appType", "MS"}};
  EXPECT_NE("0", node(daemon.command("SetPlaylist", params), "status"));
  list("dlna");
  EXPECT_EQ("0", node(daemon.command("SetPlaylist", params), "status")) << daemon.log();
  EXPECT_NE(std::string::npos, daemon.command("ListPlayer").find("uuid:den-tv"));
}

TEST_F(Listing, UnknownRenderListingWhileThePackageIsAbsent) {
  // Installed: nothing is browsed.
  std::string reply = daemon.command("ListUnknowRender");
  EXPECT_EQ("0", node(reply, "status"));
  EXPECT_TRUE(devices_of(reply).empty());
  EXPECT_EQ(1, count_calls("/sbin/rakcfg KIVO Name -d null -f /etc/config/tarpo.conf"));
  EXPECT_EQ(0, count_calls("/usr/sbin/avahi-browse"));

  // Absent: each id counts once, lines without an id count as one device,
  // a line without a name shows "Unknown".
  root.write("/etc/config/tarpo.conf", "[Other]\nName = x\n");
  root.write("/sim/avahi/_googlecast._tcp.txt",
             root.read("/sim/avahi/_googlecast._tcp.txt") +
                 "=;eth0;IPv4;NoId;_googlecast._tcp;local;n.local;10.0.0.1;8009;\"fn=First\" \"ic=/i.png\"\n"
                 "=;eth0;IPv4;NoId2;_googlecast._tcp;local;n.local;10.0.0.2;8009;\"fn=Second\" \"ic=/i.png\"\n"
                 "=;eth0;IPv4;Nameless;_googlecast._tcp;local;n.local;10.0.0.3;8009;\"id=zz\" \"md=x\"\n");
  reply = daemon.command("ListUnknowRender");
  std::vector<std::string> names;
  for (const Listed& d : devices_of(reply)) {
    EXPECT_EQ("Chromecast", d.kind);
    names.push_back(d.name);
  }
  EXPECT_EQ((std::vector<std::string>{"Living Room TV", "Kitchen Speaker", "First", "Unknown"}), names);
  EXPECT_EQ(1, count_calls("/usr/sbin/avahi-browse -krpt _googlecast._tcp"));
}

TEST_F(Listing, HostileDiscoveryRecordsAreListedOrSkippedAndNothingRuns) {
  const std::string canary = root.path("/tmp/pwned");
  const std::string sub = "$(touch " + canary + ")";
  const std::string tick = "`touch " + canary + "`";
  const std::string huge(4096, 'H');
  root.write("/sim/dlna-devices.xml",
             "<root><status>success</status>"
             "<device><deviceId>uuid:a'" + sub + "'</deviceId><deviceName>" + tick +
                 "</deviceName><type>audio</type><ip>1.1.1.1;" + sub + "</ip></device>"
                 "<device><deviceId>uuid:line&#10;break</deviceId><deviceName>" + huge +
                 "</deviceName><type>video</type></device>"
                 "</root>");
  root.write("/sim/avahi/_googlecast._tcp.txt",
             "=;eth0;IPv4;" + sub + ";_googlecast._tcp;local;h;10.0.0.9;8009;\"id='" + sub + "'\" \"md=" + tick +
                 "\" \"fn=" + sub + "\" \"ic=x\"\n"
                 "=;eth0;IPv4;" + huge + ";_googlecast._tcp;local;h;10.0.0.8;8009;\"id=big\" \"md=m\"\n");
  root.write("/sim/mpc-outputs.txt",
             "Output 1 (" + sub + ") is enabled uid:" + "$(touch${IFS}" + canary +
                 ")_x-1 devType:2 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:CARD=0,DEV=0\n"
                 "Output 2 (" + huge + ") is enabled uid:u devType:3 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 "
                 "hwParam:hw:CARD=0,DEV=0\n");

  const std::string reply = list();
  EXPECT_EQ("0", node(reply, "status"));
  const std::vector<Listed> d = devices_of(reply);
  ASSERT_EQ(4u, d.size()) << reply;
  EXPECT_EQ("uuid:a'" + sub + "'", d[0].id);
  EXPECT_EQ(tick, d[0].name);
  EXPECT_EQ("uuid:line\nbreak", d[1].id);
  EXPECT_EQ("'" + sub + "'", d[2].id);
  EXPECT_EQ(sub, d[2].name);
  EXPECT_EQ(sub, d[3].name);

  // Playing on them runs nothing either.
  for (const Listed& dev : d)
    daemon.command("SetPlaylist", {{"dev", dev.id}, {"playlist", "p"}, {"appType", "MS"}});
  daemon.command("ListPlayer");

  EXPECT_FALSE(root.exists("/tmp/pwned"));
  // The sound output's player may name its output: as one literal word.
  const std::string literal = " enable only '$(touch /tmp/pwned)'";
  for (const std::string& call : root.calls()) {
    const bool named = call.size() > literal.size() && call.compare(call.size() - literal.size(), literal.size(), literal) == 0;
    if (!named) {
      EXPECT_EQ(std::string::npos, call.find("touch")) << call;
    }
  }
}

// A listed sound output without a player takes its attributes through the
// client line of the appliance's own music daemon: device name, DSD pass,
// sample rate. A name that cannot stand in double quotes runs nothing.
TEST_F(Listing, AttributesOfAListedCardWithoutAPlayerGoToTheMusicDaemon) {
  root.write("/sim/mpc-outputs.txt",
             root.read("/sim/mpc-outputs.txt") +
                 "Output 4 (Odd \"$(touch /tmp/owned)\") is enabled uid:ODD_0 devType:1 sampleRate:44100 "
                 "sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:CARD=3,DEV=0\n");
  list("alsa");
  root.clearCalls();
  daemon.command("SetAttributes", {{"dev", "USB_DAC_0"}, {"attr", "SAMPLERATE=96000,DSDPASS=Enable"}});
  daemon.command("SetAttributes", {{"dev", "ANALOG_card0"}, {"attr", "samplerate=auto"}});
  daemon.command("SetAttributes", {{"dev", "ANALOG_card0"}, {"attr", "vol=1"}});  // nothing to set
  daemon.command("SetAttributes", {{"dev", "ODD_0"}, {"attr", "SAMPLERATE=48000"}});
  const std::vector<std::string> expected = {
      "/tmp/vexmpd/bin/mpc -p 8893 setoutputattr 'USB DAC' 1 96000",
      "/tmp/vexmpd/bin/mpc -p 8893 setoutputattr 'Built-in Audio' -2 -1",
  };
  std::vector<std::string> client;
  for (const std::string& c : root.calls())
    if (c.find("/tmp/vexmpd/") == 0) client.push_back(c);
  EXPECT_EQ(expected, client);
  EXPECT_FALSE(root.exists("/tmp/owned"));
}
