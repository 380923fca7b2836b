// SPDX-License-Identifier: Apache-2.0
#include "config/netflow_policy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/config/parsed_policy.h"
#include "tests/config/policy_switches.h"
#include "tests/support/recording_host.h"

namespace flow::test {
namespace {

using testing::ElementsAreArray;

class Policy : public testing::Test {
 protected:
  // LoadSwitches gives the lines of the log.
  std::string LoadSwitches(const std::string& settings) {
    policy_.LoadCounterSwitches(ParsedPolicy(settings));
    policy_.LoadFlowSettings(ParsedPolicy(settings), host_.Site());
    return host_.TakeText();
  }

  RecordingHost host_;
  NetflowPolicy policy_;
};

TEST_F(Policy, ASettingMovesItsSwitchAlone) {
  for (const PolicySwitch& row : kPolicySwitches) {
    EXPECT_FALSE(policy_.*row.member) << "before the first load: " << row.key;
  }
  for (const PolicySwitch& set : kPolicySwitches) {
    SCOPED_TRACE(std::string("set: ") + set.key);
    LoadSwitches(Setting(set.key, set.default_value ? "yes" : "TRUE"));
    for (const PolicySwitch& other : kPolicySwitches) {
      EXPECT_EQ(policy_.*other.member, other.default_value != (&other == &set)) << other.key;
    }
  }
}

TEST_F(Policy, ALoadOverwritesAll) {
  std::string all = Setting("TemplateDumpIntervalSeconds", "7") +
                    Setting("AddL2AccountingBytes", "-14") + Setting("HomeASNumbersFile", "feed");
  for (const PolicySwitch& row : kPolicySwitches) {
    all += Setting(row.key, row.default_value ? "false" : "true");
  }
  EXPECT_EQ(LoadSwitches(all), "") << "only added bytes and merges are worth a message";
  EXPECT_EQ(policy_.TemplateDumpIntervalSeconds, 7);
  EXPECT_EQ(policy_.AddL2AccountingBytes, -14);
  EXPECT_EQ(policy_.HomeASNumbersFile, "feed");
  LoadSwitches("");
  for (const PolicySwitch& row : kPolicySwitches) {
    EXPECT_EQ(policy_.*row.member, row.default_value) << row.key;
  }
  EXPECT_EQ(policy_.TemplateDumpIntervalSeconds, 0);
  EXPECT_EQ(policy_.AddL2AccountingBytes, 0);
  EXPECT_EQ(policy_.HomeASNumbersFile, "");
}

TEST_F(Policy, FlowsAreNeverClosedOnceAMergeHasBeenOn) {
  const std::string all_off =
      Setting("MergeHTTP", "false") + Setting("MergeHTTPS", "false") + Setting("MergeDNS", "false");
  for (const char* const merge : {"MergeHTTP", "MergeHTTPS", "MergeDNS"}) {
    SCOPED_TRACE(merge);
    policy_ = NetflowPolicy();
    EXPECT_EQ(LoadSwitches(all_off), "");
    EXPECT_FALSE(policy_.fTerminateFlowDisabled);
    // Of two equal settings the first counts.
    EXPECT_EQ(LoadSwitches(Setting(merge, "true") + all_off),
              "Log 7 TerminateFlow disabled due to user configuration fMergeHTTP/HTTPS/DNS\n");
    EXPECT_EQ(LoadSwitches(all_off), "");
    EXPECT_TRUE(policy_.fTerminateFlowDisabled);
  }
}

// A list that becomes a set of numbers, which held the single number 64512 before.
struct ListCase {
  const char* name;
  const char* key;
  const char* list;
  std::vector<std::uint32_t> numbers;
  std::vector<std::string> log;
};

class PolicyList : public Policy, public testing::WithParamInterface<ListCase> {};

TEST_P(PolicyList, BecomesASet) {
  policy_.HomeASSet.Insert(64512);
  policy_.IgnoreEgressRouterSet.Insert(64512);
  policy_.fHomeASNumbers = true;
  const ListCase& row = GetParam();
  const bool is_home = std::string(row.key) == "HomeASNumbers";
  const XMLNode settings = ParsedPolicy(Setting(row.key, row.list));
  if (is_home) {
    policy_.LoadHomeAsNumbers(settings, host_.Site());
    EXPECT_EQ(policy_.fHomeASNumbers, !row.numbers.empty());
  } else {
    policy_.LoadIgnoredEgressRouters(settings, host_.Site());
  }
  const auto& set = is_home ? policy_.HomeASSet : policy_.IgnoreEgressRouterSet;
  EXPECT_EQ(set.Size(), row.numbers.size());
  for (const std::uint32_t number : row.numbers) EXPECT_TRUE(set.Contains(number)) << number;
  EXPECT_FALSE(set.Contains(64512));
  EXPECT_THAT(host_.Take(), ElementsAreArray(row.log));
}

constexpr char kHome[] = "HomeASNumbers";
constexpr char kEgress[] = "IgnoreV9EgressFromDevices";
std::string Added(const char* number) {
  return std::string("Log 7 NETFLOW: HOME AS ADDED ") + number;
}
std::string Total(const char* count) {
  return std::string("Log 7 NETFLOW: HOME AS total number added = ") + count;
}

INSTANTIATE_TEST_SUITE_P(Lists, PolicyList,
                         testing::ValuesIn<ListCase>({
                             {"NoHome", kHome, "", {}, {Total("0")}},
                             {"PrefixesChooseTheBase",
                              kHome,
                              "100,0x10,010,abc",
                              {100, 16, 8, 0},
                              {Added("100"), Added("16"), Added("8"), Added("0"), Total("4")}},
                             {"RepeatedNumbersCountOnce",
                              kHome,
                              ",100,, 100 ,100x",
                              {100},
                              {Added("100"), Added("100"), Added("100"), Total("1")}},
                             {"LoggedBeforeTheyAreCut",
                              kHome,
                              "4294967396,-1",
                              {100, 4294967295},
                              {Added("4294967396"), Added("18446744073709551615"), Total("2")}},
                             {"NoEgress", kEgress, "", {}, {}},
                             {"TheWholeTextIsLogged",
                              kEgress,
                              "10.1.2.3,router,10.1.2.4,10.1.2.3",
                              {0x0A010203, 0x0A010204},
                              {"Log 4 IgnoreV9EgressFromDevices : Invalid host supplied router",
                               "Log 7 [v9 EGRESS EXCLUDE] will ignore Egress counters from router "
                               "10.1.2.3,router,10.1.2.4,10.1.2.3, router count = 2"}},
                             {"OnlyOddItemsAreNoList",
                              kEgress,
                              "router",
                              {},
                              {"Log 4 IgnoreV9EgressFromDevices : Invalid host supplied router"}},
                         }),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(Policy, ConflictingHostsEndALoad) {
  EXPECT_FALSE(policy_.LoadFilters(ParsedPolicy(Setting("FilterHostsInclude", "10.0.0.1") +
                                                Setting("FilterHostsExclude", "10.0.0.2")),
                                   host_.Site()));
  EXPECT_EQ(host_.TakeText(),
            "Log 4 Cant have both include and exclude hosts  filter in netflow config\n");
}

}  // namespace
}  // namespace flow::test
