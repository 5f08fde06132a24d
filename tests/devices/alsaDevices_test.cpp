// Sound-card documents in a simulated appliance: the music daemon's output
// lines, card status and HDMI monitor names from /proc/asound, the model
// rules, the second attempt and the restart test.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "devices/alsaDevices.h"
#include "devices/paramXmlWrap.h"
#include "support/testRoot.h"

using testsupport::TestRoot;

namespace {

XMLNode status_doc() {
  XMLNode doc;
  ParamXmlWrapper::create_status_xml_doc(doc, "0", nullptr);
  return doc;
}

std::string compact_of(const XMLNode& doc) {
  XMLString s(doc.createXMLString(0, nullptr));
  return s ? s.get() : "";
}

bool called(const TestRoot& root, const std::string& prefix) {
  for (const std::string& c : root.calls())
    if (c.compare(0, prefix.size(), prefix) == 0) return true;
  return false;
}

class AlsaDoc : public ::testing::Test {
 protected:
  TestRoot root;
};

}  // namespace

TEST_F(AlsaDoc, SampleOutputsBecomeDevicesWithStatusMonitorAndAttributes) {
  XMLNode doc = status_doc();
  EXPECT_EQ(0, ParamXmlWrapper::alsa_device_doc_gen(root.read("/sim/mpc-outputs.txt"), doc, 0));
  EXPECT_EQ(
      "<root><status>0</status><device Type=\"ALSA\" Subtype=\"ANALOG\" card=\"0\" device=\"0\"><deviceId>ANALOG_card0</deviceId>"
      "<deviceName>Built-in Audio</deviceName><type>audio</type><ip>1</ip><icon>v3_menu/multizone/alsa_analog</icon>"
      "<location>local</location><cardStatus>closed</cardStatus><Attributes><Attr><Name>Sample Frequency</Name>"
      "<Tag>SAMPLERATE</Tag><Allow>44100,48000,88200,96000,176400,192000,352800,384000,Auto</Allow><CurrentSetting>"
      "Auto</CurrentSetting><CurrentValue>48000</CurrentValue></Attr></Attributes></device><device Type=\"ALSA\" Subtype=\"HDMI\">"
      "<deviceId>NVidia_hdmi-1</deviceId><firendlyName>LG TV SSCR2</firendlyName><deviceName>HDMI Output</deviceName>"
      "<type>audio</type><ip>2</ip><icon>v3_menu/multizone/alsa_hdmi</icon><location>local</location><cardStatus>"
      "unknown</cardStatus><Attributes><Attr><Name>Sample Frequency</Name><Tag>SAMPLERATE</Tag><Allow>44100,48000,88200,96000,176400,192000,352800,384000,Auto</Allow>"
      "<CurrentSetting>44100</CurrentSetting><CurrentValue>44100</CurrentValue></Attr></Attributes></device>"
      "<device Type=\"ALSA\" Subtype=\"USB\" card=\"1\" device=\"0\"><deviceId>USB_DAC_0</deviceId><deviceName>"
      "USB DAC</deviceName><type>audio</type><ip>3</ip><icon>v3_menu/multizone/alsa_usb</icon><location>local</location>"
      "<cardStatus>state: RUNNING</cardStatus><Attributes><Attr><Name>Sample Frequency</Name><Tag>SAMPLERATE</Tag>"
      "<Allow>44100,48000,88200,96000,176400,192000,352800,384000,Auto</Allow><CurrentSetting>96000</CurrentSetting>"
      "<CurrentValue>96000</CurrentValue></Attr><Attr><Name>DSD Passthrough</Name><Tag>DSDPASS</Tag><Allow>"
      "Enable,Disable</Allow><CurrentSetting>Enable</CurrentSetting><CurrentValue>Enable</CurrentValue></Attr>"
      "</Attributes></device></root>",
      compact_of(doc));

  const std::vector<std::string> calls = root.calls();
  const std::vector<std::string> want = {
      "/bin/cat /proc/asound/card0/pcm0p/sub0/status",
      "/bin/cat '/proc/asound/NVidia/eld#0.1'",
      "/bin/cat /proc/asound/card2/pcm3p/sub0/status",
      "/bin/cat /proc/asound/card1/pcm0p/sub0/status",
      "/sbin/rakcfg 'System IO' VOICE_ALERT_SUPPORT -f /etc/model.conf",
  };
  EXPECT_EQ(want, calls);
}

TEST_F(AlsaDoc, LineRules) {
  struct Case {
    std::string line;
    bool ok;
    const char* name;
    int devType, card, device;
  } cases[] = {
      {"Output 4 (A) is enabled uid:u devType:1 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:CARD=5", true,
       "A", 1, 5, 0},
      {"Output 4 (A) is enabled uid:u devType:9 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:DEV=2", true,
       "A", 0, 0, 2},
      {"Output 4 (Cafe (x) is y) is enabled uid:u devType:x sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:",
       true, "Cafe (x", 0, 0, 0},
      // No devType at all: the kind is unknown, the other fields still count.
      {"Output 4 (A) is enabled uid:u sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:CARD=1,DEV=1", true,
       "A", 0, 1, 1},
      {"Output 4 (A) is enabled uid:u devType:1 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0", false, "", 0, 0, 0},
      {"Output 4 () is enabled uid:u devType:1 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:", false, "",
       0, 0, 0},
      {"Outputs 4 (A) is enabled uid:u devType:1 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:", false, "",
       0, 0, 0},
      {"Output 4 (A) is enabled uid:u devType:1 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:" +
           std::string(1100, 'x'), false, "", 0, 0, 0},
  };
  for (const Case& c : cases) {
    alsaOutput_s out;
    ASSERT_EQ(c.ok, parse_output_line(c.line, out)) << c.line;
    if (!c.ok) continue;
    EXPECT_EQ(c.name, out.name) << c.line;
    EXPECT_EQ(c.devType, out.devType) << c.line;
    EXPECT_EQ(c.card, out.card) << c.line;
    EXPECT_EQ(c.device, out.device) << c.line;
  }
}

TEST_F(AlsaDoc, SecondAttemptAddsOnlyTheAnalogOutputAndNeverRestarts) {
  XMLNode doc = status_doc();
  EXPECT_EQ(0, ParamXmlWrapper::alsa_device_doc_gen(root.read("/sim/mpc-outputs.txt"), doc, 1));
  ASSERT_EQ(1, doc.nChildNode("device"));
  EXPECT_STREQ("ANALOG", doc.getChildNode("device").getAttribute("Subtype"));
  EXPECT_FALSE(called(root, "/sbin/rakcfg"));
}

TEST_F(AlsaDoc, MissingAnalogOutputOnAModelThatNeedsOne) {
  const std::string noAnalog =
      "Output 2 (USB) is enabled uid:USB_x devType:1 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:CARD=9\n";
  // The setting off: no query of the package's place.
  XMLNode doc = status_doc();
  EXPECT_EQ(0, ParamXmlWrapper::alsa_device_doc_gen(noAnalog, doc, 0));
  EXPECT_FALSE(called(root, "/sbin/rakcfg -f /etc/config/tarpo.conf KIVO Install_Path"));

  // The setting on: the package's place is asked for. The reader's text
  // ends in a line feed, is used as it stands and names no directory, so
  // nothing restarts.
  root.write("/etc/model.conf", "[System IO]\nVOICE_ALERT_SUPPORT = 1\n");
  root.write("/etc/config/tarpo.conf", "[KIVO]\nEnable = TRUE\nInstall_Path = " + root.path("/opt/kivo") + "\n");
  root.write("/opt/kivo/VexMusicPlayer.sh", "#!/bin/sh\necho ran >\"$0.ran\"\n", 0755);
  root.clearCalls();
  XMLNode again = status_doc();
  EXPECT_EQ(0, ParamXmlWrapper::alsa_device_doc_gen(noAnalog, again, 0));
  EXPECT_TRUE(called(root, "/sbin/rakcfg -f /etc/config/tarpo.conf KIVO Install_Path"));
  EXPECT_FALSE(root.exists("/opt/kivo/VexMusicPlayer.sh.ran"));

  // An analog output present: checked, nothing asked.
  root.clearCalls();
  XMLNode withAnalog = status_doc();
  EXPECT_EQ(0, ParamXmlWrapper::alsa_device_doc_gen(root.read("/sim/mpc-outputs.txt"), withAnalog, 0));
  EXPECT_FALSE(called(root, "/sbin/rakcfg -f /etc/config/tarpo.conf KIVO Install_Path"));
}

TEST_F(AlsaDoc, OwnHdmiOutputReadsTheEldFileOfTheModel) {
  struct Case {
    const char* model;
    const char* uid;
    const char* file;
  } cases[] = {
      {"vantu", "KINOVUTOHDMI1", "/proc/asound/card0/eld#0.0"},
      {"zorpaU-2", "KINOVUTOHDMI1", "/proc/asound/card0/eld#3.1"},
      {"klimt", "KINOVUTOHDMI2", "/proc/asound/card0/eld#0.1"},
      {"other", "KINOVUTOHDMI3", "/proc/asound/card0/eld#2.2"},
  };
  for (const Case& c : cases) {
    root.write("/etc/config/ostral.conf", std::string("[System]\nModel = ") + c.model + "\n");
    root.clearCalls();
    std::string name;
    EXPECT_TRUE(hdmi_monitor_name(c.uid, name)) << c.model;
    bool read = false;
    for (const std::string& call : root.calls())
      if (call == std::string("/bin/cat '") + c.file + "'") read = true;
    EXPECT_TRUE(read) << c.model;
  }
  root.write("/etc/config/ostral.conf", "[System]\nModel = vantu\n");
  std::string name;
  ASSERT_TRUE(hdmi_monitor_name("KINOVUTOHDMI1", name));
  EXPECT_EQ("SONY TV XBR", name);
  // A monitor without a name line gives an empty name, not none.
  root.write("/proc/asound/card0/eld#0.0", "monitor_present 1\n");
  ASSERT_TRUE(hdmi_monitor_name("KINOVUTOHDMI1", name));
  EXPECT_EQ("", name);
  EXPECT_FALSE(hdmi_monitor_name("HDMI-plain", name));
}

TEST_F(AlsaDoc, HostileOutputTextIsListedButNeverRunsInTheEldPipeline) {
  const std::string canary = root.path("/tmp/ran");
  const std::string huge(4096, 'x');
  const std::string lines =
      "Output 1 (Name $(touch " + canary + ")) is enabled uid:$(touch${IFS}" + canary +
      ")_a-1 devType:2 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:CARD=-1\n"
      "Output 2 (q'uote`id`) is enabled uid:`touch${IFS}" + canary +
      "`_a-1 devType:2 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:CARD=-1\n"
      "Output 3 (card;x) is enabled uid:a;touch${IFS}" + canary +
      "_b-1 devType:2 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:CARD=-1\n"
      "Output 4 (" + huge + ") is enabled uid:u devType:2 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:\n"
      "Output 5 (n) is enabled uid:" + huge + " devType:2 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:\n"
      "Output 6 (KINOVUTOHDMI) is enabled uid:KINOVUTOHDMI devType:2 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 "
      "hwParam:hw:CARD=-1\n"
      // The character behind the box's own HDMI word, less one, is ';'.
      "Output 7 (own) is enabled uid:KINOVUTOHDMI< devType:2 sampleRate:1 sampleRateMode:0 dsd:0 dsdMode:0 "
      "hwParam:hw:CARD=-1\n";
  XMLNode doc = status_doc();
  ParamXmlWrapper::alsa_device_doc_gen(lines, doc, 0);
  ASSERT_EQ(5, doc.nChildNode("device"));
  EXPECT_TRUE(doc.getChildNode("device", 4).getChildNode("firendlyName").isEmpty());
  EXPECT_EQ("Name $(touch " + canary + ")", doc.getChildNode("device", 0).getChildNode("deviceName").getText());
  EXPECT_STREQ("q'uote`id`", doc.getChildNode("device", 1).getChildNode("deviceName").getText());
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(doc.getChildNode("device", i).getChildNode("firendlyName").isEmpty()) << i;
    EXPECT_STREQ("unknown", doc.getChildNode("device", i).getChildNode("cardStatus").getText());
  }
  EXPECT_FALSE(root.exists("/tmp/ran"));
  for (const std::string& call : root.calls()) EXPECT_EQ(std::string::npos, call.find("touch")) << call;
}
