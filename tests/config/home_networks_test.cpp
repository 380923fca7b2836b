// SPDX-License-Identifier: Apache-2.0
#include "config/home_networks.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tests/support/host_object.h"
#include "tests/support/recording_host.h"

namespace flow::test {
namespace {

struct Networks {
  std::vector<std::uint32_t> addresses;
  std::vector<std::uint32_t> masks;

  // What being at home means.
  bool Contain(std::uint32_t address) const {
    for (std::size_t i = 0; i < addresses.size(); ++i) {
      if (((address ^ addresses[i]) & masks[i]) == 0) return true;
    }
    return false;
  }
};

TEST(HomeNetworks, AgreeWithTheDefinitionOnRandomNetworks) {
  std::mt19937 random(1);
  const auto number = [&] { return static_cast<std::uint32_t>(random()); };
  HomeNetworks home;  // one object throughout: nothing of the networks before may stay
  for (int round = 0; round < 400; ++round) {
    Networks networks;
    std::vector<std::uint32_t> asked = {0, 0xFFFFFFFF};
    for (std::uint32_t i = number() % 12; i > 0; --i) {
      const std::uint32_t prefix_length = number() % 33;
      std::uint32_t mask = prefix_length == 0 ? 0 : ~std::uint32_t{0} << (32 - prefix_length);
      if (number() % 4 == 0) mask = number() | number();  // hardly ever a prefix
      if (prefix_length < 4 && number() % 8 != 0) mask |= 0xFFF00000;
      // Many near each other, so that they nest, touch and repeat; host bits stay set.
      const std::uint32_t address = number() % 2 == 0 ? number() : 0x0A000000 | number() % 0x200;
      networks.addresses.push_back(address);
      networks.masks.push_back(mask);
      for (const std::uint32_t edge : {address & mask, address | ~mask}) {
        asked.insert(asked.end(), {edge - 1, edge, edge + 1});
      }
      for (int j = 0; j < 40; ++j) {
        asked.push_back(address ^ 1U << number() % 32);
        asked.push_back((address & mask) | (number() & ~mask));
      }
    }
    home.Set(networks.addresses, networks.masks);
    for (std::uint32_t near = 0x0A000000 - 4; near < 0x0A000204; ++near) asked.push_back(near);
    for (const std::uint32_t address : asked) {
      ASSERT_EQ(home.Contains(address), networks.Contain(address)) << std::hex << address;
    }
  }
}

TEST(HomeNetworks, AreThoseOfTheLastFetch) {
  constexpr std::uint32_t kFirst = 0x0A010203;
  constexpr std::uint32_t kSecond = 0xC0A8014D;
  RecordingHost host;
  HomeNetworks home;
  EXPECT_FALSE(home.Contains(kFirst));
  home.Fetch(host.Home("10.0.0.0/8").Site());
  EXPECT_TRUE(home.Contains(kFirst));
  EXPECT_FALSE(home.Contains(kSecond));
  home.Fetch(host.NoHome().Home("192.168.0.0/16").Site());
  EXPECT_FALSE(home.Contains(kFirst));
  EXPECT_TRUE(home.Contains(kSecond));
  home.Fetch(host.NoHome().Site());
  EXPECT_FALSE(home.Contains(kSecond));
  home.Fetch(host.Home("0.0.0.0/0").Site());
  EXPECT_TRUE(home.Contains(kFirst));
  home.Fetch(host.Fail("GetHomeNetworks").Site());
  EXPECT_FALSE(home.Contains(kFirst));
}

// A site that answers the question for the home networks in odd ways.
class OddSite final : public HostObject<IOmbrelContainer> {
 public:
  explicit OddSite(HostTrace* trace) : HostObject(trace, "the odd site") {}

  int count = 1;
  bool gives_addresses = true;
  bool gives_masks = true;
  Status status = kStatusOk;

  Status GetHomeNetworks(int* out, std::uint32_t** addresses, std::uint32_t** masks) override {
    *out = count;
    if (gives_addresses) *addresses = new std::uint32_t[1]{0x0A000000};
    if (gives_masks) *masks = new std::uint32_t[1]{0xFF000000};
    return status;
  }
  Status Log(int, const char*) override { return kStatusOk; }
  Status GetDataDirectory(char**) override { return kStatusOk; }
  Status PreparePluginConfigFile(const IID&, const char*, char**) override { return kStatusOk; }
  Status IsHomeAddress(std::uint32_t, bool*) override { return kStatusOk; }
  Status GetInstanceNumber(long*) override { return kStatusOk; }
  Status GetWorkDirectory(char**) override { return kStatusOk; }
};

// Whatever the site answers, the arrays are the meter's to free; the sanitizer looks for leaks.
TEST(HomeNetworks, OfAnOddSite) {
  RecordingHost host;
  const auto contains = [&](auto change) {
    OddSite site(host.Trace());
    change(site);
    HomeNetworks home;
    home.Fetch(&site);
    return home.Contains(0x0A010203);
  };
  EXPECT_TRUE(contains([](OddSite&) {}));
  EXPECT_TRUE(contains([](OddSite& site) { site.status = kStatusFailed; }));
  EXPECT_FALSE(contains([](OddSite& site) { site.count = 0; }));
  EXPECT_FALSE(contains([](OddSite& site) { site.count = -1; }));
  EXPECT_FALSE(contains([](OddSite& site) { site.gives_addresses = false; }));
  EXPECT_FALSE(contains([](OddSite& site) { site.gives_masks = false; }));
}

}  // namespace
}  // namespace flow::test
