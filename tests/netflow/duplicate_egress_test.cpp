// SPDX-License-Identifier: Apache-2.0
// What finds the egress records of flows that have been reported already.

#include "netflow/duplicate_egress.h"

#include <gtest/gtest.h>

#include <utility>

#include "netflow/data_sets.h"
#include "tests/support/datagram_builders.h"
#include "tests/support/recording_host.h"

namespace flow::test {
namespace {

// The hash of keys, worked out with another program.
TEST(DuplicateEgress, KnownHashes) {
  const std::pair<const char*, std::uint32_t> cases[] = {
      {"06C:0A.00.00.01:p-C738_0A.00.00.02:p-0050_C0.00.02.01_00000003_00000007", 0x0C2343A8},
      {"06C:0A.00.00.01:p-C738_0A.00.00.02:p-0050_C0.00.02.01_00000003_00000008", 0x0C2343A8},
      {"11C:FF.FF.FF.FF:p-FFFF_00.00.00.00:p-0000_00.00.00.00_00000000_00000000", 0x16883C58},
  };
  for (const auto& [key, hash] : cases) EXPECT_EQ(DuplicateEgress::Hash(key), hash) << key;
}

// Of one data set, a minute after the last report at the earliest.
TEST(DuplicateEgress, ReportsAtMostOnceAMinute) {
  RecordingHost host;
  const auto report = [&](DuplicateEgress& duplicates, int dropped) {
    duplicates.StartSet();
    for (int i = 0; i < dropped; ++i) duplicates.CountDropped();
    duplicates.EndSet(host.Site());
    return host.TakeText();
  };
  const auto now = DuplicateEgress::Clock::now();
  DuplicateEgress recent(now - std::chrono::seconds(50));
  EXPECT_EQ(report(recent, 2), "");
  DuplicateEgress duplicates(now - std::chrono::seconds(61));
  EXPECT_EQ(report(duplicates, 0), "");
  EXPECT_EQ(report(duplicates, 3), "Log 8 Ignored duplicate v9 egress flow count= 3\n");
  EXPECT_EQ(report(duplicates, 3), "");
}

// At the end of the data set whose records they were.
TEST(DuplicateEgress, IsReportedByItsDataSet) {
  RecordingHost host;
  IOmbrelContainer* const site = host.Site();
  const HostLinks links = {.site = site, .engine = host.Engine()};
  NetflowPolicy policy;
  policy.fIgnoreAllEgress = true;
  const HomeNetworks home;
  RecordContext context;
  SamplingRates rates;
  RecordMetering metering(policy, home, context);
  const ExportSource source(UdpHeaders({}, 0));
  TemplateStore templates;
  const Bytes specifiers = Wire().U16(256).U16(1).U16(61).U16(1).Get();
  ByteCursor records(specifiers);
  templates.v9_ProcessTemplateFlowset_Single(source, TemplateRules::kV9, 0, &records);
  DataSets sets(policy, links, templates, &context, &rates, &metering,
                DuplicateEgress(DuplicateEgress::Clock::now() - std::chrono::seconds(61)));
  sets.v9_ProcessDataFlowset(source, {}, DataSet(256).Raw(Wire().U8(1).U8(1)).Build());
  EXPECT_EQ(host.TakeText(), "Log 8 Ignored duplicate v9 egress flow count= 2\n");
}

// Also when the rounds begin again.
TEST(MarkSet, ForgetsAtOnce) {
  MarkSet marks(0xFFFFFFFE);
  EXPECT_FALSE(marks.Contains(0));
  for (int round = 0; round < 4; ++round) {
    for (std::uint32_t i = 0; i < 1000; i += 2) marks.Insert(i * 0x9E3779B9);
    for (std::uint32_t i = 0; i < 1000; ++i) EXPECT_EQ(marks.Contains(i * 0x9E3779B9), i % 2 == 0);
    marks.Clear();
    for (std::uint32_t i = 0; i < 1000; ++i) EXPECT_FALSE(marks.Contains(i * 0x9E3779B9));
  }
}

}  // namespace
}  // namespace flow::test
