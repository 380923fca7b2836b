// Files that are huge, half there, or no files at all.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>

#include "netflow/netflow_meter.h"
#include "sflow/sflow_meter.h"
#include "tests/config/parsed_policy.h"
#include "tests/support/datagram_builders.h"
#include "tests/support/policy_file.h"
#include "tests/support/recording_host.h"

namespace flow::test {
namespace {

using testing::Contains;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::SizeIs;

TEST(HugeFile, FeedOfAMillionLines) {
  RecordingHost host;
  std::string feed;
  for (int number = 1; number <= 1'000'000; ++number) feed += std::to_string(number) + "\n";
  WriteFile(host.Directory() + "/incoming_1_feed", feed + "none\n");
  host.Policy(Setting("HomeASNumbersFile", "feed") + Setting("HomeASNumbers", "1"));
  const auto meter = host.Attach<CPINetflowMeter>();
  const std::string counted = "Log 7 FLOW: loading Home and Downstream AS numbers count=1000000";
  EXPECT_THAT(host.Take(),
              testing::IsSupersetOf({counted, std::string("Log 5 FLOW: downstream_origin_as : "
                                                          "skipping invalid as number [none] ")}));
  host.Count(meter, V5Packet().Record({.src_as = 1'000, .dst_as = 65'535}).Build());
  EXPECT_THAT(host.Take("DIR_WITHINHOME"), SizeIs(1));
}

// Items 10.0.0.0 to 10.1.134.159, each as a host, an exporter and an interface.
TEST(HugeFile, FiltersOfAHundredThousandItems) {
  constexpr std::uint32_t kItems = 100'000;
  std::string hosts;
  std::string interfaces;
  for (std::uint32_t i = 0; i < kItems; ++i) {
    const std::string host = "10." + std::to_string(i >> 16) + "." + std::to_string(i >> 8 & 255) +
                             "." + std::to_string(i & 255);
    hosts += host + ",";
    interfaces += host + "_" + std::to_string(i) + ",";
  }
  RecordingHost host;
  host.Policy(Setting("FilterHostsExclude", hosts) +
              Setting("FilterInterfacesInclude", interfaces) +
              Setting("IgnoreV9EgressFromDevices", hosts));
  const auto meter = host.Attach<CPINetflowMeter>();
  EXPECT_THAT(host.Take("Added FilterInterfacesInclude by readable"), SizeIs(kItems));
  const struct {
    const char* what;
    FixedRecord record;
    bool passes;
  } rows[] = {
      {"last interface, a strange host",
       {.src = "10.1.134.159", .dst = "10.1.134.160", .input = 34463},
       true},
      {"last interface, last hosts",
       {.src = "10.1.134.159", .dst = "10.1.134.158", .input = 34463},
       false},
      {"an interface of another exporter", {.src = "11.0.0.0", .input = 34462}, false},
  };
  for (const auto& row : rows) {
    host.Count(meter, V5Packet().Record(row.record).Build(), {.address = "10.0.134.159"});
    EXPECT_THAT(host.Take("TOTALBW"), SizeIs(row.passes ? 1 : 0)) << row.what;
  }
}

// A policy that cannot be read ends the process, at the first load and at each later one; the
// first lines are what every reload says.
TEST(BrokenPolicyDeathTest, EndsTheProcess) {
  const std::string whole =
      PolicyXml(Setting("MeterHosts", "true") + Setting("ReloadConfigCheckSeconds", "60"));
  const struct {
    const char* what;
    std::function<void(const std::string& path)> spoil;
  } rows[] = {
      {"half written", [&](auto& path) { WriteFile(path, whole.substr(0, whole.size() / 2)); }},
      {"not yet written", [](auto& path) { WriteFile(path, ""); }},
      {"a byte short", [&](auto& path) { WriteFile(path, whole.substr(0, whole.rfind('>'))); }},
      {"a directory",
       [](auto& path) {
         std::filesystem::remove(path);
         std::filesystem::create_directory(path);
       }},
      {"points nowhere",
       [](auto& path) {
         std::filesystem::remove(path);
         std::filesystem::create_symlink(path + ".gone", path);
       }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    RecordingHost host;
    row.spoil(host.PolicyPath());
    EXPECT_EXIT(host.Attach(ComponentOf<CPINetflowMeter>()), ExitedWithCode(255), "");
    EXPECT_EXIT(host.Attach(ComponentOf<CPISFlowMeter>()), ExitedWithCode(255), "");
  }
}

TEST(BrokenPolicyDeathTest, EndsTheProcessAtAReload) {
  RecordingHost host;
  const std::string settings = Setting("ReloadConfigCheckSeconds", "60");
  host.Policy(settings);
  SetModificationTime(host.PolicyPath(), 1'000'000);
  const auto meter = host.Attach<CPINetflowMeter>();
  const Bytes datagram = V5Packet().Build();
  host.Now(1000).Count(meter, datagram);
  const std::string whole = PolicyXml(settings);
  WriteFile(host.PolicyPath(), whole.substr(0, whole.size() / 2));
  SetModificationTime(host.PolicyPath(), 2'000'000);
  EXPECT_EXIT(host.Now(1060).Count(meter, datagram), ExitedWithCode(255), "");
  // A file that is gone when it is looked for is not read.
  std::filesystem::remove(host.PolicyPath());
  host.Forget();
  host.Now(1120).Count(meter, datagram);
  EXPECT_THAT(host.Take("CONFIGREFRESH"), IsEmpty());
}

// A feed without numbers leaves those of the policy.
TEST(BrokenFeed, LeavesTheNumbers) {
  RecordingHost host;
  const std::string first = host.Directory() + "/incoming_1_feed";
  const std::string second = host.Directory() + "/incoming_2_feed";
  WriteFile(first, "64500\n");
  host.Policy(Setting("HomeASNumbersFile", "feed") + Setting("HomeASNumbers", "1"));
  const struct {
    const char* what;
    std::function<void()> make;
    const char* says;
  } rows[] = {
      {"a directory", [&] { std::filesystem::create_directory(second); }, "loading home as"},
      {"points nowhere", [&] { std::filesystem::create_symlink(first + ".gone", second); },
       "Log 4 FLOW: Error loading home AS Number feed file"},
      {"points at itself", [&] { std::filesystem::create_symlink(second, second); },
       "Log 4 FLOW: Error loading home AS Number feed file"},
      {"no line feed, no number", [&] { WriteFile(second, std::string(100'000, '-')); },
       "skipping invalid as number [---"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const auto meter = host.Attach<CPINetflowMeter>();
    row.make();
    host.Forget();
    EXPECT_TRUE(meter->ReadConfiguration(host.PolicyPath().c_str()));
    EXPECT_THAT(host.Take(), Contains(testing::HasSubstr(row.says)));
    host.Count(meter, V5Packet().Record({.src_as = 1, .dst_as = 1}).Build());
    EXPECT_THAT(host.Take("DIR_WITHINHOME"), SizeIs(1));
    std::filesystem::remove(second);
  }
}

}  // namespace
}  // namespace flow::test
