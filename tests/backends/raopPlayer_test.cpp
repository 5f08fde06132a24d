// The speaker player in-process against the streamer and probe stand-ins,
// with short waits: the child's start and end, the datagrams, the player's
// clock and the modes' reversed sense at a track's end, the pause test, and
// the fixed /tmp names that must not be followed when something was planted
// there.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <dirent.h>
#include <string>

#include "backends/raopTestSupport.h"

using namespace raoptest;

namespace {

// A control file of the stand-ins, removed again at the end of the test.
class Control {
 public:
  Control(std::string path, const std::string& text) : m_path(std::move(path)) { sharedRoot().write(m_path, text); }
  ~Control() { ::unlink(sharedRoot().path(m_path).c_str()); }
  Control(const Control&) = delete;
  Control& operator=(const Control&) = delete;

 private:
  std::string m_path;
};

std::string fileOf(const std::string& path) { return "file " + path; }

}  // namespace

// Before the first play there is no child: the commands that need it fail
// or are ignored, and the volume is 85. play() starts the child with its
// argument vector; volume and seek reach it; the destructor ends it.
TEST(RaopPlayer, TheChildComesWithThePlayAndGoesWithThePlayer) {
  const Strings tracks = layMedia({"00:10:00"});
  makeObjectPlaylist(1);
  sharedRoot().clearCalls();
  auto p = makePlayer(false);
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  EXPECT_EQ(85, p->getVolume());
  EXPECT_EQ(0, p->pause()) << "the failed write is ignored";
  EXPECT_EQ(-1, p->setVolume(50));
  EXPECT_EQ(85, p->getVolume());
  EXPECT_EQ(0, p->childPid());

  ASSERT_EQ(0, p->play());
  EXPECT_EQ(STATE_PLAY_E, p->getPlayerState());
  const int pid = p->childPid();
  ASSERT_GT(pid, 0);
  EXPECT_TRUE(procExists(pid));
  Strings children;
  for (const std::string& c : sharedRoot().calls())
    if (c.find("raop_play") != std::string::npos) children.push_back(c);
  EXPECT_EQ(Strings{"/usr/local/medialibrary/bin/raop_play -i --port 5000 -e 10.0.0.21"}, children);
  ASSERT_TRUE(waitFor([&] { return countOf(datagramsOf(pid), fileOf(tracks[0])) == 1; }));

  // Every socket of this process is closed on exec: none reaches a child.
  if (DIR* dir = ::opendir("/proc/self/fd")) {
    while (const dirent* e = ::readdir(dir)) {
      const int fd = std::atoi(e->d_name);
      struct stat st {};
      if (fd > 2 && ::fstat(fd, &st) == 0 && S_ISSOCK(st.st_mode)) {
        EXPECT_NE(0, ::fcntl(fd, F_GETFD) & FD_CLOEXEC) << "descriptor " << fd;
      }
    }
    ::closedir(dir);
  }

  EXPECT_EQ(0, p->setVolume(150));
  EXPECT_EQ(100, p->getVolume());
  EXPECT_EQ(0, p->setVolume(-3));
  EXPECT_EQ(0, p->getVolume());
  EXPECT_EQ(0, p->seek("00:01:05"));
  EXPECT_EQ("00:01:05", p->getSeekTime());
  EXPECT_GE(p->elapsed(), 65);
  EXPECT_EQ(0, p->setAudioAndSubtitle(nullptr, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0));
  ASSERT_TRUE(waitFor([&] { return countOf(datagramsOf(pid), "seek 65") == 1; }));
  const Strings got = datagramsOf(pid);
  EXPECT_EQ(1u, countOf(got, "volume 100"));
  EXPECT_EQ(1u, countOf(got, "volume 0"));

  p.reset();
  EXPECT_FALSE(procExists(pid)) << "ended and reaped with its player";
  EXPECT_EQ("quit", datagramsOf(pid).back());
  EXPECT_FALSE(sharedRoot().exists("/tmp/.raop_play." + std::to_string(pid)));
  EXPECT_FALSE(sharedRoot().exists("/tmp/.raop_play.cli." + std::to_string(pid)));
}

// NORMAL: a finished track with a successor stops the player (the queue has
// moved on); the last track of the queue starts over on the same child.
TEST(RaopPlayer, NormalStopsAfterATrackWithASuccessorAndRepeatsTheLast) {
  const Strings tracks = layMedia({"00:00:01", "00:00:01"});
  makeObjectPlaylist(2);
  auto p = makePlayer();
  ASSERT_EQ(0, p->play());
  const int first = p->childPid();
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_STOP_E && p->isParked(); }));
  Strings got = datagramsOf(first);
  ASSERT_FALSE(got.empty());
  EXPECT_EQ(fileOf(tracks[0]), got.front());
  EXPECT_EQ("quit", got.back());
  EXPECT_EQ(0u, countOf(got, fileOf(tracks[1])));
  EXPECT_FALSE(procExists(first));

  ASSERT_EQ(0, p->play());
  const int second = p->childPid();
  ASSERT_NE(first, second);
  ASSERT_TRUE(waitFor([&] { return countOf(datagramsOf(second), fileOf(tracks[1])) >= 2; }));
  EXPECT_EQ(0u, countOf(datagramsOf(second), fileOf(tracks[0])));
  EXPECT_EQ(STATE_PLAY_E, p->getPlayerState());
}

// REPEAT moves on at the length and wraps at the queue's end; a track whose
// length cannot be read is skipped.
TEST(RaopPlayer, RepeatMovesOnAndSkipsATrackWithoutLength) {
  const Strings tracks = layMedia({"00:00:01", "", "00:00:01"});
  makeObjectPlaylist(3);
  auto p = makePlayer();
  p->setPlayMode(REPEAT);
  ASSERT_EQ(0, p->play());
  const int pid = p->childPid();
  ASSERT_TRUE(waitFor([&] {
    Strings files;
    for (const std::string& d : datagramsOf(pid))
      if (d.compare(0, 5, "file ") == 0) files.push_back(d);
    return files.size() >= 3;
  }));
  Strings files;
  for (const std::string& d : datagramsOf(pid))
    if (d.compare(0, 5, "file ") == 0) files.push_back(d);
  EXPECT_EQ((Strings{fileOf(tracks[0]), fileOf(tracks[2]), fileOf(tracks[0])}), Strings(files.begin(), files.begin() + 3));
}

// Twelve answers in a row without "NO_PAUSE" end the track.
TEST(RaopPlayer, TwelvePollsWithoutNoPauseEndTheTrack) {
  const Strings tracks = layMedia({"01:00:00", "01:00:00"});
  makeObjectPlaylist(2);
  Control paused("/sim/raop_play/answer-paused", "");
  auto p = makePlayer();
  p->setPlayMode(REPEAT);
  ASSERT_EQ(0, p->play());
  const int pid = p->childPid();
  ASSERT_TRUE(waitFor([&] { return countOf(datagramsOf(pid), fileOf(tracks[1])) == 1; }));
  const Strings got = datagramsOf(pid);
  size_t states = 0;
  for (const std::string& d : got) {
    if (d == fileOf(tracks[1])) break;
    states += d == "state" ? 1 : 0;
  }
  EXPECT_EQ(12u, states);
}

// next() and previous() wrap at both ends and hand the track over at once.
TEST(RaopPlayer, NextAndPreviousWrapRound) {
  const Strings tracks = layMedia({"01:00:00", "01:00:00", "01:00:00"});
  makeObjectPlaylist(3);
  auto p = makePlayer();
  ASSERT_EQ(0, p->play());
  const int pid = p->childPid();
  ASSERT_TRUE(waitFor([&] { return countOf(datagramsOf(pid), fileOf(tracks[0])) == 1; }));
  EXPECT_EQ(0, p->previous());
  ASSERT_TRUE(waitFor([&] { return countOf(datagramsOf(pid), fileOf(tracks[2])) == 1; }));
  EXPECT_EQ(0, p->next());
  ASSERT_TRUE(waitFor([&] { return countOf(datagramsOf(pid), fileOf(tracks[0])) == 2; }));
  EXPECT_EQ(0, p->next());
  ASSERT_TRUE(waitFor([&] { return countOf(datagramsOf(pid), fileOf(tracks[1])) == 1; }));
  EXPECT_EQ(pid, p->childPid());
  EXPECT_EQ(STATE_PLAY_E, p->getPlayerState());
}

// A playlist of files only: their object ids are "N/A", nothing resolves,
// the player stops and closes the child.
TEST(RaopPlayer, AQueueWithoutObjectIdsStopsThePlayer) {
  const Strings tracks = layMedia({"00:00:05"});
  playertest::makePlaylist(playertest::testTitle(), tracks);
  auto p = makePlayer();
  ASSERT_EQ(0, p->play());
  const int pid = p->childPid();
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_STOP_E && p->isParked(); }));
  EXPECT_EQ(Strings{"quit"}, datagramsOf(pid));
  EXPECT_FALSE(procExists(pid));
}

// A child that ends while playing is noticed; after four further polls a
// new one is started and the track begins again on it.
TEST(RaopPlayer, ADeadChildIsReplacedAndTheTrackStartsAgain) {
  const Strings tracks = layMedia({"01:00:00"});
  makeObjectPlaylist(1);
  Control die("/sim/raop_play/die-at", "0.3");
  auto p = makePlayer();
  ASSERT_EQ(0, p->play());
  const int first = p->childPid();
  ASSERT_TRUE(waitFor([&] { return p->childPid() != first; }));
  const int second = p->childPid();
  EXPECT_FALSE(procExists(first));
  ASSERT_TRUE(waitFor([&] { return countOf(datagramsOf(second), fileOf(tracks[0])) == 1; }));
  EXPECT_EQ(1u, countOf(datagramsOf(first), fileOf(tracks[0])));
  EXPECT_TRUE(p->isConnected());
}

// A child that never makes its socket: play() fails after the waits, the
// child is ended and reaped, and the player is finished.
TEST(RaopPlayer, AChildWithoutSocketFinishesThePlayer) {
  layMedia({"00:00:05"});
  makeObjectPlaylist(1);
  Control silent("/sim/raop_play/no-socket", "");
  auto p = makePlayer();
  EXPECT_EQ(-1, p->play());
  const int pid = p->childPid();
  ASSERT_GT(pid, 0);
  EXPECT_FALSE(procExists(pid));
  EXPECT_FALSE(p->isConnected());
  EXPECT_EQ(-1, p->play());
  EXPECT_EQ(pid, p->childPid()) << "no second child for a finished player";
  p.reset();  // the loop has left: the destructor does not wait for a park
}
