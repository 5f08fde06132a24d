// Duplicates and batch adds racing on the shared scratch file and the
// store's one connection: copies may mix, as two duplicates share a file
// name, but every playlist keeps dense orders and the file is consistent.
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "command/vessord.h"
#include "manager/fakePlayer.h"
#include "player/playerTestSupport.h"
#include "support/daemonHarness.h"
#include "vessorClient.h"

namespace {

TEST(PlaylistCommandThreads, DuplicatesAtOnceNeverCorruptTheStore) {
  CSqlitePlaylist& db = playertest::store();
  std::unique_ptr<CPlayerManager> manager(managertest::make_manager());
  const int src = playertest::makePlaylist("mt-src", playertest::numbered(50));
  ASSERT_GT(src, 0);
  auto run = [&](const std::string& command, const vessorclient::paramList_t& params) {
    const std::string packet = vessorclient::build_packet(command, params);
    XMLNode reply;
    requestOutcome_s outcome;
    handle_request(manager.get(), packet.c_str(), packet.size(), reply, outcome);
    return testsupport::node(reply_text(reply), "status");
  };
  std::vector<std::thread> threads;
  std::vector<std::string> results(8);
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 5; ++i) {
        const std::string dest = "mt-dest" + std::to_string(t % 2);
        std::string r = run("DupPlaylist", {{"playlist_src", "mt-src"}, {"playlist_dest", dest}, {"appType", "music"}});
        r += run("AddContent", {{"playlist", "mt-src"}, {"contentType", "file"}, {"mediaType", "audio"},
                                {"content", "/share/Public/x.mp3"}, {"appType", "music"}, {"orderNum", "0"}});
        if (r != "00") results[static_cast<size_t>(t)] = r;
      }
    });
  for (std::thread& t : threads) t.join();
  for (const std::string& r : results) EXPECT_EQ("", r);

  for (const char* title : {"mt-src", "mt-dest0", "mt-dest1"}) {
    const int id = db.getPlaylistID(title, "music");
    if (id < 1) continue;  // a delete of one copy can land after another's add
    std::vector<playlistElm_s> rows;
    ASSERT_EQ(0, db.getPlaylistElmsByPage(rows, id, 0, 0));
    for (size_t i = 0; i < rows.size(); ++i) ASSERT_EQ(static_cast<int>(i), rows[i].orderNum) << title;
  }
  EXPECT_EQ(90, db.getSizeOfPlaylist(src));
}

}  // namespace
