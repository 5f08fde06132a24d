// Interface lookup by address.
#include <gtest/gtest.h>

#include <net/if.h>

#include "foundation/sysUtil.h"
#include "support/testRoot.h"

#include <unistd.h>

#include <cerrno>

namespace {

TEST(GetIfByIp, AnyAddressOfTheLoopbackNetworkAndBadAddresses) {
  for (const char* ip : {"127.0.0.1", "127.3.2.1"}) {
    char name[IFNAMSIZ] = "unchanged";
    EXPECT_EQ(get_if_by_ip(ip, name), 0) << ip;
    EXPECT_STREQ(name, "lo") << ip;
  }
  char name[IFNAMSIZ];
  for (const char* bad : {"not an address", "", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(get_if_by_ip(bad, name), 1);
  }
}

}  // namespace

// A client names the temporary subtitle to remove: only a regular file
// below /tmp goes, never through a planted link, never anything elsewhere.
TEST(RemoveTmpFile, OnlyARegularFileBelowTmpWithoutLinks) {
  testsupport::TestRoot root;
  root.write("/tmp/sub.srt", "1\n");
  root.write("/tmp/conv/deep.srt", "1\n");
  root.write("/share/Public/keep.srt", "1\n");
  root.write("/etc/passwd-like", "x\n");
  ASSERT_EQ(0, ::symlink(root.path("/etc").c_str(), root.path("/tmp/planted").c_str()));
  ASSERT_EQ(0, ::symlink(root.path("/etc/passwd-like").c_str(), root.path("/tmp/link.srt").c_str()));

  EXPECT_EQ(0, remove_tmp_file("/tmp/sub.srt"));
  EXPECT_FALSE(root.exists("/tmp/sub.srt"));
  EXPECT_EQ(0, remove_tmp_file("/tmp/conv/deep.srt"));
  EXPECT_FALSE(root.exists("/tmp/conv/deep.srt"));

  for (const char* refused : {"/share/Public/keep.srt", "/tmp/../share/Public/keep.srt", "/tmp/./x", "/tmp/",
                              "/tmp/planted/passwd-like", "/tmp/link.srt", "/tmp/conv", "tmp/sub.srt"}) {
    errno = 0;
    EXPECT_EQ(-1, remove_tmp_file(refused)) << refused;
    EXPECT_EQ(EPERM, errno) << refused;
  }
  EXPECT_TRUE(root.exists("/share/Public/keep.srt"));
  EXPECT_TRUE(root.exists("/etc/passwd-like"));
  EXPECT_TRUE(root.exists("/tmp/link.srt"));
  EXPECT_EQ(-1, remove_tmp_file("/tmp/missing.srt"));
  EXPECT_EQ(ENOENT, errno);
}
