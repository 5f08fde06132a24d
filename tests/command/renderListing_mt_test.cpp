// Listings from several connection threads at once, in-process, against
// one manager: the kept texts and the render cache are shared by them all.
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "command/renderListing.h"
#include "foundation/thread.h"
#include "manager/playerManager.h"
#include "support/testRoot.h"

TEST(RenderListingThreads, ConcurrentListingsShareTheTextsAndTheCache) {
  testsupport::TestRoot root;
  root.write("/sim/dlna-devices.xml",
             "<root><status>success</status><device><deviceId>uuid:r1</deviceId><deviceName>R1</deviceName>"
             "<type>audio</type></device></root>\n");
  CPlayerManager manager;
  constexpr int kThreads = 4;
  std::vector<int> alsaSeen(kThreads, 0), statusOk(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 2; ++i) {
        XMLNode request = XMLNode::parseString("<root><command>ListRender</command></root>", "root", nullptr);
        XMLNode reply;
        list_render(&manager, request, reply);
        const char* status = reply.getChildNode("status").getText();
        if (status && std::string(status) == "0") ++statusOk[t];
        // The sound outputs are read by every listing, never from a cache.
        int alsa = 0;
        for (int d = 0; d < reply.nChildNode("device"); ++d)
          if (std::string(reply.getChildNode("device", d).getAttribute("Type")) == "ALSA") ++alsa;
        if (alsa == 3) ++alsaSeen[t];
      }
    });
  }
  for (std::thread& th : threads) th.join();
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(2, statusOk[t]);
    EXPECT_EQ(2, alsaSeen[t]);
  }
  // Whichever listing merged last, the renderer and the outputs are known.
  ThreadReadLock registry(manager.getRWLock());
  renderCacheInfo_s info;
  EXPECT_EQ(0, manager.searchRenderInCache_("uuid:r1", info));
  EXPECT_EQ(0, manager.searchRenderInCache_("ANALOG_card0", info));
  EXPECT_EQ(0x80102u, info.type);
}
