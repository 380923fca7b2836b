// SPDX-License-Identifier: Apache-2.0
// What becomes of a flow on its way into a store and into reports.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "flowhandlers/counter_groups.h"
#include "flowhandlers/session_keys.h"
#include "host/base/memory_budget.h"
#include "host/engine/shown_flow.h"
#include "host/engine/stats_engine.h"
#include "host/names/group_catalog.h"
#include "host/store/flow_file.h"
#include "host/store/session.h"
#include "host/store/tier_counts.h"
#include "tests/host/captures.h"

namespace flow::host {
namespace {

TEST(ShownFlow, BringsTogetherWhatWasKeptApart) {
  constexpr char kExporter[] = "C0.00.02.01_00000003_00000007";
  const std::string merged = kMergedExporter;
  struct Case {
    const char* sides;
    const char* shown;
    bool turned;
  };
  const Case cases[] = {
      {"06C:0A.00.00.01:p-C001_0A.00.00.02:p-0016_", "06C:0A.00.00.01:p-C001_0A.00.00.02:p-0016_",
       false},
      {"06C:0A.00.00.01:p-C001_0A.00.00.02:p-01BB_", "06C:0A.00.00.01:p-FFFF_0A.00.00.02:p-01BB_",
       false},
      {"06C:0A.00.00.01:p-01BB_0A.00.00.02:p-0019_", "06C:0A.00.00.02:p-FFFF_0A.00.00.01:p-01BB_",
       true},
      // In the order of addresses, as sFlow has them.
      {"11C:0A.00.00.01:p-0035_0A.00.00.02:p-C001_", "11C:0A.00.00.01:p-0035_0A.00.00.02:p-FFFF_",
       false},
      {"06D:20010DB8000000000000000000000001:p-C001_20010DB8000000000000000000000002:p-0050_",
       "06D:20010DB8000000000000000000000001:p-FFFF_20010DB8000000000000000000000002:p-0050_",
       false},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.sides);
    FlowTotals flow{};
    flow.meters[0] = 10;
    ShownFlow shown;
    EXPECT_EQ(shown.Of(std::string(each.sides) + kExporter, &flow), each.shown + merged);
    EXPECT_EQ(flow.meters[1], each.turned ? 10 : 0);
  }
  FlowTotals flow{};
  ShownFlow shown;
  EXPECT_EQ(shown.Of("", &flow), "");
  const Case& longest = cases[std::size(cases) - 1];
  EXPECT_EQ(
      shown.Of(std::string(longest.sides) + "20010DB80010000000000000000000FE_00000002_00000003",
               &flow),
      longest.shown + merged);
}

TEST(Session, IsReadFromItsKey) {
  Session session{};
  ASSERT_TRUE(ReadSession("06C:0A.00.00.05:p-C001_C0.A8.01.FE:p-01BB_C0.00.02.01_00000003_0000000A",
                          &session));
  EXPECT_EQ(session.protocol, 6);
  EXPECT_EQ(session.a.port, 0xC001);
  EXPECT_EQ(session.b.address[3], 0xFE);
  EXPECT_EQ(session.b.interface, 10);
  EXPECT_EQ(session.exporter, "C0.00.02.01");
  for (const char* const wrong :
       {"", "06C:", "06C:0A.00.00.05:p-C001_C0.A8.01.FE:p-01BB_C0.00.02.01_00000003_0000000",
        "06C:0A.00.00.0G:p-C001_C0.A8.01.FE:p-01BB_C0.00.02.01_00000003_0000000A",
        "06D:0A.00.00.05:p-C001_C0.A8.01.FE:p-01BB_C0.00.02.01_00000003_0000000A"}) {
    EXPECT_FALSE(ReadSession(wrong, &session)) << wrong;
  }
}

// Neighbouring records of one flow, from either side, and one without a flow between them.
// Strangers make up texts: an hour's file has so many, also where it is gone on with.
TEST(FlowFile, KeepsSoManyTexts) {
  ShareMemory(kLeastMemory, 1);
  const auto most = static_cast<std::uint32_t>(Shares().file_texts);
  const test::TemporaryFolder folder;
  const std::string path = (folder / "flows.sqlite").string();
  const StandIns stand_ins;
  const auto write = [&](std::uint32_t first, std::uint32_t count) {
    FlowBatch batch;
    for (std::uint32_t i = 1; i <= count; ++i) {
      const std::string text = std::to_string(first + i);
      batch.texts.push_back(text);
      FlowTotals flow{};
      flow.app = i;
      batch.table.Merge(text, flow);
    }
    FlowFile file(path, Sync::kNever, 0, stand_ins);
    file.Write(first, batch);
    file.Commit(first, {});
    file.Close();
  };
  write(0, most + 7);
  write(2 * most, 5);
  Database database = Database::ToWrite(path, Sync::kNever);
  EXPECT_EQ(database.Ask("SELECT count(*) FROM texts"), most + 1);
  EXPECT_EQ(database.Ask("SELECT count(*) FROM flows JOIN texts ON app = id WHERE text LIKE '(%'"),
            12);
  ShareMemory(std::size_t{1} << 50, 1);  // for whoever comes next
}

TEST(RecordWords, GoToTheFlowOfTheirRecord) {
  GroupCatalog catalog({});
  catalog.HearRecords();
  StatsStore store(catalog.groups());
  struct NoChannels final : ChannelSink {
    void Post(const GUID&, const CLSID&, std::span<std::uint8_t>) override {}
  } channels;
  StatsEngine engine(store, channels);
  constexpr char kKey[] = "06C:0A.00.00.05:p-C001_C0.A8.01.FE:p-01BB_C0.00.02.01_00000003_0000000A";
  const auto record = [&](const char* source_as, const char* destination_as, bool reverse) {
    engine.MarkRecord();
    engine.UpdateCounter2(COUNTERID_ASN, 5, source_as, asn::kBytes, 1, asn::kSourceHome, 1);
    engine.UpdateCounter2(COUNTERID_ASN, 5, destination_as, asn::kBytes, 1,
                          asn::kDestinationNotHome, 1);
    engine.UpdateFlowCounter(COUNTERID_FLOWS, kKey, reverse ? 1 : 0, 100);
    engine.UpdateCounterKeyLen(COUNTERID_MAC, 17, "00:1B:21:3A:4F:5C", mac::kBytesAsSource, 1);
  };
  record("64500", "64501", false);
  engine.MarkRecord();
  engine.UpdateCounter(COUNTERID_IPNEXTHOP, "0A.00.00.01", 0, 1);
  record("64502", "64500", true);
  // The source is at home, where AS counters do not tell it.
  constexpr char kOther[] =
      "06C:0A.00.00.05:p-C002_C0.A8.01.FE:p-01BB_C0.00.02.01_00000003_0000000A";
  engine.MarkRecord();
  engine.UpdateCounter2(COUNTERID_ASN, 5, "64501", asn::kBytes, 1, asn::kDestinationNotHome, 1);
  engine.UpdateCounter(COUNTERID_LINKAS, "-1\\C0.00.02.01_00000003", link_as::kSourceOnInput, 1);
  engine.UpdateFlowCounter(COUNTERID_FLOWS, kOther, 0, 100);
  engine.Flush();
  const FlowTotals flow = store.flows().Find(kKey).value();
  EXPECT_EQ(flow.as_numbers[0], 64500);
  EXPECT_EQ(flow.as_numbers[1], 64502);
  EXPECT_EQ(flow.next_hops[0], 0);
  EXPECT_EQ(flow.records, 2);
  const FlowTotals other = store.flows().Find(kOther).value();
  EXPECT_EQ(other.as_numbers[0], 4294967295);
  EXPECT_EQ(other.as_numbers[1], 64501);
  EXPECT_EQ(flow.macs[0][1], 0x1B);
  EXPECT_EQ(flow.macs[1][5], 0x5C);
}

// Whatever is let go: what a key has and its bound enclose the truth, and sums are exact.
TEST(GroupSums, KeepTheirWordWhenKeysAreLetGo) {
  GroupInfo group = *GroupCatalog({}).Find("protocols");
  group.track_high = 40;
  group.track_low = 20;
  GroupSums sums(group);
  std::map<std::string, std::uint64_t> truth;
  std::uint64_t all = 0;
  std::uint64_t random = 1;
  for (int minute = 0; minute < 30; ++minute) {
    GroupSums part(group);
    for (int i = 0; i < 200; ++i) {
      random = random * 6364136223846793005U + 1442695040888963407U;
      const std::uint64_t values[] = {1 + (random >> 40) % 100, 0};
      const std::string key = std::to_string((random >> 33) % 10 * ((random >> 50) % 12));
      part.Add(key, values);
      truth[key] += values[0];
      all += values[0];
    }
    part.Prune();
    sums.Add(part);
    sums.Prune();
  }
  const GroupSums::Ranking ranking = sums.Rank(10);
  EXPECT_GT(ranking.other_keys, 0);
  std::uint64_t kept = ranking.others[0];
  for (const GroupSums::Row& row : ranking.rows) {
    kept += row.values[0];
    const std::uint64_t true_value = truth[std::string(row.key)];
    EXPECT_LE(row.values[0], true_value) << row.key;
    EXPECT_GE(row.values[0] + row.bound, true_value) << row.key;
  }
  EXPECT_EQ(kept, all);
}

}  // namespace
}  // namespace flow::host
