// SPDX-License-Identifier: Apache-2.0
// Sequence numbers: what is a gap and what is not.

#include "host/intake/sequence.h"

#include <gtest/gtest.h>

#include <vector>

namespace flow::host {
namespace {

struct Number {
  std::uint32_t number;
  int units = 1;  // -1 where it is not known
};

struct Case {
  const char* name;
  std::vector<Number> numbers;
  std::uint64_t lost;
  std::uint64_t gaps = 0;
  std::uint64_t late = 0;
  std::uint64_t restarts = 0;
  std::uint64_t jumps = 0;
};

std::vector<Number> Then(std::vector<Number> numbers, std::uint32_t from, std::uint32_t to) {
  for (; from < to; ++from) numbers.push_back({from});
  return numbers;
}

const Case kCases[] = {
    {"Whole", {{100, 30}, {130, 30}, {160, 5}, {165}}, 0},
    {"OneLost", {{100, 30}, {160, 30}, {190, 30}}, 30, 1},
    {"AroundTheEnd", {{0xFFFFFFF0, 30}, {14, 30}, {54, 30}}, 10, 1},
    {"LateByOne", {{1}, {2}, {4}, {3}, {5}}, 0, 1, 1},
    {"LateFromNowhere", {{1}, {2}, {3}, {5}, {2}, {6}}, 1, 1, 1},
    {"SeveralGapsOpen", {{1}, {3}, {5}, {7}, {9}, {6}, {2}, {4}, {10}}, 1, 4, 3},
    {"LateInTheMiddle", {{10, 10}, {50, 10}, {30, 10}, {20, 10}, {60, 10}}, 10, 1, 2},
    {"LateAcrossTwoGaps", {{10, 10}, {25, 1}, {30, 10}, {20, 12}, {40, 1}}, 0, 2, 1},
    {"Restarted", {{500'000, 30}, {0, 30}, {30, 30}, {90, 30}, {120, 30}, {150, 30}}, 30, 1, 0, 1},
    {"RestartedNearby", Then({{50}, {51}, {0}, {1}, {4}, {3}}, 5, 20), 1, 1, 17, 1},
    {"EverythingTwice", {{7}, {7}, {8}, {8}, {10}, {10}, {11}, {11}}, 1, 1, 4},
    {"TwiceInBatches", {{1}, {2}, {4}, {5}, {6}, {1}, {2}, {3}, {4}, {5}, {6}, {8}}, 1, 2, 6},
    {"LongBatchAgain", Then(Then(Then({}, 0, 60), 10, 40), 62, 70), 2, 1, 16, 1},
    // A gap too wide to be taken on one number's word, and what others make up.
    {"ManyLost", {{0}, {600}, {601}, {602}, {603}, {604}}, 599, 1},
    {"ManyLostAndLate", {{0}, {600}, {603}, {598}, {602}, {604}, {605}, {601}}, 598, 3, 1},
    {"FarAhead", {{1}, {1U << 30}, {(1U << 30) + 1}, {2}, {3}}, 0, 0, 0, 0, 1},
    {"FarAheadForGood",
     {{1}, {1U << 30}, {(1U << 30) + 1}, {(1U << 30) + 2}, {(1U << 30) + 3}},
     0,
     0,
     0,
     0,
     1},
    {"ThereAndBack", {{1}, {90'000}, {90'001}, {90'002}, {90'003}, {2}, {4}, {5}}, 1, 1, 0, 0, 1},
    {"TwoInTurns",
     {{1}, {90'000}, {2}, {90'001}, {3}, {90'003}, {4}, {90'004}, {6}, {90'005}},
     2,
     2,
     0,
     0,
     1},
    {"MadeUpTenTimes",
     {{0, 30},
      {10'000'000, 0},
      {20'000'000, 0},
      {30'000'000, 0},
      {30, 30},
      {40'000'000, 0},
      {60, 30},
      {50'000'000, 0},
      {150, 30}},
     60,
     1,
     0,
     0,
     5},
    // Numbers that count what goes with them as well.
    {"Included", {{1, 1}, {2, 1}, {5, 3}, {6, 1}, {10, 4}}, 0},
    {"IncludedOneLost", {{10, 10}, {13, 3}, {18, 5}, {30, 4}}, 8, 1},
    {"IncludedByChance", {{0, 10}, {10, 30}, {40, 10}, {70, 30}, {100, 10}}, 20, 1},
    // Numbers that count messages, where they should count records.
    {"Messages", {{1, 20}, {2, 22}, {3, 7}, {4, 1}}, 0},
    {"MessagesOneLost", {{1, 20}, {2, 22}, {3, 5}, {5, 7}, {6, 9}}, 1, 1},
    {"UnknownUnits", {{10, 5}, {15, -1}, {40, 5}, {45, 5}, {51, 5}}, 1, 1},
};

class SequenceStreams : public testing::TestWithParam<Case> {};

TEST_P(SequenceStreams, Count) {
  SequenceStream stream;
  SequenceGaps gaps;
  for (const Number& number : GetParam().numbers) {
    std::optional<std::uint32_t> units;
    if (number.units >= 0) units = static_cast<std::uint32_t>(number.units);
    stream.Take({number.number, units}, &gaps);
  }
  EXPECT_EQ(gaps.Lost(), GetParam().lost);
  EXPECT_EQ(gaps.gaps, GetParam().gaps);
  EXPECT_EQ(gaps.late, GetParam().late);
  EXPECT_EQ(gaps.restarts, GetParam().restarts);
  EXPECT_EQ(gaps.jumps, GetParam().jumps);
}

// What lies between the numbers that are noted, less what came, is what was lost: in whatever spans
// of time it is told.
TEST_P(SequenceStreams, AreNoted) {
  for (const int takes : {1000, 1}) {
    SequenceTracker tracker;
    tracker.NoteNumbers();
    SequenceGaps gaps;
    std::vector<StreamNumbers> noted;
    int taken = 0;
    for (const Number& number : GetParam().numbers) {
      std::uint8_t header[16] = {0, 10, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7};
      for (int i = 0; i < 4; ++i) {
        header[8 + i] = static_cast<std::uint8_t>(number.number >> (24 - 8 * i));
      }
      std::optional<std::uint32_t> units;
      if (number.units >= 0) units = static_cast<std::uint32_t>(number.units);
      tracker.Take({{}, {false, 10}, 0, header, units}, &gaps, &gaps);
      if (++taken % takes != 0) continue;
      for (const StreamNumbers& one : tracker.TakeNumbers()) noted.push_back(one);
    }
    for (const StreamNumbers& one : tracker.TakeNumbers()) noted.push_back(one);
    std::int64_t lost = 0;
    for (std::size_t i = 0; i < noted.size(); ++i) {
      const bool goes_on = i > 0 && noted[i].run == noted[i - 1].run;
      const std::uint32_t from = goes_on ? noted[i - 1].next : noted[i].first;
      lost += std::int64_t{noted[i].next - from} - static_cast<std::int64_t>(noted[i].came);
    }
    EXPECT_EQ(lost, static_cast<std::int64_t>(GetParam().lost)) << takes << " at a time";
  }
}

void PrintTo(const Case& row, std::ostream* out) { *out << row.name; }

INSTANTIATE_TEST_SUITE_P(, SequenceStreams, testing::ValuesIn(kCases),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace flow::host
