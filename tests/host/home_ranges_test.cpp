// SPDX-License-Identifier: Apache-2.0
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

TEST(HomeRanges, HoldAddressesOfIpv6) {
  const HomeRanges home =
      Home({"2001:db8::/33", "2001:db8:8000::/33", "fe80::1", "2001:db8:1::/48", "10.0.0.0/8"});
  for (const char* inside : {"2001:db8::", "2001:db8:ffff:ffff:ffff:ffff:ffff:ffff", "fe80::1"}) {
    EXPECT_TRUE(home.Contains(*IpAddress::Parse(inside))) << inside;
  }
  for (const char* outside : {"2001:db7:ffff:ffff:ffff:ffff:ffff:ffff",
                              "2001:db9::", "fe80::", "fe80::2", "::", "a00:1::"}) {
    EXPECT_FALSE(home.Contains(*IpAddress::Parse(outside))) << outside;
  }
  EXPECT_TRUE(home.Contains(0x0A000001));
  EXPECT_TRUE(Home({"::/0"}).Contains(*IpAddress::Parse("ffff:ffff::")));
}

TEST(HomeRanges, ArePrivateForAFamilyWithoutAny) {
  const auto contents = [](const std::vector<std::string>& texts) {
    std::vector<Network> networks(texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) ParseNetwork(texts[i], &networks[i]);
    const HomeRanges home = HomeRanges::OrPrivate(networks);
    return std::pair(home.Contains(0xC0A80001), home.Contains(*IpAddress::Parse("fd00::1")));
  };
  EXPECT_EQ(contents({}), std::pair(true, true));
  EXPECT_EQ(contents({"203.0.113.0/24"}), std::pair(false, true));
  EXPECT_EQ(contents({"2001:db8::/32"}), std::pair(true, false));
}

TEST(Networks, AreCutToTheirMask) {
  Network network;
  ASSERT_TRUE(ParseNetwork("10.1.2.3/8", &network));
  EXPECT_EQ(network.address.Text(), "10.0.0.0");
  EXPECT_EQ(network.Ipv4Mask(), 0xFF000000U);
  ASSERT_TRUE(ParseNetwork("2001:db8:ffff::1/33", &network));
  EXPECT_EQ(network.address.Text(), "2001:db8:8000::");
  for (const char* text : {"", "/8", "10.0.0.0/", "10.0.0.0/-1", "10.0.0.0/8x", "10.0.0.0/33",
                           "10.0.0", "10.0.0.256", "::/129", "::/", "2001:db8/32"}) {
    EXPECT_FALSE(ParseNetwork(text, &network)) << text;
  }
}

}  // namespace
}  // namespace flow::host
