#include "host/policy/home_ranges.h"

#include <gtest/gtest.h>

namespace flow::host {
namespace {

HomeRanges Home(const std::vector<std::string>& texts) {
  std::vector<Network> networks;
  for (const std::string& text : texts) {
    Network network;
    EXPECT_TRUE(ParseNetwork(text, &network)) << text;
    networks.push_back(network);
  }
  return HomeRanges(networks);
}

TEST(HomeRanges, HoldTheirAddressesAndNoOthers) {
  const HomeRanges home = Home({"192.168.1.0/24", "10.0.0.0/8", "10.1.0.0/16", "10.200.0.0/9",
                                "203.0.113.7", "255.255.255.255/32"});
  for (const std::uint32_t inside : {0x0A000000U, 0x0A010203U, 0x0AFFFFFFU, 0xC0A80100U,
                                     0xC0A801FFU, 0xCB007107U, 0xFFFFFFFFU}) {
    EXPECT_TRUE(home.Contains(inside)) << std::hex << inside;
  }
  for (const std::uint32_t outside :
       {0U, 0x09FFFFFFU, 0x0B000000U, 0xC0A800FFU, 0xC0A80200U, 0xCB007106U, 0xFFFFFFFEU}) {
    EXPECT_FALSE(home.Contains(outside)) << std::hex << outside;
  }
}

TEST(HomeRanges, CanBeEverythingOrNothing) {
  EXPECT_TRUE(Home({"1.2.3.4/0"}).Contains(0xFFFFFFFF));
  EXPECT_TRUE(Home({"1.2.3.4/0"}).Contains(0));
  EXPECT_FALSE(Home({}).Contains(0));
}

TEST(Networks, AreCutToTheirMask) {
  Network network;
  ASSERT_TRUE(ParseNetwork("10.1.2.3/8", &network));
  EXPECT_EQ(network.address.Text(), "10.0.0.0");
  EXPECT_EQ(network.Ipv4Mask(), 0xFF000000U);
  for (const char* text : {"", "/8", "10.0.0.0/", "10.0.0.0/-1", "10.0.0.0/8x", "10.0.0.0/33",
                           "10.0.0", "10.0.0.256", "::/0"}) {
    EXPECT_FALSE(ParseNetwork(text, &network)) << text;
  }
}

}  // namespace
}  // namespace flow::host
