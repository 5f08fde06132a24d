// Many threads on one store: adders, readers, a batch writer and a caller
// of transEnd without a batch of its own. No row is lost, no order number
// doubles, nothing hangs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <random>
#include <thread>

#include "storeHelpers.h"

using namespace storetest;

TEST(PlaylistStoreThreads, AddersReadersAndABatchLoseNothing) {
  root_in_memory();
  Store s;
  CSqlitePlaylist& db = s.db;
  const int kAdders = 4, kAdds = 60, kBatches = 15, kBatch = 20;
  for (const char* t : {"shared", "batch"}) ASSERT_EQ(db.addPlaylist(t, MEDIA_AUDIO, "app", nullptr, nullptr), 0);
  const int shared = 1, batch = 2;

  std::atomic<int> failures{0};
  std::atomic<bool> batchDone{false};
  auto check = [&](bool ok, const char* what) {
    if (!ok && ++failures < 10) std::fprintf(stderr, "%s\n", what);
  };
  std::vector<std::future<void>> workers;
  for (int a = 0; a < kAdders; ++a) {
    workers.push_back(std::async(std::launch::async, [&, a] {
      std::mt19937 rng(a);
      for (int i = 0; i < kAdds; ++i) {
        std::string c = std::to_string(a) + "-" + std::to_string(i);
        int pos = (rng() & 1) ? 0 : -1;  // a shift, or an append
        check(!db.addElmInPlaylist("shared", MEDIA_AUDIO, CONTENT_FILE, "app", c.c_str(), pos), "add to shared");
        playlistElm_s e;
        check(db.getPlaylistElmByIndex(e, shared, static_cast<int>(rng() % (i + 1))) == 0, "read shared");
        db.getPlaylistElmByIndex_NOLOCK(e, batch, 0);
      }
    }));
  }
  workers.push_back(std::async(std::launch::async, [&] {
    for (int b = 0; b < kBatches; ++b) {
      int base = db.getSizeOfPlaylist(batch);
      check(db.transBegin() == SQLITE_OK, "begin");
      for (int i = 0; i < kBatch; ++i) {
        std::string c = "b" + std::to_string(base + i);
        check(!db.transAddElmInPlaylist(batch, MEDIA_AUDIO, CONTENT_FILE, c.c_str(), base + i), "batch add");
        std::this_thread::yield();
      }
      check(db.transEnd() == SQLITE_OK, "batch commit");  // a stray commit would have ended it early
    }
    batchDone = true;
  }));
  workers.push_back(std::async(std::launch::async, [&] {
    while (!batchDone) {
      check(db.transEnd() != SQLITE_OK, "stray commit succeeded");
      std::vector<playlistLibElm_s> lib;
      db.getPlaylistLibElmsByPage(lib, "app", 0, 0);
      check(lib.size() == 2u, "library");
    }
  }));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(90);
  for (auto& w : workers)  // a thread still running by then is in a deadlock, which nothing else would end
    if (w.wait_until(deadline) != std::future_status::ready) std::abort();

  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(orders(db, shared), dense(kAdders * kAdds));
  EXPECT_EQ(orders(db, batch), dense(kBatches * kBatch));
  S want;
  for (int k = 0; k < kBatches * kBatch; ++k) want.push_back("b" + std::to_string(k));
  EXPECT_EQ(contents(db, batch), want);
}
