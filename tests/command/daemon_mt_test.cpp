// Many clients at once: each connection has its own thread, and clients
// that hold their connection open do not stop the others.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
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

using testsupport::dir_entries;

// Silent clients are let go after the idle limit: their threads and
// descriptors come back, a client that speaks within the limit is served,
// and one that never acknowledges its reply does not keep its thread.
TEST(DaemonConcurrency, SilentClientsAreLetGoAfterTheIdleLimit) {
  testsupport::TestRoot root(false);
  testsupport::DaemonProcess daemon(root.dir());
  ASSERT_TRUE(daemon.start({"VESSORD_IDLE_CLIENT_MS=3000"})) << daemon.log();
  const std::string task = "/proc/" + std::to_string(daemon.pid()) + "/task";
  const std::string fds = "/proc/" + std::to_string(daemon.pid()) + "/fd";
  std::string reply;
  vessorclient::request(daemon.socketPath(), vessorclient::build_packet("echo", {}), reply);
  ASSERT_EQ("ECHO", testsupport::node(reply, "status"));
  const int threads = dir_entries(task), descriptors = dir_entries(fds);

  std::vector<std::unique_ptr<vessorclient::CVessorConnection>> silent;
  for (int i = 0; i < 200; ++i) silent.emplace_back(new vessorclient::CVessorConnection(daemon.socketPath()));
  vessorclient::CVessorConnection slow(daemon.socketPath());
  vessorclient::CVessorConnection noAck(daemon.socketPath());
  ASSERT_TRUE(noAck.send(vessorclient::build_packet("echo", {})) && noAck.receive(reply));
  // A thread for each waiting client (a sanitizer build makes them slowly).
  int peak = 0;
  for (int i = 0; i < 50 && peak <= threads + 100; ++i) {
    peak = std::max(peak, dir_entries(task));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_GT(peak, threads + 100) << "a thread for each waiting client";
  ASSERT_TRUE(slow.send(vessorclient::build_packet("echo", {})));
  ASSERT_TRUE(slow.receive(reply));
  EXPECT_EQ("ECHO", testsupport::node(reply, "status")) << "spoke within the limit";
  slow.acknowledge();

  auto settled = [&] {
    for (int i = 0; i < 400; ++i) {
      if (dir_entries(task) <= threads && dir_entries(fds) <= descriptors) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
  };
  EXPECT_TRUE(settled()) << dir_entries(task) << " threads, " << dir_entries(fds) << " descriptors";
  EXPECT_TRUE(daemon.waitForLog("a client sent nothing for 3000 ms: closed"));
  // The daemon closed the silent ones: their next read sees the end.
  char byte;
  EXPECT_EQ(0, ::read(silent.front()->fd(), &byte, 1));
  vessorclient::request(daemon.socketPath(), vessorclient::build_packet("echo", {}), reply);
  EXPECT_EQ("ECHO", testsupport::node(reply, "status"));
}
