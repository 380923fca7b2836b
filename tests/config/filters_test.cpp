// SPDX-License-Identifier: Apache-2.0
#include "config/filters.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/config/parsed_policy.h"
#include "tests/support/recording_host.h"

namespace flow::test {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

// A list, taken once as the include and once as the exclude list.
struct Case {
  const char* name;
  const char* list;
  bool active;
  std::vector<std::string> log;  // KEY stands for the list's key
};

template <class Filter>
void CheckLoad(const Case& row, const std::string& keys) {
  for (const std::string& key : {keys + "Include", keys + "Exclude"}) {
    RecordingHost host;
    Filter filter;
    EXPECT_TRUE(filter.Load(ParsedPolicy(Setting(keys + "Exclude", "9.9.9.9_1")), host.Site()));
    host.Forget();  // of that nothing may stay
    EXPECT_TRUE(filter.Load(ParsedPolicy(Setting(key, row.list)), host.Site()));
    EXPECT_EQ(filter.Active(), row.active);
    std::vector<std::string> expected = row.log;
    for (std::string& line : expected) line.replace(line.find("KEY"), 3, key);
    EXPECT_THAT(host.Take(), ElementsAreArray(expected));
  }
}

class InterfaceList : public testing::TestWithParam<Case> {};
TEST_P(InterfaceList, Loads) { CheckLoad<InterfaceFilter>(GetParam(), "FilterInterfaces"); }

constexpr char kActive[] = "Log 5 KEY option active. Only a subset of traffic monitored";
std::string ByKey(const std::string& item) { return "Log 8 Added KEY by key " + item; }
std::string Readable(const std::string& item, const std::string& key) {
  return "Log 8 Added KEY by readable ip_ifindex=" + item + " k=" + key;
}
std::string Invalid(const std::string& item) {
  return "Log 4 KEY : Invalid interface supplied " + item;
}
const auto kName = [](const auto& row) { return std::string(row.param.name); };

INSTANTIATE_TEST_SUITE_P(
    Items, InterfaceList,
    testing::ValuesIn<Case>({
        {"EmptyElement", "", false, {}},
        {"OnlyCommas", ",,", false, {kActive}},
        {"BothForms",
         "10.1.2.3_7,0A.01.02.03_0000000B",
         true,
         {Readable("10.1.2.3_7", "0A.01.02.03_00000007"), ByKey("0A.01.02.03_0000000B"), kActive}},
        {"AnyTwentyCharactersAreAKey",
         "192.168.100.100_1234,0a.01.02.03_0000000b",
         true,
         {ByKey("192.168.100.100_1234"), ByKey("0a.01.02.03_0000000b"), kActive}},
        {"BlanksBeforeAndTextBehind",
         "10.1.2.3_7x, 10.1.2.3_8",
         true,
         {Readable("10.1.2.3_7x", "0A.01.02.03_00000007"),
          Readable(" 10.1.2.3_8", "0A.01.02.03_00000008"), kActive}},
        {"NumbersOutOfRange",
         "300.-1.2.3_7,10.1.2.3_-1",
         true,
         {Readable("300.-1.2.3_7", "12C.FFFFFFFF.02.03_00000007"),
          Readable("10.1.2.3_-1", "0A.01.02.03_FFFFFFFF"), kActive}},
        {"OnlyInvalidItems",
         ",10.1.2_7,,10.1.2.3,0A.01.02.03_000000071,",
         false,
         {Invalid("10.1.2_7"), Invalid("10.1.2.3"), Invalid("0A.01.02.03_000000071"), kActive}},
    }),
    kName);

class HostList : public testing::TestWithParam<Case> {};
TEST_P(HostList, Loads) { CheckLoad<HostFilter>(GetParam(), "FilterHosts"); }

std::string InvalidHost(const std::string& item) {
  return "Log 4 KEY : Invalid host supplied " + item;
}

INSTANTIATE_TEST_SUITE_P(Items, HostList,
                         testing::ValuesIn<Case>({
                             {"EmptyElement", "", false, {}},
                             {"Addresses", "10.0.0.1,0.0.0.0", true, {}},
                             {"OddItemsAreSkipped",
                              "10.1.2, 10.0.0.2,::1,10.0.0.1,010.0.0.3",
                              true,
                              {InvalidHost("10.1.2"), InvalidHost(" 10.0.0.2"), InvalidHost("::1"),
                               InvalidHost("010.0.0.3")}},
                             {"OnlyOddItems", "router1", false, {InvalidHost("router1")}},
                         }),
                         kName);

// Random lists beside what they mean: a set of texts with which the texts of a flow's two
// interfaces are compared.
TEST(InterfaceFilter, AgreesWithASetOfTexts) {
  std::mt19937 random(3);
  const auto below = [&](unsigned limit) { return static_cast<unsigned>(random()) % limit; };
  const auto key = [](unsigned host, unsigned ifindex) {
    char text[32];
    std::snprintf(text, sizeof(text), "0A.00.%02X.%02X_%08X", host >> 4, host & 15, ifindex);
    return std::string(text);
  };
  const auto any_ifindex = [&] { return below(8) == 0 ? ~0U - below(4) : below(40); };
  for (int round = 0; round < 300; ++round) {
    std::set<std::string> texts;
    std::string list;
    for (unsigned i = below(30); i > 0; --i) {
      const unsigned address = below(64);
      const unsigned ifindex = any_ifindex();
      std::string text = key(address, ifindex);
      const std::string readable = "10.0." + std::to_string(address >> 4) + "." +
                                   std::to_string(address & 15) + "_" + std::to_string(ifindex);
      if (below(4) == 0) {
        list += "," + readable;
        if (readable.size() == text.size()) text = readable;  // taken for a key
      } else {
        if (below(4) == 0) text[below(20)] = "0A9F._Ga"[below(8)];
        list += "," + text;
      }
      texts.insert(text);
    }
    const bool include = below(2) == 0;
    InterfaceFilter filter;
    ASSERT_TRUE(
        filter.Load(ParsedPolicy(Setting(
                        include ? "FilterInterfacesInclude" : "FilterInterfacesExclude", list)),
                    nullptr));
    ASSERT_EQ(filter.Active(), !texts.empty()) << list;
    for (int flow = texts.empty() ? 200 : 0; flow < 200; ++flow) {
      const unsigned address = below(64);
      const unsigned in = any_ifindex();
      const unsigned out = any_ifindex();
      const bool in_listed = texts.contains(key(address, in));
      const bool out_listed = texts.contains(key(address, out));
      const std::uint32_t exporter = 0x0A000000 | address >> 4 << 8 | (address & 15);
      ASSERT_EQ(filter.Passes(exporter, in, out),
                include ? in_listed || out_listed : !(in_listed && out_listed))
          << key(address, in) << " -> " << key(address, out) << " with " << list;
    }
  }
}

TEST(InterfaceFilter, UncheckedTakesItemsAsTheyAreAndIsSilent) {
  RecordingHost host;
  InterfaceFilter filter;
  const auto load = [&](const std::string& include, const std::string& exclude) {
    return filter.LoadUnchecked(ParsedPolicy(Setting("FilterInterfacesInclude", include) +
                                             Setting("FilterInterfacesExclude", exclude)),
                                host.Site());
  };
  EXPECT_TRUE(load("10.1.2.3_7,eth0", ""));
  EXPECT_TRUE(filter.Active());
  EXPECT_FALSE(filter.Passes(0x0A010203, 7, 7)) << "readable items are no keys here";
  EXPECT_TRUE(load("", "0A.01.02.03_00000007"));
  EXPECT_FALSE(filter.Passes(0x0A010203, 7, 7));
  EXPECT_TRUE(filter.Passes(0x0A010203, 7, 8));
  EXPECT_THAT(host.Take(), IsEmpty());
  EXPECT_FALSE(load("a", "b"));
  EXPECT_FALSE(filter.Active());
  EXPECT_EQ(host.TakeText(),
            "Log 4 Cant have both include and exclude interface filter in netflow config\n");
}

TEST(HostFilter, IncludesEitherAndExcludesBoth) {
  HostFilter filter;
  const auto passes = [&](const char* key) {
    filter.Load(ParsedPolicy(Setting(key, "0.0.0.0,192.168.1.77")), nullptr);
    const std::uint32_t listed[] = {0, 0xC0A8014D};
    const std::uint32_t other = 0x4D01A8C0;  // the second one in the other byte order
    return std::vector<bool>{filter.Passes(listed[0], listed[1]), filter.Passes(listed[1], other),
                             filter.Passes(other, listed[0]), filter.Passes(other, 1)};
  };
  EXPECT_EQ(passes("FilterHostsInclude"), (std::vector<bool>{true, true, true, false}));
  EXPECT_EQ(passes("FilterHostsExclude"), (std::vector<bool>{false, true, true, true}));
}

}  // namespace
}  // namespace flow::test
