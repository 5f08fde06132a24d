// The checks before a sound-card player is made: the card's busy state and
// the search for a port of its own music daemon.
#include "backends/alsaOutputs.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "support/testRoot.h"

using vessord::alsa_snd_dev_busy;
using vessord::next_mpd_port;

TEST(AlsaOutputs, CardIsFreeOnlyWhenItsStatusSaysClosed) {
  testsupport::TestRoot root;
  EXPECT_FALSE(alsa_snd_dev_busy("0", "0"));  // the sample says "closed"
  root.write("/proc/asound/card0/pcm0p/sub0/status", "state: RUNNING\nowner_pid   : 4242\n");
  EXPECT_TRUE(alsa_snd_dev_busy("0", "0"));
  root.write("/proc/asound/card2/pcm3p/sub0/status", "closed\n");
  EXPECT_FALSE(alsa_snd_dev_busy("2", "3"));
  EXPECT_TRUE(alsa_snd_dev_busy("7", "0"));  // no such card
  // Only the first 256 bytes count.
  root.write("/proc/asound/card5/pcm0p/sub0/status", std::string(300, 'x') + "closed\n");
  EXPECT_TRUE(alsa_snd_dev_busy("5", "0"));
  EXPECT_TRUE(alsa_snd_dev_busy("2/../../card2", "3"));
}

TEST(AlsaOutputs, PortSearchSkipsAPortInUse) {
  testsupport::TestRoot root;
  const int first = next_mpd_port();
  ASSERT_GE(first, 12350);
  ASSERT_LE(first, 12650);

  // Someone listens on the next candidate: the search passes it by.
  const int taken = first + 1;
  int s = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  a.sin_port = htons(static_cast<uint16_t>(taken));
  const bool mine = ::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 && ::listen(s, 1) == 0;
  root.clearCalls();
  const int second = next_mpd_port();
  ::close(s);
  EXPECT_NE(taken, second);
  EXPECT_NE(first, second);

  if (mine && taken <= 12650) {
    bool looked = false;
    for (const std::string& c : root.calls())
      looked = looked || c == "/bin/cat /proc/net/tcp";
    EXPECT_TRUE(looked);
    EXPECT_GT(second, taken);
  }
}
