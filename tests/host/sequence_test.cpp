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
};

const Case kCases[] = {
    {"Whole", {{100, 30}, {130, 30}, {160, 5}, {165}}, 0},
    {"OneLost", {{100, 30}, {160, 30}, {190, 30}}, 30, 1},
    {"AroundTheEnd", {{0xFFFFFFF0, 30}, {14, 30}, {54, 30}}, 10, 1},
    {"LateByOne", {{1}, {2}, {4}, {3}, {5}}, 0, 1, 1},
    {"LateFromNowhere", {{1}, {2}, {3}, {5}, {2}, {6}}, 1, 1, 1},
    {"Restarted", {{500'000, 30}, {0, 30}, {30, 30}}, 0, 0, 0, 1},
    {"FarAhead", {{1}, {1U << 30}, {(1U << 30) + 1}}, 0, 0, 0, 1},
    {"EverythingTwice", {{7}, {7}, {8}, {8}, {10}, {10}, {11}, {11}}, 1, 1, 4},
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
    stream.Take(number.number, units, &gaps);
  }
  EXPECT_EQ(gaps.Lost(), GetParam().lost);
  EXPECT_EQ(gaps.gaps, GetParam().gaps);
  EXPECT_EQ(gaps.late, GetParam().late);
  EXPECT_EQ(gaps.restarts, GetParam().restarts);
}

void PrintTo(const Case& row, std::ostream* out) { *out << row.name; }

INSTANTIATE_TEST_SUITE_P(, SequenceStreams, testing::ValuesIn(kCases),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace flow::host
