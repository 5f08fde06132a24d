// Requests of one client from several threads: one at a time on the handle,
// none lost.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "airplay/airplayDevice.h"
#include "services/curlWrapper.h"

TEST(CurlWrapperThreads, ConcurrentRequestsShareTheHandleOneAtATime) {
  sim::AirplayDevice device;
  ASSERT_TRUE(device.start());
  vessord::CurlWrapper client;
  client.setIp("127.0.0.1");
  client.setPort(device.port());
  const int perThread = 15;
  std::vector<int> failures(3, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; t++) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < perThread; i++) {
        vessord::Response r;
        int rc = t == 0 ? client.airplayGetScrub(r) : t == 1 ? client.airplayPostRate(r, 1.0F)
                                                             : client.airplayPostPlay(r, "http://h/x.mp4");
        if (rc != 0 || r.m_response != 200) failures[t]++;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(failures, std::vector<int>(3, 0));
  EXPECT_EQ(device.requests().size(), 3U * perThread);
}
