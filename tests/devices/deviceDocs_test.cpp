// Device documents from the agent's list, an AirPlay list and mDNS records,
// and the front-end's attributes: the exact text a client receives.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "devices/avahiDevices.h"
#include "devices/paramXmlWrap.h"
#include "support/testRoot.h"

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

std::string text_of(const XMLNode& doc) {
  XMLString s(doc.createXMLString(1, nullptr));
  return s ? s.get() : "";
}

std::string chromecast_doc(const std::string& records) {
  XMLNode doc = status_doc();
  EXPECT_EQ(0, gen_avahi_device(1, records, doc));
  return text_of(doc);
}

}  // namespace

TEST(DlnaDeviceDoc, CopiesEachTypedDeviceOneLevelDeepUnderItsOwnName) {
  const std::string list =
      "<root><status>success</status>"
      "<Device><deviceId>uuid:r1</deviceId><deviceName>Den TV</deviceName><type proto=\"x\">video,photo,audio</type>"
      "<ip>10.0.0.7</ip><extra><deep>1</deep></extra></Device>"
      "<device><deviceId>uuid:r2</deviceId><deviceName>No type</deviceName></device>"
      "<device><deviceId>uuid:r3</deviceId><type>audio</type><empty/></device>"
      "</root>";
  XMLNode doc = status_doc();
  EXPECT_EQ(0, ParamXmlWrapper::dlna_device_doc_gen(list, doc));
  EXPECT_EQ(
      "<root>\n\t<status>0</status>\n"
      "\t<Device Type=\"DLNA\">\n\t\t<deviceId>uuid:r1</deviceId>\n\t\t<deviceName>Den TV</deviceName>\n"
      "\t\t<type>video,photo,audio</type>\n\t\t<ip>10.0.0.7</ip>\n\t\t<extra/>\n"
      "\t\t<icon>v3_menu/multizone/dlna</icon>\n\t\t<location>remote</location>\n\t</Device>\n"
      "\t<device Type=\"DLNA\">\n\t\t<deviceId>uuid:r3</deviceId>\n\t\t<type>audio</type>\n\t\t<empty/>\n"
      "\t\t<icon>v3_menu/multizone/dlna</icon>\n\t\t<location>remote</location>\n\t</device>\n"
      "</root>\n",
      text_of(doc));

  // A media server that is down, or no document at all, adds nothing.
  for (const char* bad : {"<root><status>localServer_ERR</status><device><type>audio</type></device></root>",
                          "", "not xml", "<other><device><type>audio</type></device></other>"}) {
    XMLNode empty = status_doc();
    EXPECT_EQ(-1, ParamXmlWrapper::dlna_device_doc_gen(bad, empty)) << bad;
    EXPECT_EQ(0, empty.nChildNode("device")) << bad;
  }
}

TEST(AirPlayDeviceDoc, KindsEncryptionAndCodecWords) {
  const std::string list =
      "<root><devices>"
      "<e><device_id>aa</device_id><device_name>Box</device_name><type>airplay</type><model>AppleTV3,2</model>"
      "<ip>10.0.0.8</ip><mac>aa:bb</mac></e>"
      "<e><device_id>bb</device_id><type>speaker</type><port>5000</port><et>0,1</et><cn>1</cn></e>"
      "<e><device_id>cc</device_id><type>speaker</type><et>0</et><cn>0,1</cn></e>"
      "<e><device_id>dd</device_id><type>speaker</type><et>3</et></e>"
      "<x><device_id>ee</device_id><device_name>Kodi</device_name><type>chromecast</type><model>Xbmc</model></x>"
      "<e><device_id>ff</device_id><type>airplay</type></e>"
      "<e><device_id>gg</device_id><type>raop</type></e>"
      "<e><device_id></device_id><type>airplay</type></e>"
      "</devices></root>";
  XMLNode doc = status_doc();
  EXPECT_EQ(0, ParamXmlWrapper::air_play_device_doc_gen(list, doc));
  EXPECT_EQ(
      "<root><status>0</status><device Type=\"AirPlay\"><deviceId>aa</deviceId><deviceName>Box</deviceName>"
      "<type protocol=\"airplay\">video,photo,audio</type><ip>10.0.0.8</ip><mac>aa:bb</mac><model>AppleTV3,2</model>"
      "<icon>v3_menu/multizone/airplay</icon><location>remote</location></device><device Type=\"AirPlay\"><deviceId>"
      "bb</deviceId><type protocol=\"raop\" port=\"5000\" et=\"rsa\" cn=\"notSupport\">audio</type><icon>v3_menu/multizone/airplay</icon>"
      "<location>remote</location></device><device Type=\"AirPlay\"><deviceId>cc</deviceId><type protocol=\"raop\" et=\"no\" cn=\"pcm\">"
      "audio</type><icon>v3_menu/multizone/airplay</icon><location>remote</location></device><device Type=\"AirPlay\">"
      "<deviceId>dd</deviceId><type protocol=\"raop\" et=\"notSupport\">audio</type><icon>v3_menu/multizone/airplay</icon>"
      "<location>remote</location></device><device Type=\"Chromecast\"><deviceId>ee</deviceId><deviceName>Kodi</deviceName>"
      "<type protocol=\"chromecast\">video,photo</type><model>Xbmc</model><icon>v3_menu/multizone/chromecast</icon>"
      "<location>remote</location></device><device Type=\"AirPlay\"><deviceId>ff</deviceId><type/><icon>v3_menu/multizone/airplay</icon>"
      "<location>remote</location></device></root>",
      compact_of(doc));

  XMLNode none = status_doc();
  EXPECT_EQ(0, ParamXmlWrapper::air_play_device_doc_gen("<root><status>x</status></root>", none));
  EXPECT_EQ(0, ParamXmlWrapper::air_play_device_doc_gen("garbage", none));
  EXPECT_EQ(0, none.nChildNode("device"));
}

TEST(AvahiRecords, ChromecastLinesBecomeDevicesOncePerNameAndAddress) {
  // The sample laid in every simulated appliance: one device resolved on
  // two interfaces, one audio-only device.
  const std::string records = testsupport::TestRoot(false).read("/sim/avahi/_googlecast._tcp.txt");
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(
      "<root>\n\t<status>0</status>\n"
      "\t<device Type=\"Chromecast\">\n\t\t<deviceName>Living Room TV</deviceName>\n"
      "\t\t<ip interface=\"eth0\">192.168.1.41</ip>\n\t\t<deviceId>4f2a9c3e11d04e6a</deviceId>\n"
      "\t\t<model>Chromecast</model>\n\t\t<type protocol=\"chromecast\" port=\"8009\">video,photo,audio</type>\n"
      "\t\t<icon>v3_menu/multizone/chromecast</icon>\n\t\t<location>remote</location>\n\t</device>\n"
      "\t<device Type=\"Chromecast\">\n\t\t<deviceName>Kitchen Speaker</deviceName>\n"
      "\t\t<ip interface=\"eth0\">192.168.1.42</ip>\n\t\t<deviceId>9b1e77d0aa124c55</deviceId>\n"
      "\t\t<model>Chromecast Audio</model>\n\t\t<type protocol=\"chromecast\" port=\"8009\">audio</type>\n"
      "\t\t<icon>v3_menu/multizone/chromecast</icon>\n\t\t<location>remote</location>\n\t</device>\n"
      "</root>\n",
      chromecast_doc(records));

  // The service name shows when there is no "fn"; browse-only lines ("+",
  // "-") are skipped; the same name on another address is another device.
  const std::string more =
      "+;eth0;IPv4;Ghost;_googlecast._tcp;local\n"
      "=;eth0;IPv4;Den\\032TV\\.2;_googlecast._tcp;local;h.local;10.0.0.9;8009;\"id=x1\" \"md=CC\"\n"
      "=;eth0;IPv6;Den\\032TV\\.2;_googlecast._tcp;local;h.local;fe80::1;8009;\"id=x1\" \"md=CC\"\n"
      "-;eth0;IPv4;Gone;_googlecast._tcp;local\n";
  XMLNode doc = status_doc();
  gen_avahi_device(1, more, doc);
  ASSERT_EQ(2, doc.nChildNode("device"));
  EXPECT_STREQ("Den TV.2", doc.getChildNode("device", 0).getChildNode("deviceName").getText());
  EXPECT_STREQ("fe80::1", doc.getChildNode("device", 1).getChildNode("ip").getText());

  // One line without its line feed loses its last character: the TXT
  // record's closing quote, so "md" reads on to the end.
  XMLNode cut = status_doc();
  gen_avahi_device(1, "=;e;IPv4;N;_t;local;h;1.2.3.4;8009;\"id=q\" \"md=Audio\"", cut);
  EXPECT_STREQ("Audio", cut.getChildNode("device").getChildNode("model").getText());
  XMLNode other = status_doc();
  EXPECT_EQ(0, gen_avahi_device(7, records, other));
  EXPECT_EQ(0, gen_avahi_device(1, "", other));
  EXPECT_EQ(0, other.nChildNode("device"));
}

TEST(AvahiRecords, AirPlayTxtAuthenticationAndDuplicates) {
  struct Case {
    const char* txt;
    int result;
    const char* expect;  // the device's nodes after the record, compact
  } cases[] = {
      {"\"deviceid=58:55:CA:1A:E2:8F\" \"model=AppleTV3,2\" \"pw=1\" \"psi=x\"", 0,
       "<deviceId>5855CA1AE28F</deviceId><mac>58:55:CA:1A:E2:8F</mac><model>AppleTV3,2</model>"
       "<forceAuth>1</forceAuth><authMethod>Password</authMethod>"},
      {"\"psi=x\" \"deviceid=aa:bb\"", 0,
       "<deviceId>aabb</deviceId><mac>aa:bb</mac><forceAuth>1</forceAuth><authMethod>First-Time Passcode</authMethod>"},
      {"\"pin=1\" \"features=0x5A7FFFF7,0x1E\"", 0, "<forceAuth>0</forceAuth><authMethod>Passcode</authMethod>"},
      {"\"model=Xbmc=v2\"", 0, "<model>Xbmc</model><forceAuth>0</forceAuth>"},
      {"\"deviceid=aa:bb\" \"deviceid=aa:bb\"", -1, "<deviceId>aabb</deviceId><mac>aa:bb</mac>"},
      {"", 1, ""},
  };
  for (const Case& c : cases) {
    XMLNode device = XMLNode::createXMLTopNode("d");
    std::vector<char> buf(c.txt, c.txt + std::strlen(c.txt) + 1);
    EXPECT_EQ(c.result, parseAvahiTxt(buf.data(), device, AVAHI_AIRPLAY_E)) << c.txt;
    XMLString s(device.createXMLString(0, nullptr));
    EXPECT_EQ(c.expect[0] ? std::string("<d>") + c.expect + "</d>" : std::string("<d/>"), s.get()) << c.txt;
  }

  // AirPlay lines: an Xbmc model is not an audio device; without a model
  // the type is bare; a repeated id in one record drops the line.
  const std::string lines =
      "=;eth0;IPv4;Kodi;_airplay._tcp;local;k.local;10.0.0.3;36667;\"deviceid=01:02:03:04:05:06\" \"model=Xbmc,1\"\n"
      "=;eth0;IPv4;Bare;_airplay._tcp;local;b.local;10.0.0.4;7000;\"pw=1\"\n"
      "=;eth0;IPv4;Twice;_airplay._tcp;local;t.local;10.0.0.5;7000;\"deviceid=aa\" \"deviceid=aa\"\n";
  XMLNode doc = status_doc();
  gen_avahi_device(0, lines, doc);
  ASSERT_EQ(2, doc.nChildNode("device"));
  XMLNode kodi = doc.getChildNode("device", 0);
  EXPECT_STREQ("AirPlay", kodi.getAttribute("Type"));
  EXPECT_STREQ("video,photo", kodi.getChildNode("type").getText());
  EXPECT_STREQ("36667", kodi.getChildNode("type").getAttribute("port"));
  EXPECT_EQ(nullptr, doc.getChildNode("device", 1).getChildNode("type").getText());
  EXPECT_STREQ("Password", doc.getChildNode("device", 1).getChildNode("authMethod").getText());
}

TEST(AvahiRecords, ServiceNameEscapes) {
  struct Case {
    const char* in;
    const char* out;
  } cases[] = {
      {"Living\\032Room", "Living Room"}, {"a\\.b", "a.b"},     {"a\\\\b", "ab"},
      {"end\\", "end"},                   {"\\03", "03"},       {"Caf\\195\\169", "Caf\xc3\xa9"},
      {"x\\000y", "xy"},                  {"#1 ~?!", "#1 ~?!"},
  };
  for (const Case& c : cases) {
    char out[256] = {0};
    EXPECT_EQ(0, decodeAvahi(c.in, out, sizeof out)) << c.in;
    EXPECT_STREQ(c.out, out) << c.in;
  }
  char small[4] = {0};
  decodeAvahi("abcdef", small, sizeof small);
  EXPECT_STREQ("abc", small);
  EXPECT_EQ(1, decodeAvahi("", small, sizeof small));
}

TEST(AvahiRecords, HostileRecordsStayText) {
  // Quotes, command substitutions, backticks and a name far beyond the
  // line's limit: listed as text or dropped, never anything more.
  const std::string huge(4096, 'N');
  const std::string records =
      "=;eth0;IPv4;$(touch\\032/tmp/x);_t;local;h;10.0.0.1;8009;\"id=`id`\" \"md=a'b\" \"fn=$(reboot)\" \"st=0\"\n"
      "=;eth0;IPv4;" + huge + ";_t;local;h;10.0.0.2;8009;\"id=big\" \"md=m\"\n"
      "=;eth0;IPv4;ok;_t;local;h;10.0.0.3;8009;\"id=ok\" \"md=m\" \"fn=" + huge + "\"\n";
  XMLNode doc = status_doc();
  gen_avahi_device(1, records, doc);
  ASSERT_EQ(2, doc.nChildNode("device"));
  XMLNode first = doc.getChildNode("device", 0);
  EXPECT_STREQ("$(reboot)", first.getChildNode("deviceName").getText());
  EXPECT_STREQ("`id`", first.getChildNode("deviceId").getText());
  EXPECT_STREQ("a'b", first.getChildNode("model").getText());
  // The long name was cut with its line: no address, no device.
  EXPECT_STREQ("ok", doc.getChildNode("device", 1).getChildNode("deviceId").getText());
  EXPECT_STREQ("ok", doc.getChildNode("device", 1).getChildNode("deviceName").getText());
}

TEST(MediaDash, OnlyAsManyRowsAsListedDevicesCount) {
  testsupport::TestRoot root;
  root.write("/etc/config/mediaDash.conf",
             "<mediaDash>"
             "<device id=\"a\"><allow_apps>A1</allow_apps><inuse_apps>U1</inuse_apps></device>"
             "<device id=\"b\"><allow_apps></allow_apps><inuse_apps>U2</inuse_apps></device>"
             "<device id=\"c\"><allow_apps>A3</allow_apps></device>"
             "<device id=\"a\"><allow_apps>late</allow_apps></device>"
             "</mediaDash>");
  XMLNode doc = status_doc();
  for (const char* id : std::vector<const char*>{"b", "c", nullptr}) {
    XMLNode d = ParamXmlWrapper::add_child_node(doc, "device", nullptr);
    if (id) ParamXmlWrapper::add_child_node(d, "deviceId", id);
  }
  ParamXmlWrapper::add_media_dash_attr(doc);
  // Three devices: the rows a, b, c are read, not the late a. "c" is the
  // third row and counts; "b" has no allowed applications.
  EXPECT_EQ(
      "<root><status>0</status><device><deviceId>b</deviceId><inuse_apps>U2</inuse_apps></device>"
      "<device><deviceId>c</deviceId><allow_apps>A3</allow_apps></device><device/></root>",
      std::string(XMLString(doc.createXMLString(0, nullptr)).get()));

  XMLNode two = status_doc();
  for (const char* id : {"c", "a"}) {
    XMLNode d = ParamXmlWrapper::add_child_node(two, "device", nullptr);
    ParamXmlWrapper::add_child_node(d, "deviceId", id);
  }
  ParamXmlWrapper::add_media_dash_attr(two);
  EXPECT_TRUE(two.getChildNode("device", 0).getChildNode("allow_apps").isEmpty());  // row 3 unread
  EXPECT_STREQ("A1", two.getChildNode("device", 1).getChildNode("allow_apps").getText());

  root.write("/etc/config/mediaDash.conf", "");
  XMLNode untouched = status_doc();
  ParamXmlWrapper::add_media_dash_attr(untouched);
  EXPECT_EQ("<root><status>0</status></root>", std::string(XMLString(untouched.createXMLString(0, nullptr)).get()));
}
