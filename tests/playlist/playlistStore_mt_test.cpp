// Many threads on one store: adders, readers, a batch writer and a caller
// of transEnd without a batch of its own. No row is lost, no order number
// doubles, nothing hangs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <random>
#include <thread>

#include "storeHelpers.h"

using namespace storetest;

TEST(PlaylistStoreThreads, AddersReadersAndABatchLoseNothing) {
  RootInMemory mem;
  Store s;
  CSqlitePlaylist& db = *s.db;
  const int kAdders = 4, kAdds = 60, kBatches = 15, kBatch = 20;
  for (const char* t : {"shared", "own0", "own1", "own2", "own3", "batch"})
    ASSERT_EQ(db.addPlaylist(t, MEDIA_AUDIO, "app", nullptr, nullptr), 0);
  const int shared = db.getPlaylistID("shared", "app");
  const int batch = db.getPlaylistID("batch", "app");

  std::atomic<int> failures{0}, running{kAdders + 2};
  std::atomic<bool> batchDone{false};
  auto fail = [&](const char* what) {
    std::fprintf(stderr, "%s\n", what);
    ++failures;
  };
  std::vector<std::thread> threads;
  for (int a = 0; a < kAdders; ++a) {
    threads.emplace_back([&, a] {
      std::mt19937 rng(a);
      std::string own = "own" + std::to_string(a);
      int ownID = db.getPlaylistID(own, "app");
      for (int i = 0; i < kAdds; ++i) {
        std::string c = own + "-" + std::to_string(i);
        if (db.addElmInPlaylist(own.c_str(), MEDIA_AUDIO, CONTENT_FILE, "app", c.c_str(), (rng() & 1) ? 0 : -1))
          fail("add to own list");
        if (db.addElmInPlaylist("shared", MEDIA_AUDIO, CONTENT_FILE, "app", c.c_str(), -1)) fail("add to shared");
        std::vector<playlistElm_s> v;
        if (db.getPlaylistElmsByPage(v, ownID, 0, 0) || static_cast<int>(v.size()) != i + 1) fail("own size");
        for (size_t k = 0; k < v.size(); ++k)
          if (v[k].orderNum != static_cast<int>(k)) fail("own order");
        playlistElm_s e;
        if (db.getPlaylistElmByIndex(e, shared, static_cast<int>(rng() % (i + 1))) != 0) fail("read shared");
        db.getPlaylistElmByIndex_NOLOCK(e, batch, 0);
      }
      --running;
    });
  }
  threads.emplace_back([&] {
    for (int b = 0; b < kBatches; ++b) {
      int base = db.getSizeOfPlaylist(batch);
      if (db.transBegin() != SQLITE_OK) fail("begin");
      for (int i = 0; i < kBatch; ++i) {
        std::string c = "b" + std::to_string(base + i);
        if (db.transAddElmInPlaylist(batch, MEDIA_AUDIO, CONTENT_FILE, c.c_str(), base + i)) fail("batch add");
        std::this_thread::yield();
      }
      if (db.transEnd() != SQLITE_OK) fail("batch commit");  // a stray commit would have ended it early
    }
    batchDone = true;
    --running;
  });
  threads.emplace_back([&] {
    while (!batchDone) {
      if (db.transEnd() == SQLITE_OK) fail("stray commit succeeded");
      std::vector<playlistLibElm_s> lib;
      db.getPlaylistLibElmsByPage(lib, "app", 0, 0);
      if (lib.size() != 6u) fail("library");
    }
    --running;
  });

  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(90);
  while (running.load() > 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      std::fprintf(stderr, "store threads still running after 90 s: deadlock\n");
      std::abort();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  for (auto& t : threads) t.join();

  EXPECT_EQ(failures.load(), 0);
  auto dense = [&](int id, size_t n) {
    auto o = orders(db, id);
    ASSERT_EQ(o.size(), n);
    for (size_t k = 0; k < n; ++k) ASSERT_EQ(o[k], static_cast<int>(k));
  };
  dense(shared, kAdders * kAdds);
  for (int a = 0; a < kAdders; ++a) dense(db.getPlaylistID("own" + std::to_string(a), "app"), kAdds);
  dense(batch, kBatches * kBatch);
  auto c = contents(db, batch);
  for (size_t k = 0; k < c.size(); ++k) EXPECT_EQ(c[k], "b" + std::to_string(k));
}
