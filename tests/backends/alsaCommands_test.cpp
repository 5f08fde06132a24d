// The sound-card back-end's attribute reading and its client line runner.
#include "backends/alsaCommands.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <string>

#include "support/testRoot.h"

using vessord::ParseMpdAttr;
using vessord::send_mpd_cmd;

TEST(ParseMpdAttr, KeysAndWordsInAnyCase) {
  struct Case {
    const char* text;
    int rate, dsd;
  };
  const Case cases[] = {
      {"SAMPLERATE=44100,DSDPASS=Enable", 44100, 1},
      {"samplerate=auto,dsdpass=DISABLE", -1, 0},
      {"DsdPass=auto", -2, -1},
      {"SAMPLERATE=0,DSDPASS=maybe", -2, -2},
      {"SAMPLERATE=-5", -2, -2},
      {"SAMPLERATE=x", -2, -2},
      {"vol=1,SAMPLERATE", -2, -2},            // no "=": skipped; unknown key ignored
      {"SAMPLERATE=48000=1,DSDPASS=", 48000, -2},  // split at the first "="
      {",,SAMPLERATE=96000,", 96000, -2},
  };
  for (const Case& c : cases) {
    int rate = 7, dsd = 7;
    EXPECT_EQ(0, ParseMpdAttr(c.text, &rate, &dsd)) << c.text;
    EXPECT_EQ(c.rate, rate) << c.text;
    EXPECT_EQ(c.dsd, dsd) << c.text;
  }
  int rate = 7, dsd = 7;
  EXPECT_EQ(-1, ParseMpdAttr("", &rate, &dsd));
  EXPECT_EQ(-1, ParseMpdAttr(nullptr, &rate, &dsd));
  EXPECT_EQ(-1, ParseMpdAttr("DSDPASS=Enable", nullptr, &dsd));
  EXPECT_EQ(-1, ParseMpdAttr("DSDPASS=Enable", &rate, nullptr));
}

TEST(SendMpdCmd, WaitsForTheLineAndGivesItsExitStatus) {
  testsupport::TestRoot root;
  // The free-port test: grep's status says whether the text was found.
  const int found = send_mpd_cmd("/bin/cat /proc/asound/card0/pcm0p/sub0/status | /bin/grep -q \"closed\"");
  const int missing = send_mpd_cmd("/bin/cat /proc/asound/card0/pcm0p/sub0/status | /bin/grep \"%X-none\"");
  ASSERT_TRUE(WIFEXITED(found));
  EXPECT_EQ(0, WEXITSTATUS(found));
  ASSERT_TRUE(WIFEXITED(missing));
  EXPECT_EQ(1, WEXITSTATUS(missing));

  // A line ending in "&> /dev/null" has run to its end when the call returns.
  EXPECT_EQ(0, send_mpd_cmd("{ sleep 0.3; touch /tmp/mark; } &> /dev/null"));
  EXPECT_TRUE(root.exists("/tmp/mark"));

  // The listed card's output setting goes to the client as the manager
  // formats it; a card the client does not know fails.
  root.clearCalls();
  EXPECT_EQ(0, send_mpd_cmd("/tmp/vexmpd/bin/mpc -p 8893 setoutputattr \"USB DAC\" 1 44100 &> /dev/null"));
  EXPECT_NE(0, send_mpd_cmd("/tmp/vexmpd/bin/mpc -p 8893 setoutputattr \"Nobody\" 1 44100 &> /dev/null"));
  const auto calls = root.calls();
  ASSERT_EQ(2u, calls.size());
  EXPECT_EQ("/tmp/vexmpd/bin/mpc -p 8893 setoutputattr 'USB DAC' 1 44100", calls[0]);
  EXPECT_EQ(-1, send_mpd_cmd(nullptr));
}
