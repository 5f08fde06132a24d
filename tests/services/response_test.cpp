// Number texts in query strings and replies.
#include <gtest/gtest.h>

#include "services/service.h"

using vessord::Response;

TEST(ResponseText, FloatsGoOutInTheStreamsDefaultFormat) {
  EXPECT_EQ(Response::fToString(1.0F), "1");
  EXPECT_EQ(Response::fToString(0.0F), "0");
  EXPECT_EQ(Response::fToString(0.5F), "0.5");
  EXPECT_EQ(Response::fToString(12.3456789F), "12.3457");
  EXPECT_EQ(Response::fToString(1234567.0F), "1.23457e+06");
}

TEST(ResponseText, NumbersAreReadLikeAStreamReadsThem) {
  EXPECT_FLOAT_EQ(Response::stringToF("true"), 0);
  EXPECT_FLOAT_EQ(Response::stringToF("1.5 seconds"), 1.5F);
  EXPECT_FLOAT_EQ(Response::stringToF(""), 0);
  EXPECT_FLOAT_EQ(Response::stringToF("   42.25"), 42.25F);
  EXPECT_FLOAT_EQ(Response::stringToF("-3"), -3);
}

namespace {
struct FakeService : vessord::Service {
  using Service::Service;
  int setContentUrl(Response&, std::string) override { return 0; }
  int play(Response&) override { return 0; }
  int pause(Response&) override { return 0; }
  int stop(Response&) override { return 0; }
  int seek(Response&, float) override { return 0; }
  int getPosInfo(Response&) override { return 0; }
};
}  // namespace

TEST(ServiceFields, ArgumentsComeInRenderIdIpPortNameOrder) {
  FakeService s("uuid:1", "10.0.0.5", 7000, "Living room");
  EXPECT_EQ(s.m_renderId, "uuid:1");
  EXPECT_EQ(s.m_ip, "10.0.0.5");
  EXPECT_EQ(s.m_port, 7000);
  EXPECT_EQ(s.m_name, "Living room");
  s.update("uuid:2", "10.0.0.6", 7100, "Kitchen");
  EXPECT_EQ(s.m_renderId, "uuid:2");
  EXPECT_EQ(s.m_ip, "10.0.0.6");
  EXPECT_EQ(s.m_port, 7100);
  EXPECT_EQ(s.m_name, "Kitchen");
  FakeService blank;
  EXPECT_EQ(blank.m_port, 0);
  EXPECT_TRUE(blank.m_ip.empty() && blank.m_name.empty() && blank.m_renderId.empty());
}
