// SPDX-License-Identifier: Apache-2.0
#include "host/engine/flow_table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <string>

#include "host/engine/shown_flow.h"
#include "host/engine/stats_store.h"
#include "host/names/group_catalog.h"

namespace flow::host {
namespace {

constexpr char kIpv4[] = "06C:0A.00.B0.01:p-C001_C0.A8.01.FE:p-01BB_C0.00.02.01_0000000F_FFFFFFFF";
constexpr char kIpv6[] =
    "11D:20010DB800000000000000000000000A:p-0035_20010DB8000000000000000000000002:p-C738_"
    "00.00.00.00_00000000_00000000";

std::string Packed(const std::string& text) {
  char bytes[kPackedMost];
  const std::size_t size = PackSession(text, bytes);
  return std::string(bytes, size) + (IsText({bytes, size}) ? text : "");
}

// Every other character at every place has another packed key, or is kept as text.
TEST(PackedSession, GivesEveryTextBack) {
  SessionText text;
  for (std::string key : {kIpv4, kIpv6}) {
    for (const char* const exporter :
         {"C0.00.02.01_0000000F_FFFFFFFF", "00.00.00.00_00000000_00000000"}) {
      key.replace(key.size() - 29, 29, exporter);
      EXPECT_FALSE(IsText(Packed(key)));
      for (std::size_t at = 0; at < key.size(); ++at) {
        for (int c = 0; c < 256; ++c) {
          std::string other = key;
          other[at] = static_cast<char>(c);
          ASSERT_EQ(text.Of(Packed(other)), other) << key << " " << at;
        }
      }
    }
  }
  for (const std::string key : {"", "06C:", "06C:0A.00.00.01:p-C001_C0.A8.01.FE:p-01BB_"}) {
    EXPECT_EQ(text.Of(Packed(key)), key);
  }
  EXPECT_LT(Packed(kIpv6).size(), 40U);
}

TEST(PackedSession, IsShownAndOrderedAsItsText) {
  std::mt19937 random(1);
  constexpr const char* kPorts[] = {"0035", "0050", "01BB", "C001", "FFFF", "0034"};
  std::string before;
  for (int i = 0; i < 2000; ++i) {
    std::string key = i % 2 == 0 ? kIpv4 : kIpv6;
    const std::size_t side = i % 2 == 0 ? 19 : 40;
    key.replace(side - 1, 4, kPorts[random() % 6]);
    key.replace(2 * side - 1, 4, kPorts[random() % 6]);
    if (random() % 2 == 0) key.replace(key.size() - 29, 29, "00.00.00.00_00000000_0000000A");
    if (random() % 4 == 0) key.replace(key.size() - 29, 29, "00.00.00.00_00000000_00000000");
    FlowTotals flow{};
    for (std::uint64_t meter = 0; meter < 4; ++meter) flow.meters[meter] = meter;
    flow.as_numbers[1] = 5;
    FlowTotals of_text = flow;
    ShownFlow shown;
    const std::string expected(shown.Of(key, &of_text));
    char bytes[kPackedMost];
    const auto [size, turns] = PackedShown(Packed(key), bytes);
    if (turns) TurnRound(&flow);
    SessionText text;
    EXPECT_EQ(text.Of({bytes, size}), expected);
    EXPECT_EQ(std::memcmp(&flow, &of_text, sizeof(flow)), 0) << key;
    std::string in_place = Packed(key);
    std::size_t place = in_place.size();
    EXPECT_EQ(ShowInPlace(in_place.data(), &place), i % 2 == 0 && !turns);
    EXPECT_EQ(text.Of({in_place.data(), place}), i % 2 == 0 && !turns ? expected : key);
    EXPECT_EQ(ComesBefore(Packed(before), Packed(key)), before < key);
    before = key;
  }
}

// Parts of every size, most of them as meters tell them.
FlowTotals RandomPart(std::mt19937_64& random) {
  const auto number = [&]() -> std::uint64_t {
    return random() % 3 == 0 ? random() >> random() % 64 : random() % 100;
  };
  const auto narrow = [&] { return static_cast<std::uint32_t>(random() % 4 == 0 ? number() : 0); };
  FlowTotals part{};
  for (std::uint64_t& meter : part.meters) meter = number();
  if (random() % 4 != 0) {
    part.bytes[0] = part.meters[0] + (random() % 50 == 0 ? 1 : 0);
    part.bytes[1] = part.meters[1];
    std::memcpy(part.packets, part.meters + 2, sizeof(part.packets));
  } else if (random() % 2 == 0) {
    part.bytes[0] = part.meters[0] + part.meters[1];
    part.packets[0] = part.meters[2] + part.meters[3];
  }
  part.has_times = random() % 2;
  part.updates = static_cast<std::uint32_t>(random() % 3 == 0 ? number() : 3);
  if (part.updates + part.has_times != 0) {
    part.first_ms = static_cast<std::int64_t>(1'700'000'000'000 + number());
    part.last_ms = static_cast<std::int64_t>(1'700'000'000'000 + number());
  }
  for (std::uint32_t* const word : {&part.tag, &part.text, &part.closes, &part.vrf, &part.app,
                                    &part.records, &part.as_numbers[1], &part.duration_ms}) {
    *word = narrow();
  }
  part.macs[1][5] = static_cast<std::uint8_t>(narrow());
  return part;
}

// What does not fit a narrow row makes a wide one, and nothing is lost.
TEST(FlowTable, KeepsWhatMergeFlowAdds) {
  std::mt19937_64 random(2);
  std::map<std::string, FlowTotals> sums;
  FlowTable tables[2];
  for (int i = 0; i < 20'000; ++i) {
    const FlowTotals part = RandomPart(random);
    const std::string key = std::to_string(random() % 4000);
    tables[i % 2].Merge(key, part);
    MergeFlow(part, &sums[key]);
  }
  // One after the other rather than in turns, which times and texts tell apart.
  std::map<std::string, FlowTotals> halves;
  for (FlowTable& table : tables) {
    table.ForEach([&](std::string_view key, const FlowTotals& flow) {
      MergeFlow(flow, &halves[std::string(key)]);
    });
  }
  tables[0].Absorb(std::move(tables[1]));
  EXPECT_EQ(tables[0].size(), sums.size());
  for (const auto& [key, flow] : halves) {
    const FlowTotals kept = tables[0].Find(key).value();
    ASSERT_EQ(std::memcmp(&kept, &flow, sizeof(flow)), 0) << key;
    ASSERT_EQ(kept.meters[3], sums[key].meters[3]) << key;
    ASSERT_EQ(kept.packets[0], sums[key].packets[0]) << key;
  }
  FlowTable small;
  FlowTotals one{};
  one.meters[0] = one.bytes[0] = one.updates = 1;
  constexpr std::size_t kFlows = 100'000;
  for (std::size_t i = 0; i < kFlows; ++i) {
    char key[72];
    std::snprintf(key, sizeof(key), "06C:0A.00.00.01:p-C001_%02zX.%02zX.%02zX.01:p-01BB_%s",
                  i >> 16, i >> 8 & 255, i & 255, "00.00.00.00_00000000_00000000");
    small.Merge(key, one);
  }
  EXPECT_LT(small.Memory() / kFlows, 100U);
}

TEST(FlowTable, IsShownAsItsTextsWouldBe) {
  std::mt19937_64 random(3);
  constexpr const char* kPorts[] = {"0050", "C001", "C002", "01BB"};
  const GroupCatalog catalog({});
  StatsStore store(catalog.groups());
  std::map<std::string, FlowTotals> sums;
  ShownFlow shown;
  for (int i = 0; i < 5000; ++i) {
    FlowBatch batch;
    FlowTotals part = RandomPart(random);
    for (std::uint32_t* const text : {&part.tag, &part.text, &part.vrf, &part.app, &part.user}) {
      *text = 0;
    }
    std::string key = kIpv4;
    key.replace(18, 4, kPorts[random() % 4]);
    key.replace(37, 4, kPorts[random() % 4]);
    if (random() % 8 == 0) key += "more";
    batch.table.Merge(key, part);
    part.closes = 0;
    const std::string key_shown(shown.Of(key, &part));
    MergeFlow(part, &sums[key_shown]);
    if (i % 2 == 0) {
      store.AddShownFlows(batch, false);
    } else {
      store.MoveShownFlows(std::move(batch), false);
    }
  }
  EXPECT_EQ(store.flows().size(), sums.size());
  for (const auto& [key, flow] : sums) {
    const FlowTotals kept = store.flows().Find(key).value();
    EXPECT_EQ(std::memcmp(&kept, &flow, sizeof(flow)), 0) << key;
  }
}

}  // namespace
}  // namespace flow::host
