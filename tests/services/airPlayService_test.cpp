// The AirPlay service: each operation is one request of its client, on the
// address and port that update() gave it.
#include <gtest/gtest.h>

#include "airplay/airplayDevice.h"
#include "services/airPlayService.h"

using vessord::AirPlayService;
using vessord::Response;

TEST(AirPlayServiceOps, EachOperationSendsItsRequestToTheUpdatedDevice) {
  sim::AirplayDevice device;
  ASSERT_TRUE(device.start());
  AirPlayService service;
  Response r;
  EXPECT_EQ(service.play(r), -1);  // no address yet
  service.update("render-1", "127.0.0.1", device.port(), "Den");
  EXPECT_EQ(service.m_curlWrapper.getIp(), "127.0.0.1");
  EXPECT_EQ(service.m_curlWrapper.getPort(), device.port());
  EXPECT_EQ(service.m_name, "Den");

  EXPECT_EQ(service.setContentUrl(r, "http://h/v.mp4"), 0);
  EXPECT_EQ(service.pause(r), 0);
  EXPECT_EQ(service.play(r), 0);
  EXPECT_EQ(service.seek(r, 2.5F), 0);
  EXPECT_EQ(service.getPosInfo(r), 0);
  EXPECT_EQ(service.stop(r), 0);
  auto reqs = device.requests();
  ASSERT_EQ(reqs.size(), 6U);
  EXPECT_EQ(reqs[0].path, "/play");
  EXPECT_EQ(reqs[1].path, "/rate?value=0");
  EXPECT_EQ(reqs[2].path, "/rate?value=1");
  EXPECT_EQ(reqs[3].path, "/scrub?position=2.5");
  EXPECT_EQ(reqs[4].method + " " + reqs[4].path, "GET /scrub");
  EXPECT_EQ(reqs[5].path, "/stop");
  EXPECT_EQ(service.urlEscape("a b"), "a%20b");
}

TEST(AirPlayServiceOps, TheLongConstructorSwapsTheTwoTexts) {
  AirPlayService s("id", "10.0.0.9", 7100, "TV", "second", "first", true, false);
  EXPECT_EQ(s.m_serviceAttrA, "first");
  EXPECT_EQ(s.m_serviceAttrB, "second");
  EXPECT_TRUE(s.m_serviceFlagA);
  EXPECT_FALSE(s.m_serviceFlagB);
  EXPECT_EQ(s.m_curlWrapper.getPort(), 7100);
}
