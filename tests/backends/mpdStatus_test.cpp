// The status parser on texts as Debian's mpc 0.34 prints them.
#include "backends/mpdStatus.h"

#include <gtest/gtest.h>

using vessord::MPD_PAUSED;
using vessord::MPD_PLAYING;
using vessord::MPD_STOPPED;
using vessord::ParseMpdStatus;

namespace {
const char* const kVolumeLine = "volume:100%   repeat: off   random: off   single: off   consume: off\n";
}

TEST(MpdStatus, StatesAndTimesOfTheRealClient) {
  const std::string playing = std::string("/tmp/alsa/long.wav\n[playing] #1/1   0:07/3:20 (3%)\n") + kVolumeLine;
  auto s = ParseMpdStatus(playing.c_str());
  EXPECT_EQ(MPD_PLAYING, s.state);
  EXPECT_EQ(7, s.elapsed);
  EXPECT_EQ(200, s.total);

  // Past an hour the client keeps counting minutes; the double blank after
  // "[paused]" is the client's own alignment.
  const std::string paused = std::string("/tmp/alsa/long.wav\n[paused]  #1/1  59:59/66:40 (89%)\n") + kVolumeLine;
  s = ParseMpdStatus(paused.c_str());
  EXPECT_EQ(MPD_PAUSED, s.state);
  EXPECT_EQ(3599, s.elapsed);
  EXPECT_EQ(4000, s.total);

  s = ParseMpdStatus("a.flac\r\n[playing]\t#2/3\t1:02:03/2:00:00 (51%)\r\n");
  EXPECT_EQ(MPD_PLAYING, s.state);
  EXPECT_EQ(3723, s.elapsed);
  EXPECT_EQ(7200, s.total);
}

TEST(MpdStatus, NothingLoadedOrNoTextIsStoppedAtZero) {
  for (const char* text : {kVolumeLine, "", "MPD error: Connection refused\n", "x [playing] #1/1 0:05/0:10\n"}) {
    const auto s = ParseMpdStatus(text);
    EXPECT_EQ(MPD_STOPPED, s.state) << text;
    EXPECT_EQ(0, s.elapsed) << text;
    EXPECT_EQ(0, s.total) << text;
  }
  EXPECT_EQ(MPD_STOPPED, ParseMpdStatus(nullptr).state);
}

TEST(MpdStatus, OddWordsAndMissingWords) {
  // An unknown state word stops the reading with no time at all.
  auto s = ParseMpdStatus("[stopped] #1/1 0:05/0:10\n");
  EXPECT_EQ(MPD_STOPPED, s.state);
  EXPECT_EQ(0, s.elapsed);
  EXPECT_EQ(0, s.total);
  s = ParseMpdStatus("[playingx] #1/1 0:05/0:10\n");
  EXPECT_EQ(MPD_STOPPED, s.state);

  // A missing position or time word keeps the state with no time.
  s = ParseMpdStatus("[paused]\n0:05/0:10\n");
  EXPECT_EQ(MPD_PAUSED, s.state);
  EXPECT_EQ(0, s.elapsed);
  s = ParseMpdStatus("[playing] #1/1\n");
  EXPECT_EQ(MPD_PLAYING, s.state);
  EXPECT_EQ(0, s.total);

  // An odd character in the time word drops the total, keeps what closed.
  s = ParseMpdStatus("[playing] #1/1 0:05/0:1x0\n");
  EXPECT_EQ(5, s.elapsed);
  EXPECT_EQ(0, s.total);
  s = ParseMpdStatus("[playing] #1/1 0:0-5/0:10\n");
  EXPECT_EQ(0, s.elapsed);
  EXPECT_EQ(0, s.total);

  // Endless digits are capped, not overflowed.
  s = ParseMpdStatus("[playing] #1/1 99999999999999999999:99/99999999999999999999999\n");
  EXPECT_GT(s.elapsed, 0);
  EXPECT_GT(s.total, 0);
}
