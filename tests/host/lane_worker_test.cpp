// SPDX-License-Identifier: Apache-2.0
// A lane in its thread: whose fault it is that a datagram takes long, and who helps one that is
// behind.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <time.h>

#include <chrono>
#include <latch>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "host/base/console.h"
#include "host/base/memory_budget.h"
#include "host/command/meter_setup.h"
#include "host/period/kernel_drops.h"
#include "host/policy/default_policies.h"
#include "tests/host/captures.h"
#include "tests/host/program.h"

namespace flow::host::test {
namespace {

// Of processor time, as a lane may take to bring its books up to date.
void WorkFor(std::chrono::milliseconds time) {
  const auto used = [] {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  };
  for (const auto start = used(); used() - start < time;) {
  }
}

// The default policy of NetFlow, with one switch more.
void TurnOn(const std::string& name, const std::filesystem::path& folder) {
  const std::filesystem::path path = folder / "NetflowCounterPolicy.xml";
  std::error_code error;
  ASSERT_TRUE(WriteDefaultPolicy(path, &error));
  std::string text = ReadFile(path);
  const std::string off = "<" + name + ">false";
  const std::size_t at = text.find(off);
  ASSERT_NE(at, std::string::npos);
  WriteFile(path, text.replace(at, off.size(), "<" + name + ">true"));
}

// Lanes in their threads, with meters by default policies but for one switch.
class Collector {
 public:
  explicit Collector(const std::string& plugin, int instances = 1,
                     const std::string& turned_on = "") {
    const std::filesystem::path policies = folder_ / "policies";
    if (!turned_on.empty()) TurnOn(turned_on, policies);
    options_.plugin = plugin;
    options_.config_directory = policies.string();
    options_.instances = instances;
    setup_.emplace(options_, "", console_);
    setup_->UseDefaultsIn(policies);
    setup_->Start(LaneMode::kDrop);
  }

  template <class Datagram>
  void Take(const Datagram& datagram, Timestamp time = 1) {
    const Bytes packet = Ethernet(datagram.Packet());
    setup_->intake().Take(1, {time, packet, static_cast<std::uint32_t>(packet.size())});
  }
  Lanes& lanes() { return setup_->lanes(); }

 private:
  TemporaryFolder folder_;
  Console console_{kLogError};
  MeterOptions options_;
  std::optional<MeterSetup> setup_;
};

// The lane takes longer to hand out flows than any datagram may keep a meter busy.
TEST(LaneWorker, BlamesNoExporterForWhatTheLaneDoes) {
  constexpr int kDatagrams = 200;
  Collector collector(FakePlugin());
  int batches = 0;
  collector.lanes().HandOutFlows(0, [&](const Lane&, const EarlyFlows&) {
    if (++batches <= 2) WorkFor(3 * TimeBudget::kMost);
  });
  const Udp datagram{.payload = Text("flows that change, twice F")};
  for (int i = 0; i < kDatagrams; ++i) collector.Take(datagram);
  collector.lanes().Finish();
  EXPECT_GE(batches, 2);
  EXPECT_TRUE(collector.lanes().TakeOffences().empty());
  EXPECT_EQ(collector.lanes().Records(), kDatagrams);
}

// Number n of a stream, of one record; every fortieth got lost.
Bytes NumberedV5(std::uint32_t n) {
  return FromHex(fmt::format("0005 0001 00000064 6553F100 00000000 {:08X} 00000000", n)) +
         FromHex("0A000001 0A000002 0A000003 0001 0002 00000001 00000064 00000000 00000032") +
         FromHex("C738 0050 00 10 06 00 0000 0000 0000 0000");
}

// A sample of a packet of TCP, whose flow has no tag.
Bytes SampleOfTcp() {
  return FromHex("00000005 00000001 0A000001 00000000 00000001 00000064 00000001") +
         FromHex("00000001 00000070 00000001 00000001 00000064 00000064 00000000") +
         FromHex("00000001 00000002 00000001 00000001 00000048 00000001 0000003A") +
         FromHex("00000004 00000036 0A0B0C0D0E0F 0A0B0C0D0E10 0800 4500 0028 00000000") +
         FromHex("40060000 0A000001 0A000002 C7380050 00000000 00000000 50100000 00000000 0000");
}

// The exporter's lane is held up until all datagrams have been taken, at the first of which it was.
TEST(Lanes, HelpAnExportersLaneWithWhatStandsAlone) {
  constexpr std::uint32_t kDatagrams = 8000;
  const Udp v5{.payload = NumberedV5(0), .port = 2055};
  const Udp sflow{.payload = SampleOfTcp(), .port = 6343};
  const struct {
    const char* what;
    std::string turned_on;
    Udp first;  // that the lane meters
    bool helped;
    bool over_ipv6 = false;
  } rows[] = {
      {"as usual", "", v5, true},
      {"over IPv6", "", v5, true, true},
      {"of a flow's tags the last counts", "TagFlowsWithDirection", v5, false},
      {"and no flow that may have one was metered yet", "TagFlowsWithDirection", sflow, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    Collector collector(FLOWHANDLERS, 2, row.turned_on);
    const auto take = [&](const Udp& datagram) {
      if (!row.over_ipv6) return collector.Take(datagram);
      collector.Take(Udp6{.payload = datagram.payload, .port = datagram.port});
    };
    take(row.first);
    std::latch metered(2);
    std::latch all_taken(1);
    collector.lanes().ForEach([&](Lane& lane) {
      metered.count_down();
      if (lane.number() == 1) all_taken.wait();
    });
    metered.wait();
    for (std::uint32_t n = 1; n < kDatagrams; ++n) {
      if (n % 40 != 0) take({.payload = NumberedV5(n), .port = 2055});
    }
    all_taken.count_down();
    std::mutex mutex;
    std::vector<Harvest> harvests;
    collector.lanes().ForEach([&](Lane& lane) {
      Harvest harvest = lane.Reap();
      const std::lock_guard lock(mutex);
      harvests.push_back(std::move(harvest));
    });
    collector.lanes().Finish();
    ExporterTable table;
    std::size_t lanes_at_work = 0;
    for (const Harvest& harvest : harvests) {
      table.Merge(harvest.exporters);
      lanes_at_work += harvest.store->records > 0 ? 1 : 0;
    }
    EXPECT_EQ(lanes_at_work, row.helped ? 2U : 1U);
    constexpr std::uint64_t kLost = kDatagrams / 40 - 1;
    EXPECT_EQ(table.Rows().size(), row.first.port == 2055 ? 1U : 2U);
    ExporterCounts counts;
    for (const ExporterTable::Row& each : table.Rows()) counts.Add(each.counts);
    EXPECT_EQ(counts.datagrams, kDatagrams - kLost);
    EXPECT_EQ(counts.books.metered, kDatagrams - kLost);
    EXPECT_EQ(counts.gaps.Lost(), kLost);
    EXPECT_EQ(counts.gaps.late, 0U);
    EXPECT_EQ(collector.lanes().Dropped(), 0U);
  }
}

// Of NetFlow v9, with addresses and what is 100 of the one and 60 of the other, as a template says.
Bytes NumberedV9(std::uint32_t n, const std::string& set) {
  return FromHex(fmt::format("0009 0001 00000064 6553F100 {:08X} 00000000", n) + set);
}
constexpr char kData[] = "0100 0014 0A000001 0A000002 00000064 0000003C";
constexpr char kBytesFirst[] = "0000 0018 0100 0004 0008 0004 000C 0004 0001 0004 0002 0004";
constexpr char kPacketsFirst[] = "0000 0018 0100 0004 0008 0004 000C 0004 0002 0004 0001 0004";

constexpr char kOptions[] = "0001 0014 0101 0004 0004 0001 0004 0022 0004 0000";
constexpr char kRateOfTen[] = "0101 000C 00000000 0000000A";

class TwoLanes {
 public:
  void Take(const std::string& set, std::uint32_t times = 1) {
    for (std::uint32_t i = 0; i < times; ++i) {
      collector_.Take(Udp{.payload = NumberedV9(number_++, set), .port = 2055});
    }
  }

  // Hold comes back when both lanes have done what was given them, and wait.
  void Hold(std::latch* first, std::latch* second) {
    const auto here = std::make_shared<std::latch>(2);
    collector_.lanes().ForEach([here, first, second](Lane& lane) {
      here->count_down();
      std::latch* const until = lane.number() == 1 ? first : second;
      if (until != nullptr) until->wait();
    });
    here->wait();
  }

  // So many that what was told before them has come to all lanes.
  void TakeAlone(const std::string& set, std::uint32_t times) {
    for (std::uint32_t i = 0; i < times; ++i) {
      Take(set);
      Hold(nullptr, nullptr);
    }
  }

  void Push() { collector_.lanes().Push(); }

  void Reap() {
    collector_.lanes().ForEach([this](Lane& lane) {
      const Harvest harvest = lane.Reap();
      const std::lock_guard lock(mutex_);
      exporters.Merge(harvest.exporters);
      lanes_at_work += harvest.store->records > 0 ? 1 : 0;
      harvest.store->flows().ForEach([this](std::string_view, const FlowTotals& flow) {
        bytes += flow.bytes[0] + flow.bytes[1];
      });
    });
  }
  void End() { collector_.lanes().Finish(); }

  ExporterTable exporters;
  std::size_t lanes_at_work = 0;
  std::uint64_t bytes = 0;

 private:
  Collector collector_{FLOWHANDLERS, 2};
  std::mutex mutex_;
  std::uint32_t number_ = 0;
};

// Both lanes are held up until all datagrams have been taken, the other one longer: it is given
// data by what was told first, and has it still in front of it when the exporter's lane comes to
// what is told then. Later it has data again, by that.
TEST(Lanes, HelpWithDataByWhatWasToldBefore) {
  constexpr std::uint32_t kOfEach = 6000;
  constexpr std::uint32_t kAlone = 4;
  const struct {
    const char* what;
    std::vector<std::string> told;
    std::uint64_t bytes_then;
    std::uint64_t templates;
  } rows[] = {
      {"another template", {kPacketsFirst}, 60, 1},
      {"a rate", {kOptions, kRateOfTen}, 1000, 2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    TwoLanes lanes;
    std::latch first_goes_on(1);
    std::latch second_goes_on(1);
    lanes.Take(kBytesFirst);
    lanes.TakeAlone(kData, kAlone);
    lanes.Hold(&first_goes_on, &second_goes_on);
    lanes.Take(kData, kOfEach);
    for (const std::string& set : row.told) lanes.Take(set);
    lanes.Take(kData, kOfEach);
    lanes.Push();
    first_goes_on.count_down();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    second_goes_on.count_down();
    lanes.Hold(nullptr, nullptr);
    lanes.Reap();

    std::latch goes_on(1);
    lanes.TakeAlone(kData, kAlone);
    lanes.Hold(&goes_on, nullptr);
    lanes.Take(kData, kOfEach);
    lanes.Push();
    goes_on.count_down();
    lanes.Reap();
    lanes.End();

    EXPECT_EQ(lanes.lanes_at_work, 4U);  // both, twice
    EXPECT_EQ(lanes.bytes, 100 * (kAlone + kOfEach) + row.bytes_then * (kAlone + 2 * kOfEach));
    ASSERT_EQ(lanes.exporters.Rows().size(), 1U);
    const ExporterCounts counts = lanes.exporters.Rows()[0].counts;
    EXPECT_EQ(counts.books.metered, 2 * kAlone + 3 * kOfEach);
    EXPECT_EQ(counts.gaps.Lost(), 0U);
    EXPECT_EQ(counts.templates, row.templates);
  }
}

// Most of them without their numbers, for which there is little room.
TEST(Lanes, DropHereWhatIsNotLostOnTheWay) {
  ShareMemory(kLeastMemory, 1);
  constexpr std::uint32_t kDatagrams = 30'000;
  constexpr std::uint32_t kAfterwards = 10;
  Collector collector(FLOWHANDLERS);
  const auto take = [&](std::uint32_t n) {
    collector.Take(Udp{.payload = NumberedV5(n) + Bytes(1000), .port = 2055},
                   kMicrosPerSecond + Timestamp{n} * 1000);
  };
  std::latch held(1);
  std::latch all_taken(1);
  std::latch all_metered(1);
  take(0);
  collector.lanes().ForEach([&](Lane&) {
    held.count_down();
    all_taken.wait();
  });
  held.wait();
  for (std::uint32_t n = 1; n < kDatagrams; ++n) take(n);
  collector.lanes().Push();
  all_taken.count_down();
  std::vector<Harvest> harvests;
  collector.lanes().ForEach([&](Lane&) { all_metered.count_down(); });
  all_metered.wait();
  for (std::uint32_t n = 0; n < kAfterwards; ++n) take(kDatagrams + n);
  collector.lanes().ForEach([&](Lane& lane) { harvests.push_back(lane.Reap()); });
  collector.lanes().Finish();
  ShareMemory(std::size_t{1} << 50, 1);  // for whoever comes next

  EXPECT_FALSE(harvests.at(0).dropped_unseen.empty());
  KernelDrops().TakeOff({}, harvests);
  const ExporterCounts counts = harvests[0].exporters.Rows().at(0).counts;
  EXPECT_EQ(counts.datagrams + collector.lanes().Dropped(), kDatagrams + kAfterwards);
  EXPECT_EQ(counts.gaps.Lost(), 0U);
  EXPECT_EQ(counts.dropped + counts.gaps.here, collector.lanes().Dropped());
}

}  // namespace
}  // namespace flow::host::test
