// The speaker player's duration probe and its two fixed files in /tmp: the
// length read from the report, the files removed after a reading, and what
// was planted under those names neither followed nor destroyed.
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "backends/raopTestSupport.h"

using namespace raoptest;

namespace {

const char kXxx[] = "/tmp/.audo.info.xxx";
const char kYyy[] = "/tmp/.audo.info.yyy";

std::string probe(const std::string& appliancePath, int* rc = nullptr) {
  std::string duration = "unset";
  const int r = CRaopPlayer::_get_track_druation(sharedRoot().path(appliancePath).c_str(), duration);
  if (rc) *rc = r;
  return r == 0 ? duration : "-1 " + duration;
}

bool probed(const std::string& appliancePath) {
  for (const std::string& c : sharedRoot().calls())
    if (c.find("ffprobe") != std::string::npos && c.find(appliancePath) != std::string::npos) return true;
  return false;
}

}  // namespace

TEST(RaopProbe, ReadsTheLengthAndLeavesNoFileBehind) {
  const Strings paths = layMedia({"00:03:41", "01:02:03.75", ""});
  EXPECT_EQ("00:03:41", probe(paths[0]));
  EXPECT_EQ("01:02:03", probe(paths[1]));
  EXPECT_FALSE(sharedRoot().exists(kXxx));
  EXPECT_FALSE(sharedRoot().exists(kYyy));

  // No "Duration" in the report: -1, and both files stay as they were.
  EXPECT_EQ("-1 unset", probe(paths[2]));
  EXPECT_TRUE(sharedRoot().exists(kXxx));
  EXPECT_NE(std::string::npos, sharedRoot().read(kXxx).find("Invalid data"));
  EXPECT_TRUE(sharedRoot().exists(kYyy));
  EXPECT_EQ("-1 unset", probe("/share/Public/raop/missing.mp3"));
  // The next reading starts afresh.
  EXPECT_EQ("00:03:41", probe(paths[0]));
  EXPECT_FALSE(sharedRoot().exists(kXxx));
}

TEST(RaopProbe, ALengthWithoutFractionIsCutAtTheComma) {
  const Strings paths = layMedia({"00:00:09"});
  sharedRoot().write("/sim/ffprobe/report", "  Duration: 00:04:10, start: 0.025057, bitrate: 128 kb/s\n");
  EXPECT_EQ("00:04:10", probe(paths[0]));
  ::unlink(sharedRoot().path("/sim/ffprobe/report").c_str());
}

// A path that holds a quote reaches the probe only as its '\'' form, read
// by the shell as the name; a path that the line cannot hold is not run.
TEST(RaopProbe, OnlyPathsThatStandInQuotesAreProbed) {
  const Strings paths = layMedia({"00:00:07"}, {"it's here.mp3"});
  std::string quoted;
  for (char c : sharedRoot().path(paths[0])) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  sharedRoot().clearCalls();
  std::string duration;
  EXPECT_EQ(0, CRaopPlayer::_get_track_druation(quoted.c_str(), duration));
  EXPECT_EQ("00:00:07", duration);

  sharedRoot().clearCalls();
  const std::string broken = sharedRoot().path("/share/Public/raop/a'b.mp3");
  EXPECT_EQ(-1, CRaopPlayer::_get_track_druation(broken.c_str(), duration));
  const std::string tooLong = sharedRoot().path("/share/Public/raop/" + std::string(600, 'x') + ".mp3");
  EXPECT_EQ(-1, CRaopPlayer::_get_track_druation(tooLong.c_str(), duration));
  EXPECT_FALSE(probed("/share/Public/raop/a")) << "nothing ran";
  EXPECT_FALSE(probed("xxxxxxxx"));
}

// Links planted under the fixed names are removed, never written through;
// another user's file there is left whole and the probe gives up.
TEST(RaopProbe, PlantedNamesAreNeitherFollowedNorDestroyed) {
  const Strings paths = layMedia({"00:02:00"});
  sharedRoot().write("/etc/precious", "keep me\n");
  sharedRoot().write("/etc/precious2", "keep me too\n");
  ::unlink(sharedRoot().path(kXxx).c_str());
  ::unlink(sharedRoot().path(kYyy).c_str());
  ASSERT_EQ(0, ::symlink(sharedRoot().path("/etc/precious").c_str(), sharedRoot().path(kXxx).c_str()));
  ASSERT_EQ(0, ::symlink(sharedRoot().path("/etc/precious2").c_str(), sharedRoot().path(kYyy).c_str()));
  EXPECT_EQ("00:02:00", probe(paths[0]));
  EXPECT_EQ("keep me\n", sharedRoot().read("/etc/precious"));
  EXPECT_EQ("keep me too\n", sharedRoot().read("/etc/precious2"));
  struct stat st {};
  EXPECT_NE(0, ::lstat(sharedRoot().path(kXxx).c_str(), &st));

  if (::geteuid() != 0) GTEST_SKIP() << "another user's file needs root to lay";
  sharedRoot().write(kXxx, "someone else's\n");
  ASSERT_EQ(0, ::chown(sharedRoot().path(kXxx).c_str(), 65534, 65534));
  int rc = 0;
  probe(paths[0], &rc);
  EXPECT_EQ(-1, rc);
  EXPECT_EQ("someone else's\n", sharedRoot().read(kXxx));
  ::unlink(sharedRoot().path(kXxx).c_str());
}
