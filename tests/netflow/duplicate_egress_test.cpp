// Flows that an exporter reports twice, where they come in and where they go out.

#include "netflow/duplicate_egress.h"

#include "tests/netflow/meter_test.h"

namespace flow::test {
namespace {

using testing::SizeIs;

// A record from 10.0.0.HOST:51000 to 0.0.0.2:80 through two interfaces.
Wire Record(std::uint8_t direction, std::uint32_t host = 1, std::uint32_t in = 3,
            std::uint32_t out = 7) {
  return Numbers({0x0A000000 + host, 2, 51000, 80, in, out, 100}).U8(direction);
}
const Fields kFields = {{8, 4}, {12, 4}, {7, 4}, {11, 4}, {10, 4}, {14, 4}, {1, 4}, {61, 1}};

Set Records(const std::vector<Wire>& records) {
  Set data = DataSet(256);
  for (const Wire& record : records) data.Record(record);
  return data;
}

TEST(DuplicateEgressRecords, Dropped) {
  constexpr char kIgnoreAll[] = "<IgnoreAllEgress>true</IgnoreAllEgress>";
  constexpr char kMerged[] = "<MergeMultipleSources>true</MergeMultipleSources>";
  const Wire in = Record(0);
  const Wire out = Record(1);
  const Wire other_half = Numbers({2, 0x0A000001, 80, 51000, 7, 3, 100}).U8(1);
  // clang-format off
  const struct {
    const char* name;
    std::vector<Wire> records;
    std::size_t flows;
    const char* settings = "";
  } cases[] = {
      {"IngressThenEgress", {in, out}, 1},
      {"EgressThenIngress", {out, in}, 2},
      {"EachEgress", {in, out, out, out}, 1},
      {"OtherFlow", {in, Record(1, 2)}, 2},
      {"OtherHalf", {in, other_half}, 1},
      {"IngressTwice", {in, in}, 2},
      {"DirectionTwo", {in, Record(2), Record(2)}, 3},
      {"AllEgressIgnored", {out, in, Record(1, 2)}, 1, kIgnoreAll},
      // The key's 63 characters end behind the first interface.
      {"OtherInput", {in, Record(1, 1, 4)}, 2},
      {"OtherOutput", {in, Record(1, 1, 3, 8)}, 1},
      {"OtherInputMerged", {in, Record(1, 1, 4)}, 1, kMerged},
      {"ManyFlows", std::vector<Wire>(500, in), 500},
  };
  // clang-format on
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_THAT(MeterRecords(row.settings, kFields, Records(row.records)).flows, SizeIs(row.flows));
  }
}

class DuplicateEgressSets : public MeterTest {};

TEST_F(DuplicateEgressSets, AreApart) {
  Start();
  Send(V9(Learn(kFields)));
  Send(V9(Data(Record(0)), Data(Record(1))));
  EXPECT_THAT(Flows(), SizeIs(2));
}

// The hash of keys, worked out with another program.
TEST(DuplicateEgressHash, KnownKeys) {
  const std::pair<const char*, std::uint32_t> cases[] = {
      {"06C:0A.00.00.01:p-C738_0A.00.00.02:p-0050_C0.00.02.01_00000003_00000007", 0x0C2343A8},
      {"06C:0A.00.00.01:p-C738_0A.00.00.02:p-0050_C0.00.02.01_00000003_00000008", 0x0C2343A8},
      {"11C:FF.FF.FF.FF:p-FFFF_00.00.00.00:p-0000_00.00.00.00_00000000_00000000", 0x16883C58},
  };
  for (const auto& [key, hash] : cases) EXPECT_EQ(DuplicateEgress::Hash(key), hash) << key;
}

// Of one data set, a minute after the last report at the earliest.
TEST(DuplicateEgressReport, AtMostOnceAMinute) {
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
