// The envelope in-process: dispatch, the error replies, the parameter
// helpers and the version text.
#include <string>

#include <gtest/gtest.h>

#include "command/version.h"
#include "command/vessord.h"
#include "devices/paramXmlWrap.h"
#include "support/testRoot.h"

namespace {

struct run_s {
  XMLNode reply;
  requestOutcome_s outcome;
};

run_s run(const std::string& packet, const commandEntry_s* table = g_commandTable, size_t n = g_commandTableSize) {
  run_s r;
  handle_request(nullptr, packet.data(), packet.size(), r.reply, r.outcome, table, n);
  return r;
}

std::string compact(const XMLNode& n) {
  XMLString t(n.createXMLString(0, nullptr));
  return t ? t.get() : "";
}

int builds_then_fails(CPlayerManager*, XMLNode&, XMLNode& reply) {
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  ParamXmlWrapper::add_child_node(reply, "volume", "40");
  return -19;
}
int positive_with_reply(CPlayerManager*, XMLNode&, XMLNode& reply) {
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  return 3;
}
int positive_without_reply(CPlayerManager*, XMLNode&, XMLNode&) { return 1; }
int plain_failure(CPlayerManager*, XMLNode&, XMLNode&) { return -3; }
int echoes_dev(CPlayerManager*, XMLNode& root, XMLNode& reply) {
  XMLNode dev;
  if (ParamXmlWrapper::get_param_node_with_check_text(root, dev, "dev") != 0) return -3;
  ParamXmlWrapper::create_status_xml_doc(reply, dev.getText(), nullptr);
  return 0;
}

const commandEntry_s kTable[] = {
    {"Drop", builds_then_fails}, {"Pos", positive_with_reply}, {"Empty", positive_without_reply},
    {"Fail", plain_failure},     {"Dev", echoes_dev},          {"Dev", plain_failure},
};
const size_t kTableSize = sizeof kTable / sizeof kTable[0];

TEST(Envelope, HandlerResultsBecomeReplies) {
  // A handler that built a reply and still failed loses it.
  run_s r = run("<root><command>Drop</command></root>", kTable, kTableSize);
  EXPECT_EQ("<root><status>-19</status></root>", compact(r.reply));
  EXPECT_EQ(-19, r.outcome.code);

  r = run("<root><command>Pos</command></root>", kTable, kTableSize);
  EXPECT_EQ(3, r.outcome.code);
  EXPECT_FALSE(r.outcome.fatal);
  EXPECT_EQ("<root><status>0</status></root>", compact(r.reply));

  r = run("<root><command>Fail</command></root>", kTable, kTableSize);
  EXPECT_EQ("<root><status>-3</status></root>", compact(r.reply));

  // 0 or more with nothing built is the fatal case, told, not thrown.
  r = run("<root><command>Empty</command></root>", kTable, kTableSize);
  EXPECT_TRUE(r.outcome.fatal);
  EXPECT_TRUE(r.reply.isEmpty());
  EXPECT_TRUE(run("<root><command>CreatePlayer</command></root>").outcome.fatal);
}

TEST(Envelope, FirstEntryOfTheNameWinsAndNamesAreExact) {
  run_s r = run("<root><command>Dev</command><paramList><dev>r-1</dev></paramList></root>", kTable, kTableSize);
  EXPECT_EQ("<root><status>r-1</status></root>", compact(r.reply));
  EXPECT_EQ("r-1", r.outcome.dev);
  EXPECT_EQ("Dev", r.outcome.command);
  EXPECT_EQ(-7, run("<root><command>dev</command></root>", kTable, kTableSize).outcome.code);
}

TEST(Envelope, RequestEndsAtItsFirstZeroByteAndItsLength) {
  std::string packet("<root><command>echo</command></root>\0<x>", 41);
  run_s r = run(packet);
  EXPECT_EQ("<root><status>ECHO</status></root>", compact(r.reply));
  // The length limits the text even where no zero follows.
  std::string longer = "<root><command>echo</command></root>";
  r = run(longer.substr(0, 6));
  EXPECT_EQ(-7, r.outcome.code);
  EXPECT_EQ("N/A", r.outcome.dev);
}

TEST(ParamXmlWrapper, ParametersAndStatusDocument) {
  XMLNode packet = XMLNode::parseString(
      "<root><paramList><dev>a</dev><DEV>b</DEV><vol></vol></paramList><paramList><x>1</x></paramList></root>",
      "root");
  XMLNode n;
  ASSERT_EQ(0, ParamXmlWrapper::get_param_node(packet, n, "dev"));
  EXPECT_STREQ("a", n.getText()) << "the first of a name counts";
  EXPECT_EQ(0, ParamXmlWrapper::get_param_node(packet, n, "vol"));
  EXPECT_EQ(-1, ParamXmlWrapper::get_param_node_with_check_text(packet, n, "vol"));
  EXPECT_EQ(-1, ParamXmlWrapper::get_param_node(packet, n, "x")) << "only the first paramList counts";
  EXPECT_TRUE(n.isEmpty());
  XMLNode bare = XMLNode::parseString("<root><command>echo</command></root>", "root");
  EXPECT_EQ(-1, ParamXmlWrapper::get_param_node(bare, n, "dev"));

  XMLNode doc;
  ParamXmlWrapper::create_status_xml_doc(doc, "-4", "gone");
  EXPECT_EQ("<root><status>-4</status><cause>gone</cause></root>", compact(doc));
  ParamXmlWrapper::create_status_xml_doc(doc, nullptr, nullptr);
  ParamXmlWrapper::add_child_node(doc, "empty", nullptr);
  EXPECT_EQ("<root><empty/></root>", compact(doc));
}

TEST(ReplyText, VersionGoesFirstAndTextIsIndented) {
  testsupport::TestRoot root;
  XMLNode reply;
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  ParamXmlWrapper::add_child_node(reply, "note", "a<b & 'c'");
  ASSERT_TRUE(add_version_node(reply));
  EXPECT_EQ(
      "<root>\n\t<version>KIVO 3.2.7</version>\n\t<status>0</status>\n\t<note>a&lt;b &amp; &apos;c&apos;</note>\n"
      "</root>\n",
      reply_text(reply));
}

TEST(Version, PackageFirmwareAndTheirFailures) {
  testsupport::TestRoot root;
  char v[64];
  EXPECT_EQ(0, getTARPOVersion(v, sizeof v, "KIVO", 0));
  EXPECT_STREQ("KIVO 3.2.7", v);
  EXPECT_EQ(0, getFirmwareVersion(v, sizeof v, 0));
  EXPECT_STREQ("FW 5.1.4.20240611", v);
  char small[8];
  EXPECT_EQ(0, getTARPOVersion(small, sizeof small, "KIVO", 0));
  EXPECT_STREQ("KIVO 3.", small);

  EXPECT_EQ(1, getTARPOVersion(nullptr, 8, "KIVO", 0));
  EXPECT_EQ(1, getTARPOVersion(v, sizeof v, nullptr, 0));
  EXPECT_EQ(1, getTARPOVersion(v, sizeof v, "NOPKG", 0));
  // A name that would change the command line never runs.
  root.clearCalls();
  EXPECT_EQ(1, getTARPOVersion(v, sizeof v, "KIVO;id", 0));
  EXPECT_TRUE(root.calls().empty());

  root.write("/etc/config/tarpo.conf", "[KIVO]\nVersion =\n");
  EXPECT_EQ(1, getVersion(v, sizeof v, "KIVO", 0, 0)) << "an empty version is a failure";
  EXPECT_EQ(0, getVersion(v, sizeof v, "KIVO", 1, 0));
  EXPECT_STREQ("FW 5.1.4.20240611", v);
}

}  // namespace
