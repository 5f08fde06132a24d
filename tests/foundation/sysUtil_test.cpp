// Interface lookup by address.
#include <gtest/gtest.h>

#include <net/if.h>

#include "foundation/sysUtil.h"

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
