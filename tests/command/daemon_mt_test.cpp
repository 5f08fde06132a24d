// Many clients at once: each connection has its own thread, and clients
// that hold their connection open do not stop the others.
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/daemonHarness.h"
#include "support/testRoot.h"
#include "vessorClient.h"

namespace {

TEST(DaemonConcurrency, ParallelClientsAllGetTheirReplies) {
  testsupport::TestRoot root(false);
  testsupport::DaemonProcess daemon(root.dir());
  ASSERT_TRUE(daemon.start()) << daemon.log();

  // Connections that never send keep their threads waiting in the read.
  std::vector<std::unique_ptr<vessorclient::CVessorConnection>> idle;
  for (int i = 0; i < 50; ++i) {
    idle.emplace_back(new vessorclient::CVessorConnection(daemon.socketPath()));
    ASSERT_TRUE(idle.back()->ok());
  }

  std::atomic<int> good{0}, bad{0};
  std::vector<std::thread> clients;
  for (int t = 0; t < 8; ++t) {
    clients.emplace_back([&, t] {
      for (int i = 0; i < 15; ++i) {
        std::string dev = "r" + std::to_string(t) + "-" + std::to_string(i);
        std::string reply, error;
        int rc = vessorclient::request(daemon.socketPath(), vessorclient::build_packet("echo", {{"dev", dev}}), reply,
                                       &error);
        if (rc == 0 && vessorclient::reply_succeeded(reply)) ++good;
        else ++bad;
      }
    });
  }
  for (auto& c : clients) c.join();
  EXPECT_EQ(120, good.load());
  EXPECT_EQ(0, bad.load());

  // The waiting connections are still served once they speak.
  std::string reply;
  ASSERT_TRUE(idle.front()->send(vessorclient::build_packet("echo", {})));
  ASSERT_TRUE(idle.front()->receive(reply));
  EXPECT_EQ("ECHO", testsupport::node(reply, "status"));
  idle.clear();
  EXPECT_TRUE(daemon.alive());
}

}  // namespace
