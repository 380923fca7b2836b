// SPDX-License-Identifier: Apache-2.0
// The statistics engine against simple sums.

#include "host/engine/stats_engine.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <string>

#include "host/names/group_catalog.h"
#include "host/period/ipv6_directions.h"

namespace flow::host {
namespace {

constexpr GUID kHosts = MakeGuid("4CD742B1-C1CA-4708-BE78-0FCA2EB01A86");
constexpr GUID kUnknown = MakeGuid("12345678-0000-0000-0000-000000000000");

class Messages final : public ChannelSink {
 public:
  void Post(const GUID&, const CLSID&, std::span<std::uint8_t> message) override {
    bytes += message.size();
  }
  std::size_t bytes = 0;
};

// An engine with a store of its own.
struct Host {
  GroupCatalog catalog{{}};
  StatsStore store{catalog.groups()};
  Messages messages;
  StatsEngine engine{store, messages};

  std::uint64_t Value(const GUID& group, const std::string& key, int meter) {
    engine.Flush();
    const std::uint64_t* const values = store.Group(group).table.Find(key);
    return values == nullptr ? 0 : values[meter];
  }
  FlowTotals Flow(const std::string& key) {
    engine.Flush();
    return store.flows().Find(key).value();
  }
};

using Sums = std::map<std::string, std::array<std::uint64_t, 11>>;

std::string RandomKey(std::mt19937* random, std::size_t keys) {
  const std::size_t number = (*random)() % keys;
  return std::to_string(number) + std::string(number % 130, 'k');
}

// Makes the same updates in the engine and in the sums, through every counter operation.
void UpdateAtRandom(std::mt19937* random, IOmbrelStatsEngine* engine, Sums* sums) {
  const std::string key = RandomKey(random, 20'000);
  const int length = static_cast<int>(key.size());
  const std::uint64_t value = (*random)();
  auto& sum = (*sums)[key];
  const int meters[] = {0, 1, 2, 3, 6, 7, 10};
  const std::uint64_t values[] = {value, 1, 2, 3, 4, 5, 6};
  switch ((*random)() % 6) {
    case 0:
      engine->UpdateCounter(kHosts, key.c_str(), 0, value);
      sum[0] += value;
      break;
    case 1:
      engine->UpdateCounterKeyLen(kHosts, length, key.c_str(), 1, value);
      sum[1] += value;
      break;
    case 2:
      engine->UpdateCounter2(kHosts, length, key.c_str(), 2, value, 3, 7);
      sum[2] += value;
      sum[3] += 7;
      break;
    case 3:
      engine->UpdateCounter3(kHosts, length, key.c_str(), 0, 1, 0, 1, 10, value);
      sum[0] += 2;
      sum[10] += value;
      break;
    case 4:
      engine->UpdateCounterHashed2(kHosts, 0xCE94BC07, key.c_str(), 6, value, 7, value);
      sum[6] += value;
      sum[7] += value;
      break;
    default:
      engine->UpdateCounterMulti(kHosts, length, key.c_str(), 7, meters, values);
      for (int i = 0; i < 7; ++i) sum[static_cast<std::size_t>(meters[i])] += values[i];
  }
}

Sums SumsOf(const StatsStore& store, const GUID& group) {
  Sums sums;
  for (const auto& counters : store.groups()) {
    if (!(counters->info.guid == group)) continue;
    counters->table.ForEach([&](std::string_view key, const std::uint64_t* values) {
      std::copy_n(values, counters->columns, sums[std::string(key)].begin());
    });
  }
  return sums;
}

TEST(StatsEngine, SumsWhatItIsTold) {
  std::mt19937 random(1);
  Host host;
  Sums expected;
  for (int i = 0; i < 200'000; ++i) UpdateAtRandom(&random, &host.engine, &expected);
  host.engine.Flush();
  EXPECT_EQ(SumsOf(host.store, kHosts), expected);
}

TEST(StatsEngine, ShardsMergeIntoTheSameSums) {
  std::mt19937 random(2);
  Host a;
  Host b;
  Sums expected;
  for (int i = 0; i < 50'000; ++i) {
    UpdateAtRandom(&random, i % 3 == 0 ? &a.engine : &b.engine, &expected);
  }
  a.engine.UpdateCounter(kUnknown, "x", 2, 5);
  a.engine.MarkRecord();
  b.engine.MarkRecord();
  a.engine.Flush();
  b.engine.Flush();
  StatsStore merged(a.catalog.groups());
  merged.Merge(a.store);
  merged.Merge(b.store);
  EXPECT_EQ(SumsOf(merged, kHosts), expected);
  EXPECT_EQ(merged.Group(kUnknown).table.Find("x")[2], 5U);
  EXPECT_EQ(merged.records, 2U);

  // The same without copying, and the result can still grow.
  a.store.Merge(std::move(b.store));
  EXPECT_EQ(SumsOf(a.store, kHosts), expected);
  UpdateAtRandom(&random, &a.engine, &expected);
  a.engine.UpdateCounter(kHosts, "one more", 0, 7);
  expected["one more"][0] = 7;
  a.engine.Flush();
  EXPECT_EQ(SumsOf(a.store, kHosts), expected);
}

// The same keys again and again, as in a long interval of many periods.
TEST(StatsStore, StaysAsLargeAsItsKeys) {
  Host sum;
  std::size_t memory = 0;
  for (int period = 1; period <= 400; ++period) {
    Host host;
    for (int i = 0; i < 2000; ++i) {
      host.engine.UpdateCounter(kHosts, std::to_string(i).c_str(), 0, 1);
    }
    host.engine.Flush();
    sum.store.Merge(std::move(host.store));
    if (period == 100) memory = sum.store.Memory();
  }
  EXPECT_LE(sum.store.Memory(), memory);
  EXPECT_EQ(sum.Value(kHosts, "1999", 0), 400U);
}

TEST(StatsStore, PrunesDownToTheLargestKeys) {
  Host host;
  GroupCounters& hosts = host.store.Group(kHosts);
  const std::size_t high = hosts.info.track_high;
  const std::size_t low = hosts.info.track_low;
  for (std::size_t i = 0; i <= high; ++i) {
    const std::string key = std::to_string(i);
    host.engine.UpdateCounter(kHosts, key.c_str(), 0, i + 1);
    if (i == 0 || i == high) host.engine.SetKeyAttributes(kHosts, key.c_str(), "label", "");
    host.engine.Flush();
    if (i + 1 == high) host.store.Prune();
  }
  EXPECT_EQ(hosts.table.size(), high + 1) << "not before there are more than the high mark";
  host.store.Prune();
  EXPECT_EQ(hosts.table.size(), low);
  EXPECT_EQ(hosts.pruned_keys, high + 1 - low);
  EXPECT_EQ(host.Value(kHosts, std::to_string(high), 0), high + 1);
  EXPECT_EQ(hosts.table.Find("0"), nullptr);
  EXPECT_EQ(hosts.notes.size(), 1U);
  std::uint64_t sum = hosts.pruned_sums[0];
  hosts.table.ForEach([&](std::string_view, const std::uint64_t* values) { sum += values[0]; });
  EXPECT_EQ(sum, (high + 1) * (high + 2) / 2) << "nothing is missing in the sums";

  Host other;
  other.store.Merge(host.store);
  EXPECT_EQ(other.store.Group(kHosts).pruned_keys, hosts.pruned_keys);
  EXPECT_EQ(other.store.Group(kHosts).pruned_sums, hosts.pruned_sums);
}

TEST(StatsStore, PrunesLargeTablesToABudgetAndKeepsTheSums) {
  Host host;
  constexpr std::size_t kKeys = 100'000;
  for (std::size_t i = 0; i < kKeys; ++i) {
    const std::string key = std::to_string(i);
    host.engine.UpdateCounter(kHosts, key.c_str(), 0, i % 7 == 0 ? 1000 : 10);
    host.engine.UpdateFlowVolume(key.c_str(), 1, 2, 3, 4);
    host.engine.MarkRecord();
  }
  host.engine.UpdateCounter(kUnknown, "small", 0, 1);
  host.engine.Flush();
  const std::size_t before = host.store.Memory();
  EXPECT_EQ(host.store.PruneTo(before), 0U);
  const std::uint64_t pruned = host.store.PruneTo(before / 4);
  EXPECT_LE(host.store.Memory(), before / 4);
  const GroupCounters& hosts = host.store.Group(kHosts);
  EXPECT_EQ(hosts.table.size() + hosts.pruned_keys, kKeys);
  std::uint64_t sum = hosts.pruned_sums[0];
  hosts.table.ForEach([&](std::string_view, const std::uint64_t* values) { sum += values[0]; });
  EXPECT_EQ(sum, kKeys / 7 * 1000 + 1000 + (kKeys - kKeys / 7 - 1) * 10);
  EXPECT_GE(hosts.pruned_most, 10U) << "a key that is not there can have had so much";
  EXPECT_EQ(host.Value(kHosts, "7", 0), 1000U) << "the smallest go first";
  EXPECT_EQ(host.Value(kUnknown, "small", 0), 1U) << "small tables stay whole";
  EXPECT_EQ(pruned, hosts.pruned_keys + host.store.flow_group().pruned_keys);
  const FlowBatch flows = host.store.TakeFlows();
  EXPECT_EQ(flows.let_go.flows + flows.table.size(), kKeys);
  EXPECT_EQ(flows.let_go.bytes, flows.let_go.flows * 3);
  EXPECT_EQ(flows.let_go.packets, flows.let_go.flows * 7);
}

TEST(StatsEngine, CountsUpdatesOfMetersThatAreNotThere) {
  Host host;
  host.engine.UpdateCounter2(kHosts, 1, "a", 11, 5, 0, 1);
  host.engine.UpdateCounter(kHosts, "a", -1, 5);
  host.engine.UpdateFlowCounter(kFlowGroup, "f", 4, 5);
  EXPECT_EQ(host.Value(kHosts, "a", 0), 1U);
  EXPECT_EQ(host.store.stray_updates, 3U);
}

TEST(StatsEngine, KeepsLabelsAndProperties) {
  Host host;
  host.engine.SetKeyAttributes(kHosts, "a", "old", nullptr);
  host.engine.SetKeyAttributes(kHosts, "a", "label", "description");
  host.engine.SetKeyProperty(kHosts, "a", "rate", "10");
  host.engine.SetKeyProperty(kHosts, "a", "rate", "20");
  const KeyNotes& notes = host.store.Group(kHosts).notes.at("a");
  EXPECT_EQ(notes.label, "label");
  EXPECT_EQ(notes.description, "description");
  EXPECT_EQ(notes.properties.at("rate"), "20");
}

// The order in which they are said is a guess, whatever comes, also over a change of stores.
TEST(StatsEngine, KeepsWhatWasSaidLastOfProperties) {
  Host host;
  StatsStore next(host.catalog.groups());
  std::map<std::string, std::string> said;
  std::mt19937 random(3);
  for (int i = 0; i < 20'000; ++i) {
    const bool in_order = i % 100 < 80;
    const auto number = static_cast<std::uint32_t>(i % 100);
    const std::string key = std::to_string(in_order ? number : random() % 100);
    const std::string name = random() % 50 == 0 ? "other" : "rate";
    const std::string value = random() % 50 == 0 ? std::to_string(i) : "1";
    if (i == 10'000) {
      host.engine.UseStore(next);
      next.CopyNotes(host.store);
    }
    host.engine.SetKeyProperty(i % 7 == 0 ? kUnknown : kHosts, key.c_str(), name.c_str(),
                               value.c_str());
    said[(i % 7 == 0 ? "unknown " : "hosts ") + key + " " + name] = value;
  }
  std::map<std::string, std::string> kept;
  for (const GUID& group : {kHosts, kUnknown}) {
    for (const auto& [key, notes] : next.Group(group).notes) {
      for (const auto& [name, value] : notes.properties) {
        kept[(group == kHosts ? "hosts " : "unknown ") + key + " " + name] = value;
      }
    }
  }
  EXPECT_EQ(kept, said);
}

// What was said last counts, but what an exporter's own lane says of it counts more.
TEST(StatsStore, MergesWhatLanesSay) {
  for (const bool is_own : {false, true}) {
    for (const bool first_is_later : {false, true}) {
      SCOPED_TRACE(testing::Message() << is_own << first_is_later);
      Host lane;
      lane.engine.SetNumber(1);
      lane.engine.SetKeyProperty(kHosts, "a", "rate", "10");
      lane.store.Group(kHosts).notes.at("a").is_own = is_own;
      Host other;
      other.engine.SetNumber(2);
      other.engine.SetKeyProperty(kHosts, "a", "rate", "20");
      Host all;
      all.store.Merge((first_is_later ? other : lane).store);
      all.store.Merge((first_is_later ? lane : other).store);
      const KeyNotes& notes = all.store.Group(kHosts).notes.at("a");
      EXPECT_EQ(notes.properties.at("rate"), is_own ? "10" : "20");
    }
  }
}

TEST(StatsEngine, TellsTheTimeOfTheDatagram) {
  Host host;
  host.engine.SetTime(1'700'000'000'999'999);
  std::uint64_t seconds = 0;
  host.engine.GetCurrentTime(&seconds);
  EXPECT_EQ(seconds, 1'700'000'000U);
  host.engine.SetAhead(60);
  host.engine.GetCurrentTime(&seconds);
  EXPECT_EQ(seconds, 1'700'003'601U);
  host.engine.SetAhead(7200);
  host.engine.GetCurrentTime(&seconds);
  EXPECT_EQ(seconds, 1'700'007'201U);
  host.engine.GetCurrentTime(&seconds);
  EXPECT_EQ(seconds, 1'700'000'000U) << "ahead for one question";
}

TEST(Flows, AddUpOverManyRecords) {
  Host host;
  const TimePair early{100, 500};
  const TimePair middle{101, 0};
  const TimePair late{102, 250};
  for (const char* key : {"a", "b", "a", "a"}) {  // another flow in between
    host.engine.UpdateFlowCounter(kFlowGroup, key, 0, 10);
    host.engine.UpdateFlowCounter(kFlowGroup, key, 2, 1);
    host.engine.UpdateFlowVolume(key, 10, 20, 1, 2);
  }
  host.engine.SetFlowTimes(kFlowGroup, "a", &middle, &late);
  host.engine.SetFlowTimes(kFlowGroup, "a", &early, &middle);
  host.engine.SetFlowTimes(kFlowGroup, "b", &middle, &middle);
  host.engine.SetFlowTimes(kFlowGroup, "a", &middle, &middle);
  host.engine.TagFlow(kFlowGroup, "a", "[dir]internal");
  host.engine.UpdateFlowCounterWithText(kFlowGroup, "a", 1, 7, "some text");
  host.engine.CloseFlow(kFlowGroup, "a");

  const FlowTotals flow = host.Flow("a");
  EXPECT_EQ(flow.meters[0], 30U);
  EXPECT_EQ(flow.meters[1], 7U);
  EXPECT_EQ(flow.meters[2], 3U);
  EXPECT_EQ(flow.bytes[0], 30U);
  EXPECT_EQ(flow.bytes[1], 60U);
  EXPECT_EQ(flow.packets[1], 6U);
  EXPECT_EQ(flow.first_ms, 100'500);
  EXPECT_EQ(flow.last_ms, 102'250);
  EXPECT_EQ(flow.closes, 1U);
  EXPECT_EQ(host.store.TextOf(flow.tag), "[dir]internal");
  EXPECT_EQ(host.store.TextOf(flow.text), "some text");
  EXPECT_EQ(host.Flow("b").closes, 0U);
}

TEST(Flows, LastFromTheFirstToTheLastDatagramWhenNobodyTellsTimes) {
  Host host;
  for (const std::int64_t second : {50, 60, 55}) {
    host.engine.SetTime(second * kMicrosPerSecond);
    host.engine.UpdateFlowVolume("a", 1, 0, 1, 0);
    host.engine.SetFlowDuration(kFlowGroup, "a", static_cast<std::uint32_t>(second));
    host.engine.UpdateFlowVolume("b", 1, 0, 1, 0);
  }
  EXPECT_EQ(host.Flow("a").first_ms, 50'000);
  EXPECT_EQ(host.Flow("a").last_ms, 60'000);
  EXPECT_EQ(host.Flow("a").duration_ms, 60U);
}

TEST(Flows, MergeWithTheirTimesTagsAndTexts) {
  Host a;
  Host b;
  const TimePair start{100, 0};
  const TimePair end{200, 0};
  b.engine.TagFlow(kFlowGroup, "other", "first text of this shard");
  a.engine.UpdateFlowVolume("a", 1, 0, 1, 0);
  a.engine.SetFlowTimes(kFlowGroup, "a", &start, &start);
  b.engine.UpdateFlowVolume("a", 2, 0, 1, 0);
  b.engine.SetFlowTimes(kFlowGroup, "a", &end, &end);
  b.engine.TagFlow(kFlowGroup, "a", "tag");
  a.engine.Flush();
  b.engine.Flush();
  StatsStore merged(a.catalog.groups());
  merged.Merge(a.store);
  merged.Merge(b.store);
  const FlowTotals flow = merged.flows().Find("a").value();
  EXPECT_EQ(flow.bytes[0], 3U);
  EXPECT_EQ(flow.first_ms, 100'000);
  EXPECT_EQ(flow.last_ms, 200'000);
  EXPECT_EQ(merged.TextOf(flow.tag), "tag");
  a.engine.TagFlow(kFlowGroup, "a", "number one here");
  a.engine.Flush();
  a.store.Merge(std::move(b.store));
  EXPECT_EQ(a.store.TextOf(a.Flow("a").tag), "tag");
  EXPECT_EQ(a.Flow("a").bytes[0], 3U);
  EXPECT_EQ(a.store.TextOf(a.Flow("other").tag), "first text of this shard");
}

// What a report shows is the same whether flows are brought together for it or as they are counted.
TEST(Flows, AreShownAlikeHoweverTheyWereCounted) {
  // None, flows with texts, or all that cannot be counted as they are shown.
  for (const int others : {0, 1, 2}) {
    const bool has_others = others == 2;
    std::mt19937 random(1);
    Host apart;
    Host shown;
    shown.engine.ShowFlows();
    for (int i = 0; i < 3000; ++i) {
      const std::string sides[] = {":p-C001", ":p-01BB", ":p-0050", ":p-0035", ":p-C002"};
      const std::string a = has_others ? sides[random() % 5] : ":p-0035";
      std::string key = "06C:0A.00.00.0" + std::to_string(random() % 3) + a + "_0A.00.00.09" +
                        sides[random() % 5] + "_C0.00.02.0" + std::to_string(random() % 3) +
                        "_0000000A_FFFFFFFF";
      if (has_others && random() % 8 == 0) key += std::string(i % 2 == 0 ? 1 : 60, 'k');
      const TimePair start{100 + static_cast<std::int64_t>(random() % 100), 0};
      for (StatsEngine* const engine : {&apart.engine, &shown.engine}) {
        engine->UpdateFlowVolume(key.c_str(), 1, i % 3, 1, 0);
        engine->UpdateFlowCounter(kFlowGroup, key.c_str(), 1, 10);
        if (i % 2 == 0) engine->SetFlowTimes(kFlowGroup, key.c_str(), &start, &start);
        if (i % 5 == 0) engine->CloseFlow(kFlowGroup, key.c_str());
        if (others > 0 && i % 7 == 0) engine->TagFlow(kFlowGroup, key.c_str(), "tag");
      }
    }
    StatsStore reports[] = {StatsStore(apart.catalog.groups()), StatsStore(apart.catalog.groups())};
    for (Host* const host : {&apart, &shown}) {
      host->engine.Flush();
      FlowBatch batch = host->store.TakeFlows();
      EXPECT_EQ(batch.are_shown, host == &shown && others == 0);
      reports[host == &shown ? 1 : 0].MoveShownFlows(std::move(batch), has_others);
    }
    EXPECT_EQ(reports[1].flows().size(), reports[0].flows().size());
    reports[0].flows().ForEach([&](std::string_view key, const FlowTotals& flow) {
      const FlowTotals other = reports[1].flows().Find(key).value_or(FlowTotals{});
      EXPECT_EQ(std::memcmp(&other, &flow, sizeof(flow)), 0) << key;
    });
  }
}

// The sides of a session by the first digits of their addresses.
std::string Session6(const std::string& a, const std::string& b) {
  const std::string rest = "000000000000000000000000";
  return "06D:" + a + rest + ":p-C738_" + b + rest + ":p-0050_00.00.00.00_00000000_00000000";
}

TEST(Ipv6Directions, AddUpEveryFlow) {
  constexpr GUID kTotals = MakeGuid("393B5EBC-AB41-4387-8F31-8077DB917336");
  Host host;
  const auto flow = [&](const std::string& key, std::uint64_t unit, bool has_volume = true) {
    for (int meter = 0; meter < 4; ++meter) {
      host.engine.UpdateFlowCounter(kFlowGroup, key.c_str(), meter,
                                    unit * static_cast<std::uint64_t>(meter + 1));
    }
    if (has_volume) host.engine.UpdateFlowVolume(key.c_str(), unit, 0, 1, 0);
  };
  const std::string home = "20010DB8";
  const std::string outside = "20010DB9";
  flow(Session6(home, outside), 1);  // forward 1 byte, reverse 2, in 3 and 4 packets
  flow(Session6(outside, home), 10);
  flow(Session6(home, home), 100);
  flow(Session6(outside, outside), 1000);
  flow(Session6(home, home), 1);
  flow(Session6(home, outside) + "events", 7, false);
  flow("06C:0A.00.00.01:p-C738_0A.00.00.02:p-0050_00.00.00.00_00000000_00000000", 7);
  flow(Session6(home, "2001\tDB8"), 7);
  flow("06D:", 7);
  flow("", 7);
  host.engine.UpdateCounter(kTotals, "DIR_TRANSIT", 0, 5);
  host.engine.Flush();
  Network network;
  ASSERT_TRUE(ParseNetwork("2001:db8::/32", &network));
  const HomeRanges ranges({network});
  Ipv6Directions directions(ranges);
  directions.Add(host.store.flows());
  directions.AddTo(&host.store);
  const auto volume = [&](const std::string& key) {
    return std::pair(host.Value(kTotals, key, 0), host.Value(kTotals, key, 1));
  };
  EXPECT_EQ(volume("DIR_OUTOFHOME"), std::pair(1UL + 20, 3UL + 40));
  EXPECT_EQ(volume("DIR_INTOHOME"), std::pair(2UL + 10, 4UL + 30));
  EXPECT_EQ(volume("DIR_WITHINHOME"), std::pair(303UL, 707UL));
  EXPECT_EQ(volume("DIR_TRANSIT"), std::pair(3005UL, 7000UL));
}

}  // namespace
}  // namespace flow::host
