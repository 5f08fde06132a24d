// Many clients at once: each connection has its own thread, and clients
// that hold their connection open do not stop the others.
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/daemonHarness.h"
#include "support/testRoot.h"
#include "vessorClient.h"

TEST(DaemonConcurrency, ParallelClientsAreServedBesideIdleOnes) {
  testsupport::TestRoot root(false);
  testsupport::DaemonProcess daemon(root.dir());
  ASSERT_TRUE(daemon.start()) << daemon.log();
  std::vector<std::unique_ptr<vessorclient::CVessorConnection>> idle;  // waiting in their read
  for (int i = 0; i < 50; ++i) idle.emplace_back(new vessorclient::CVessorConnection(daemon.socketPath()));

  std::atomic<int> good{0};
  std::vector<std::thread> clients;
  for (int t = 0; t < 8; ++t) {
    clients.emplace_back([&, t] {
      for (int i = 0; i < 15; ++i) {
        const std::string dev = "r" + std::to_string(t) + "-" + std::to_string(i);
        std::string reply;
        vessorclient::request(daemon.socketPath(), vessorclient::build_packet("echo", {{"dev", dev}}), reply);
        if (vessorclient::reply_succeeded(reply) && daemon.waitForLog("--dev:" + dev + "(done)")) ++good;
      }
    });
  }
  for (auto& c : clients) c.join();
  EXPECT_EQ(120, good.load());

  std::string reply;
  ASSERT_TRUE(idle.front()->send(vessorclient::build_packet("echo", {})) && idle.front()->receive(reply));
  EXPECT_EQ("ECHO", testsupport::node(reply, "status")) << "the idle are still served once they speak";
}
