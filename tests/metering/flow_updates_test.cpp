// SPDX-License-Identifier: Apache-2.0
// Key, volume, tag, times and close of the flow that a record belongs to.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/metering/metered_record.h"

namespace flow::test {
namespace {

using testing::ElementsAreArray;

struct Case {
  const char* name;
  Given given;
  std::vector<std::string> calls;  // KEY stands for the flow's key
};

class FlowUpdates : public testing::TestWithParam<Case> {};

TEST_P(FlowUpdates, Are) {
  MeteredRecord record(GetParam().given);
  record.policy.fTerminateFlowDisabled = record.policy.fMergeHTTP;  // as a load does
  std::vector<std::string> calls = record.Meter();
  std::erase_if(calls, [](const std::string& line) {
    return line.find("COUNTERID_FLOWS") == std::string::npos && !line.starts_with("UpdateFlow");
  });
  const std::string key = "C:0A.01.02.03:p-C738_C0.A8.01.4D:p-0050_C0.00.02.01_00000003_00000007";
  for (std::string& line : calls) {
    const std::size_t at = line.find(key);
    if (at != std::string::npos) line.replace(at - 2, key.size() + 2, "KEY");
  }
  EXPECT_THAT(calls, ElementsAreArray(GetParam().calls));
}

// The volume of a forward record, followed by more calls.
std::vector<std::string> Forward(const std::vector<std::string>& more, std::string key = "KEY") {
  std::vector<std::string> calls = {"UpdateFlowCounter COUNTERID_FLOWS " + key + " 0 1000",
                                    "UpdateFlowCounter COUNTERID_FLOWS " + key + " 2 10",
                                    "UpdateFlowVolume " + key + " 1000 0 10 0"};
  calls.insert(calls.end(), more.begin(), more.end());
  return calls;
}
std::vector<std::string> Reverse(const std::string& key) {
  return {"UpdateFlowCounter COUNTERID_FLOWS " + key + " 1 1000",
          "UpdateFlowCounter COUNTERID_FLOWS " + key + " 3 10",
          "UpdateFlowVolume " + key + " 0 1000 0 10"};
}
constexpr char kDuration[] = "SetFlowDuration COUNTERID_FLOWS KEY 4000";

Case Tag(const char* name, const char* home, const std::string& tag) {
  return {name,
          {.on = "TagFlowsWithDirection", .home = home},
          Forward({"TagFlow COUNTERID_FLOWS KEY [dir]" + tag, kDuration})};
}
Case Close(const char* name, std::uint8_t flags, std::uint8_t protocol, bool closes) {
  std::vector<std::string> more = {kDuration};
  if (closes) more.emplace_back("CloseFlow COUNTERID_FLOWS KEY");
  return {name, {.protocol = protocol, .tcp_flags = flags}, Forward(more)};
}

INSTANTIATE_TEST_SUITE_P(
    Records, FlowUpdates,
    testing::ValuesIn<Case>({
        {"Forward", {.on = "MatchBiDirectionalFlows"}, Forward({kDuration})},
        {"Reverse",
         {.on = "MatchBiDirectionalFlows",
          .hosts = {"192.168.1.77", "10.1.2.3"},
          .ports = {80, 51000},
          .first = 0,
          .interfaces = {7, 3}},
         Reverse("KEY")},
        {"UnidirectionalIsForward",
         {.on = "MergeMultipleSources", .ports = {80, 51000}, .first = 0},
         Forward({}, "06C:0A.01.02.03:p-0050_C0.A8.01.4D:p-C738_00.00.00.00_00000000_00000000")},
        {"MergedServicesAreNeverClosed",
         {.on = "MatchBiDirectionalFlows MergeHTTP MergeMultipleSources",
          .ports = {80, 51000},
          .tcp_flags = 0x06,
          .first = 0},
         Reverse("06C:C0.A8.01.4D:p-FFFF_0A.01.02.03:p-0050_00.00.00.00_00000000_00000000")},
        {"Ipv6Reverse",
         {.on = "MatchBiDirectionalFlows MergeMultipleSources",
          .ports = {80, 51000},
          .first = 0,
          .hosts6 = {"2001:db8::1", "2001:db8::2"}},
         Reverse("06D:20010DB8000000000000000000000002:p-C738_"
                 "20010DB8000000000000000000000001:p-0050_00.00.00.00_00000000_00000000")},
        {"AnotherIpVersionIsForwardWithoutAKey",
         {.on = "MatchBiDirectionalFlows", .ports = {80, 51000}, .tcp_flags = 2, .ip_version = 5},
         Forward({R"(SetFlowDuration COUNTERID_FLOWS "" 4000)", R"(CloseFlow COUNTERID_FLOWS "")"},
                 R"("")")},
        {"ZeroFlowsCountRecordsWhateverTheirDirection",
         {.on = "MatchBiDirectionalFlows MeterZeroFlows",
          .hosts = {"192.168.1.77", "10.1.2.3"},
          .ports = {80, 51000},
          .interfaces = {7, 3}},
         {"UpdateFlowCounter COUNTERID_FLOWS KEY 0 1", kDuration}},
        {"ZeroFlowsWithTheLongerText",
         {.on = "MeterZeroFlows TagFlowsWithUserID", .text64 = "longer text", .text32 = "shorter"},
         {"UpdateFlowCounterWithText COUNTERID_FLOWS KEY 0 1 longer text", kDuration}},
        {"TextsNeedZeroFlows",
         {.on = "TagFlowsWithUserID", .text64 = "text"},
         Forward({kDuration})},
        Tag("OutOfHome", "10.0.0.0/8", "internet"),
        Tag("IntoHome", "192.168.0.0/16", "internet"),
        Tag("WithinHome", "0.0.0.0/0", "internal"),
        Tag("Transit", nullptr, "transit"),
        {"RouterTimes",
         {.on = "UseRouterTimestamps", .first = 80'001, .last = 100'500},
         Forward({"SetFlowTimes COUNTERID_FLOWS KEY 1699999980 1 1700000000 500"})},
        {"RouterTimesEvenWhenBothAreZero",
         {.on = "UseRouterTimestamps", .first = 0, .last = 0},
         Forward({"SetFlowTimes COUNTERID_FLOWS KEY 1699999900 0 1699999900 0"})},
        {"NoDurationWithoutAStart", {.first = 0}, Forward({})},
        {"DurationOverTheWrapOfTheUptime",
         {.first = 0xFFFFFFFF, .last = 1},
         Forward({"SetFlowDuration COUNTERID_FLOWS KEY 2"})},
        Close("SynCloses", 0x02, 6, true),
        Close("RstCloses", 0x14, 17, true),
        Close("NothingElseCloses", 0xF9, 6, false),
    }),
    [](const auto& row) { return std::string(row.param.name); });

struct Clock {
  std::uint32_t seconds;
  std::uint32_t milliseconds;
  std::uint32_t uptime;
  std::uint32_t asked;
  TimePair expected;
};

TEST(SysUpTimeToTimeVal, CountsFromTheExportersOwn) {
  const Clock rows[] = {
      {1000, 0, 5000, 5000, {1000, 0}},
      {1000, 0, 5000, 4999, {999, 999}},
      {1000, 0, 5000, 5001, {1000, 1}},
      {1000, 999, 5000, 5001, {1001, 0}},
      {1000, 4294, 5000, 5000, {1004, 294}},            // more than a second of them
      {1000, 0, 5, 4'294'967'291, {999, 990}},          // before the uptime wrapped around
      {1000, 0, 4'294'967'291, 5, {1000, 10}},          // after it
      {3'000'000, 0, 0, 0x7FFFFFFF, {5'147'483, 647}},  // as far ahead as it goes
      {3'000'000, 0, 0, 0x80000000, {852'516, 352}},    // and back
      {4'294'967'295, 0, 0, 0, {4'294'967'295, 0}},
      {0, 0, 1, 0, {-1, 999}},  // before 1970
      {1, 0, 3000, 0, {-2, 0}},
      {0, 500, 1501, 0, {-2, 999}},
      {0, 999, 0, 0x7FFFFFFF, {2'147'484, 646}},
  };
  for (const Clock& row : rows) {
    const ExportClock clock(row.uptime, row.seconds, row.milliseconds);
    const TimePair time = clock.SysUpTimeToTimeVal(row.asked);
    EXPECT_EQ(time.seconds, row.expected.seconds) << row.uptime << " " << row.asked;
    EXPECT_EQ(time.milliseconds, row.expected.milliseconds) << row.uptime << " " << row.asked;
  }
}

}  // namespace
}  // namespace flow::test
