// SPDX-License-Identifier: Apache-2.0
// What sequence numbers tell about made-up exporters on a bad way, beside what was really lost. The
// test prints one line a case.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <random>
#include <span>
#include <vector>

#include "host/intake/sequence.h"

namespace flow::host {
namespace {

constexpr ExportVersion kV5{false, 5};
constexpr ExportVersion kV9{false, 9};
constexpr ExportVersion kIpfix{false, 10};
constexpr ExportVersion kSFlow{true, 5};

enum class Stranger { kNone, kEmptyInARow, kFarAndNear, kShortRuns };

struct Way {
  const char* name;
  ExportVersion version;
  double largest_error;  // of what was lost, or where nothing was, of what was sent
  double lost = 0;
  double reordered = 0;
  double twice = 0;
  std::uint32_t restart_after = 0;  // datagrams; 0 for never
  std::uint32_t engines = 1;
  std::uint32_t first_number = 1000;
  Stranger stranger = Stranger::kNone;
  std::uint64_t jumps = 0;
  std::uint32_t outage = 0;  // datagrams, in the middle
};

constexpr double kExact = 0;
constexpr double kAsGood = 0.0001;
constexpr double kClose = 0.01;
// Of a datagram with one sample in it.
constexpr std::size_t kSFlowHeader = 28;
constexpr std::size_t kSFlowSample = 20;

constexpr std::uint32_t kAtTheEnd = 0xFFFFF000;

const Way kWays[] = {
    {"V5Lost", kV5, kExact, 0.05},
    {"V9Lost", kV9, kExact, 0.05},
    {"IpfixLost", kIpfix, kExact, 0.05},
    {"SFlowLost", kSFlow, kExact, 0.05},
    {"V5AlmostAllLost", kV5, kExact, 0.9},
    {"V9AlmostAllLost", kV9, kExact, 0.97},
    {"V5Wraps", kV5, kExact, 0.05, 0, 0, 0, 1, kAtTheEnd},
    {"V9Wraps", kV9, kExact, 0.05, 0, 0, 0, 1, kAtTheEnd},
    {"IpfixWraps", kIpfix, kExact, 0.05, 0, 0, 0, 1, kAtTheEnd},
    {"V5Outage", kV5, kExact, 0, 0, 0, 0, 1, 1000, Stranger::kNone, 0, 3000},
    {"V9Outage", kV9, kExact, 0.01, 0, 0, 0, 1, 1000, Stranger::kNone, 0, 3000},
    {"V5Reordered", kV5, kAsGood, 0, 0.1},
    {"V9Reordered", kV9, kAsGood, 0, 0.1},
    {"IpfixReordered", kIpfix, kAsGood, 0, 0.1},
    {"SFlowReordered", kSFlow, kAsGood, 0, 0.1},
    {"V9ReorderedAndLost", kV9, kClose, 0.05, 0.1},
    {"IpfixReorderedAndLost", kIpfix, kClose, 0.05, 0.1},
    {"V5Restarts", kV5, kClose, 0.05, 0, 0, 2000},
    {"V9Restarts", kV9, kClose, 0.05, 0, 0, 2000},
    {"V9RestartsNearby", kV9, kClose, 0.05, 0, 0, 600},
    {"SFlowRestartsNearby", kSFlow, kClose, 0.05, 0, 0, 600},
    {"IpfixRestartsReordered", kIpfix, kClose, 0.05, 0.05, 0, 2000},
    {"V9Twice", kV9, kExact, 0.05, 0, 0.3},
    {"IpfixTwice", kIpfix, kExact, 0.05, 0, 0.3},
    {"V9EverythingTwice", kV9, kExact, 0.05, 0, 1},
    {"V9RestartsTwice", kV9, kClose, 0.05, 0, 0.3, 2000, 1, 1000, Stranger::kNone, 4},
    {"V5FourEngines", kV5, kExact, 0.05, 0, 0, 0, 4},
    {"V9FourDomains", kV9, kClose, 0.05, 0.1, 0.1, 0, 4},
    {"V5MadeUp", kV5, kExact, 0.05, 0, 0, 0, 1, 1000, Stranger::kEmptyInARow, 10},
    {"V9MadeUp", kV9, kClose, 0.05, 0.1, 0, 0, 1, 1000, Stranger::kFarAndNear, 5},
    {"IpfixMadeUpRuns", kIpfix, kExact, 0.05, 0, 0, 0, 1, 1000, Stranger::kShortRuns, 10},
};

// The numbers of a datagram, without its records.
struct Datagram {
  Datagram(const ExportVersion& version, std::uint32_t engine, std::uint32_t number,
           std::uint32_t units) {
    if (version == kSFlow) {
      for (const std::uint32_t word : {5U, 1U, 0x0A000001U, engine, number, 0U, 1U}) Add(word);
      for (const std::uint32_t word : {1U, 12U, number, 3U, 0U}) Add(word);
      return;
    }
    Add(version.number << 16 | units);
    size = version == kIpfix ? 8 : version == kV9 ? 12 : 16;
    Add(number);
    Add(version == kV5 ? engine << 16 : engine);
  }

  void Add(std::uint32_t word) {
    for (int shift = 24; shift >= 0; shift -= 8) {
      bytes[size++] = static_cast<std::uint8_t>(word >> shift);
    }
  }
  [[nodiscard]] std::span<const std::uint8_t> Bytes() const { return {bytes.data(), size}; }

  std::array<std::uint8_t, 48> bytes{};
  std::size_t size = 0;
};

// A made-up exporter, the way, and the tracker at its end.
class Simulation {
 public:
  explicit Simulation(const Way& way) : way_(way), numbers_(way.engines, way.first_number) {}

  static constexpr std::uint32_t kDatagrams = 10'000;

  void Run();

  std::uint64_t sent = 0;
  std::uint64_t lost = 0;
  SequenceGaps told;
  SequenceGaps told_samples;

 private:
  struct Arrival {
    std::uint64_t at;
    std::uint32_t units;
    Datagram datagram;
  };

  static constexpr std::uint32_t kEdge = 50;  // where nothing is lost, so that its loss can be told

  std::uint64_t Below(std::uint64_t limit) { return random_() % limit; }
  bool Chance(double part) { return static_cast<double>(Below(1'000'000)) < part * 1e6; }
  void Send(std::uint32_t i);
  void MakeUp(std::uint32_t i);
  void Arrive(std::uint64_t at, std::uint32_t number, std::uint32_t units, std::uint32_t engine) {
    arrivals_.push_back({at, units, {way_.version, engine, number, units}});
  }

  const Way& way_;
  std::mt19937_64 random_{20};
  std::vector<std::uint32_t> numbers_;
  std::vector<Arrival> arrivals_;
};

void Simulation::Run() {
  for (std::uint32_t i = 0; i < kDatagrams; ++i) {
    Send(i);
    if (way_.stranger != Stranger::kNone && i % 1000 == 500) MakeUp(i);
  }
  std::ranges::stable_sort(arrivals_, {}, &Arrival::at);
  SequenceTracker tracker;
  for (const Arrival& arrival : arrivals_) {
    const auto time = static_cast<Timestamp>(arrival.at * 100);
    tracker.Take({{}, way_.version, time, arrival.datagram.Bytes(), arrival.units}, &told,
                 &told_samples);
  }
}

void Simulation::Send(std::uint32_t i) {
  const bool by_datagram = way_.version == kV9 || way_.version == kSFlow;
  const std::uint32_t units = by_datagram ? 1 : 1 + static_cast<std::uint32_t>(Below(30));
  if (way_.restart_after != 0 && i > 0 && i % way_.restart_after == 0) {
    std::ranges::fill(numbers_, way_.version == kSFlow ? 1 : 0);
  }
  const auto engine = static_cast<std::uint32_t>(Below(way_.engines));
  const std::uint32_t number = std::exchange(numbers_[engine], numbers_[engine] + units);
  sent += units;
  const bool is_out = i >= kDatagrams / 2 && i < kDatagrams / 2 + way_.outage;
  if (i >= kEdge && i < kDatagrams - kEdge && (is_out || Chance(way_.lost))) {
    lost += units;
    return;
  }
  const std::uint64_t at = std::uint64_t{i} * 10;
  Arrive(at + (Chance(way_.reordered) ? 10 * (1 + Below(8)) + 5 : 0), number, units, engine);
  if (Chance(way_.twice)) Arrive(at + 10 * Below(8) + 7, number, units, engine);
}

// What a stranger sends in the exporter's name.
void Simulation::MakeUp(std::uint32_t i) {
  const std::uint64_t at = std::uint64_t{i} * 10 + 1;
  const std::uint32_t here = numbers_[0];
  switch (way_.stranger) {
    case Stranger::kEmptyInARow:
      if (i != 500) return;
      for (std::uint32_t k = 1; k <= 10; ++k) Arrive(at, here + k * 10'000'000, 0, 0);
      return;
    case Stranger::kFarAndNear:
      Arrive(at, i % 2000 == 500 ? here + 20 : here + 5'000'000 + i, 1, 0);
      return;
    case Stranger::kShortRuns:
      for (std::uint32_t k = 0; k < 6; ++k) Arrive(at, here + 0x20000000 + k * 9, 9, 0);
      return;
    case Stranger::kNone:
      return;
  }
}

class SequenceSimulator : public testing::TestWithParam<Way> {};

TEST_P(SequenceSimulator, TellsWhatWasLost) {
  const Way& way = GetParam();
  Simulation simulation(way);
  simulation.Run();
  const auto lost = static_cast<double>(simulation.lost);
  const auto sent = static_cast<double>(simulation.sent);
  const auto check = [&](const char* what, const SequenceGaps& told) {
    const double error = (static_cast<double>(told.Lost()) - lost) / (lost > 0 ? lost : sent);
    std::printf("%-22s %-9s sent %6.0f lost %6.0f told %6.0f jumps %2.0f restarts %2.0f %+.3f %%\n",
                way.name, what, sent, lost, static_cast<double>(told.Lost()),
                static_cast<double>(told.jumps), static_cast<double>(told.restarts), error * 100);
    EXPECT_LE(std::abs(error), way.largest_error);
    if (way.restart_after == 0) {
      EXPECT_EQ(told.jumps, way.jumps);
      EXPECT_EQ(told.restarts, 0U);
    } else {  // where both runs mix, a restart looks like a jump, or like both
      const std::uint32_t restarts = (Simulation::kDatagrams - 1) / way.restart_after;
      EXPECT_GE(told.jumps + told.restarts, restarts);
      EXPECT_LE(told.jumps + told.restarts, restarts + way.jumps);
    }
  };
  check(UnitOf(way.version).data(), simulation.told);
  if (way.version == kSFlow) check("samples", simulation.told_samples);
}

void PrintTo(const Way& way, std::ostream* out) { *out << way.name; }

INSTANTIATE_TEST_SUITE_P(, SequenceSimulator, testing::ValuesIn(kWays),
                         [](const auto& row) { return std::string(row.param.name); });

// A flood of made-up sources leaves those alone that send, and the datagrams' own numbers.
TEST(SequenceFlood, LeavesSettledStreamsAlone) {
  constexpr std::uint32_t kFlood = 82;
  constexpr std::uint32_t kMadeUp = 3200;  // in a datagram
  SequenceTracker tracker;
  SequenceGaps gaps;
  SequenceGaps samples;
  const auto send = [&](std::span<const std::uint8_t> bytes) {
    tracker.Take({{}, kSFlow, 0, bytes, std::nullopt}, &gaps, &samples);
  };
  for (std::uint32_t number = 1; number <= 5; ++number)
    send(Datagram(kSFlow, 0, number, 1).Bytes());
  const Datagram pattern(kSFlow, 0, 0, 1);
  const auto sample = pattern.Bytes().subspan(kSFlowHeader);
  std::vector<std::uint8_t> flood(pattern.bytes.begin(), pattern.bytes.end());
  for (std::uint32_t i = 1; i < kMadeUp; ++i)
    flood.insert(flood.end(), sample.begin(), sample.end());
  for (std::uint32_t i = 0; i < kFlood; ++i) {
    flood[19] = static_cast<std::uint8_t>(6 + i);
    for (std::uint32_t k = 0; k < kMadeUp; ++k) {
      std::uint8_t* const source = flood.data() + kSFlowHeader + k * kSFlowSample + 12;
      source[1] = static_cast<std::uint8_t>(1 + i);
      source[2] = static_cast<std::uint8_t>(k >> 8);
      source[3] = static_cast<std::uint8_t>(k);
    }
    send(flood);
  }
  EXPECT_EQ(tracker.Evicted(), kFlood * kMadeUp + 1 - SequenceTracker::kMostSampleStreams);
  EXPECT_EQ(samples.Lost(), 0U);
  send(Datagram(kSFlow, 0, 6 + kFlood, 1).Bytes());
  EXPECT_EQ(gaps.Lost(), 0U);
  EXPECT_EQ(samples.Lost(), kFlood);
}

TEST(StreamTables, LetTheLongestSilentGo) {
  StreamTable table(16);
  SequenceGaps gaps;
  std::uint32_t number = 0;
  const auto use = [&](std::uint64_t from, std::uint64_t to, int times) {
    for (int i = 0; i < times; ++i, ++number) {
      for (std::uint64_t key = from; key < to; ++key) table.Of(key).Take({number, 1}, &gaps);
    }
  };
  // A stream that is known misses what others were given meanwhile; a fresh one misses nothing.
  const auto is_known = [&](std::uint64_t key) {
    const std::uint64_t before = gaps.missing;
    table.Of(key).Take({number += 2, 1}, &gaps);
    return gaps.missing > before;
  };
  use(0, 14, 4);
  use(100, 200, 1);  // 98 of them came and went
  EXPECT_EQ(table.evicted(), 98U);
  EXPECT_TRUE(is_known(0));
  EXPECT_TRUE(is_known(199));
  use(200, 202, 4);  // the longest silent make room for those that settle
  EXPECT_EQ(table.size(), 16U);
  use(202, 203, 1);
  EXPECT_FALSE(is_known(1));
  EXPECT_TRUE(is_known(0));
  EXPECT_TRUE(is_known(200));
  EXPECT_TRUE(is_known(13));
}

// Streams that send just enough to settle come and go beside one that pauses.
TEST(StreamTables, KeepTheStreamThatHasSentMuch) {
  StreamTable table(16);
  SequenceGaps gaps;
  for (std::uint32_t number = 0; number < 1000; ++number) table.Of(1).Take({number, 1}, &gaps);
  for (std::uint64_t key = 100; key < 1000; ++key) {
    for (std::uint32_t number = 0; number < 4; ++number) table.Of(key).Take({number, 1}, &gaps);
  }
  table.Of(1).Take({1010, 1}, &gaps);
  EXPECT_EQ(gaps.missing, 10U);
}

}  // namespace
}  // namespace flow::host
