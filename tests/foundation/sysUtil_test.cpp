// Interface lookup and the debugging dump.
#include <gtest/gtest.h>

#include <net/if.h>

#include <string>

#include "foundation/sysUtil.h"

namespace {

TEST(GetIfByIp, LoopbackNetworkAndBadAddresses) {
  char name[IFNAMSIZ] = "unchanged";
  EXPECT_EQ(get_if_by_ip("127.0.0.1", name), 0);
  EXPECT_STREQ(name, "lo");
  // Any address of the loopback network, compared under its mask.
  std::snprintf(name, sizeof name, "x");
  EXPECT_EQ(get_if_by_ip("127.3.2.1", name), 0);
  EXPECT_STREQ(name, "lo");
  EXPECT_EQ(get_if_by_ip("not an address", name), 1);
  EXPECT_EQ(get_if_by_ip("", name), 1);
  EXPECT_EQ(get_if_by_ip(nullptr, name), 1);
}

TEST(MemoryDump, RowsPaddingAndTheLastRowsOffset) {
  const unsigned char data[] = {'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J',
                                'K', 'L', 'M', 'N', 'O', 'P', 0x00, 0x7F, ' ', 'q'};
  testing::internal::CaptureStdout();
  memory_dump(data, 20);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out,
            "Len:20\n"
            "[0000]: 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50    ABCDEFGHIJKLMNOP\n"
            "[0014]: 00 7F 20 71                                        .. q\n");

  // A full last row also shows the whole length.
  testing::internal::CaptureStdout();
  memory_dump(data, 16);
  out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out,
            "Len:16\n"
            "[0010]: 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50    ABCDEFGHIJKLMNOP\n");

  testing::internal::CaptureStdout();
  memory_dump(data, 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Len:0\n");
}

}  // namespace
