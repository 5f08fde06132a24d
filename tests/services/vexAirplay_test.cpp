// The device script interface: the command line of each operation as the
// script receives it, and the reading of its replies.
#include <gtest/gtest.h>

#include <string>

#include "services/vexAirplayOp.h"
#include "support/testRoot.h"

using CVexAirplay::CVexAirplayOpInterface;
using testsupport::TestRoot;

namespace {
const std::string kScript = "/usr/local/apache/bin/php /usr/local/medialibrary/bin/VexAirplay/vexairplay.php";

class VexAirplayTest : public ::testing::Test {
 protected:
  std::string lastCall() {
    auto calls = root.calls();
    return calls.empty() ? std::string() : calls.back();
  }
  TestRoot root;
};
}  // namespace

TEST(VexAirplayLine, PlayOptionsComeBehindTheEndMarkerOnlyWhenGiven) {
  auto bare = CVexAirplayOpInterface::commandLine(CVexAirplayOpInterface::OP_PLAY, "dev1", "http://h/a.mp4",
                                                  nullptr, nullptr);
  ASSERT_TRUE(bare.ok());
  EXPECT_EQ(bare.display(), kScript + " -c=play -d='dev1' -u='http://h/a.mp4' -x");

  auto full = CVexAirplayOpInterface::commandLine(CVexAirplayOpInterface::OP_PLAY, "dev1", "http://h/a.mp4",
                                                  "http://h/t.jpg?x=1&y=2", "My (best) movie's cut");
  ASSERT_TRUE(full.ok());
  EXPECT_EQ(full.display(), kScript +
                                " -c=play -d='dev1' -u='http://h/a.mp4' -x -i='http://h/t.jpg?x=1&y=2'"
                                " -t=My\\ \\(best\\)\\ movie\\'s\\ cut");
}

TEST(VexAirplayLine, EachOperationHasItsAction) {
  using I = CVexAirplayOpInterface;
  EXPECT_EQ(I::commandLine(I::OP_STOP, "d", nullptr, nullptr, nullptr).display(), kScript + " -c=stop -d='d' -x");
  EXPECT_EQ(I::commandLine(I::OP_PAUSE, "d", nullptr, nullptr, nullptr).display(), kScript + " -c=pause -d='d' -x");
  EXPECT_EQ(I::commandLine(I::OP_RESUME, "d", nullptr, nullptr, nullptr).display(),
            kScript + " -c=resume -d='d' -x");
  EXPECT_EQ(I::commandLine(I::OP_STOP_ONLY, "d", nullptr, nullptr, nullptr).display(),
            kScript + " -c=stop_only -d='d' -x");
  EXPECT_EQ(I::commandLine(I::OP_SCRUB, "d", "42", nullptr, nullptr).display(),
            kScript + " -c=scrub -d='d' -t='42' -x");
  EXPECT_EQ(I::commandLine(I::OP_PHOTO, "d", "/share/a b.jpg", nullptr, nullptr).display(),
            kScript + " -c=photo -d='d' -u=/share/a\\ b.jpg -x");
}

TEST(VexAirplayLine, UnknownOrDangerousInputBuildsNoLine) {
  using I = CVexAirplayOpInterface;
  EXPECT_FALSE(I::commandLine(0, "d", nullptr, nullptr, nullptr).ok());
  EXPECT_FALSE(I::commandLine(8, "d", nullptr, nullptr, nullptr).ok());
  EXPECT_FALSE(I::commandLine(I::OP_PHOTO, "d", nullptr, nullptr, nullptr).ok());
  // A device id or URL that would end its quotes never reaches the shell.
  EXPECT_FALSE(I::commandLine(I::OP_STOP, "d'; touch /tmp/x; '", nullptr, nullptr, nullptr).ok());
  EXPECT_FALSE(I::commandLine(I::OP_PLAY, "d", "http://h/a'$(reboot)'", nullptr, nullptr).ok());
  EXPECT_EQ(I::sendCommand(I::OP_STOP, "d'; touch /tmp/x; '", nullptr, nullptr, nullptr), -1);
  // A title that cannot be escaped within the limit is refused, not cut.
  std::string longTitle(1100, 'a');
  EXPECT_FALSE(I::commandLine(I::OP_PLAY, "d", "u", nullptr, longTitle.c_str()).ok());
}

TEST(VexAirplayReply, OnlyAStatusOfZeroIsSuccess) {
  using I = CVexAirplayOpInterface;
  EXPECT_EQ(I::parseStatus("<?xml version=\"1.0\"?><root><status>0</status></root>"), 0);
  EXPECT_EQ(I::parseStatus("<root><status>1</status><error>x</error></root>"), -1);
  EXPECT_EQ(I::parseStatus("<root><status>00</status></root>"), -1);
  EXPECT_EQ(I::parseStatus("<root><error>x</error></root>"), -1);
  EXPECT_EQ(I::parseStatus("PHP Fatal error: oops"), -1);
  EXPECT_EQ(I::parseStatus(""), -1);
}

TEST(VexAirplayReply, PositionsAreWholeSecondsAndNeedBothNumbers) {
  using I = CVexAirplayOpInterface;
  int pos = -1, dur = -1;
  EXPECT_EQ(I::parsePosition("<root><status>0</status><duration>120.9</duration><position>33.5</position></root>",
                             pos, dur),
            0);
  EXPECT_EQ(dur, 120);
  EXPECT_EQ(pos, 33);
  pos = 7;
  dur = 8;
  EXPECT_EQ(I::parsePosition("<root><status>0</status><position>12</position></root>", pos, dur), -1);
  EXPECT_EQ(pos, 7);
  EXPECT_EQ(dur, 8);
}

TEST_F(VexAirplayTest, TheScriptKeepsEachDevicesPlayback) {
  using I = CVexAirplayOpInterface;
  ASSERT_EQ(I::sendCommand(I::OP_PLAY, "cc:1", "http://h/a.mp4", nullptr, "A film"), 0);
  EXPECT_EQ(lastCall(), kScript + " -c=play -d=cc:1 -u=http://h/a.mp4 -x '-t=A film'");
  ASSERT_EQ(I::sendCommand(I::OP_SCRUB, "cc:1", "30", nullptr, nullptr), 0);
  ASSERT_EQ(I::sendCommand(I::OP_PAUSE, "cc:1", nullptr, nullptr, nullptr), 0);
  int pos = -1, dur = -1;
  ASSERT_EQ(I::getPosInfo("cc:1", pos, dur), 0);
  EXPECT_EQ(dur, 60);
  EXPECT_EQ(pos, 30);
  EXPECT_EQ(lastCall(), kScript + " -c=status -d=cc:1 -x");

  // Another device has its own state.
  ASSERT_EQ(I::getPosInfo("cc:2", pos, dur), 0);
  EXPECT_EQ(pos, 0);

  root.write("/sim/vexairplay/cc_1.state", "fail=1\n");
  EXPECT_EQ(I::sendCommand(I::OP_RESUME, "cc:1", nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(I::getPosInfo("cc:1", pos, dur), -1);
  EXPECT_EQ(pos, 0);
  EXPECT_EQ(dur, 0);
}
