// SPDX-License-Identifier: Apache-2.0
#include "config/change_checker.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/policy_file.h"

namespace flow::test {
namespace {

constexpr std::int64_t kRemoved = -1;

// One question, before which the file may get another modification time.
struct Question {
  std::optional<std::int64_t> modified;  // or kRemoved
  unsigned int now;
  bool answer;
};
constexpr std::nullopt_t kSame = std::nullopt;

struct Case {
  const char* name;
  int interval;
  std::vector<Question> questions;  // the file is of time 5000 before the first
};

class ChangeChecker : public testing::TestWithParam<Case> {};

TEST_P(ChangeChecker, Answers) {
  const PolicyFile file;
  SetModificationTime(file.Path(), 5000);
  CPeriodicFileModifyChecker checker(file.Path().c_str(), GetParam().interval);
  for (const Question& question : GetParam().questions) {
    if (question.modified == kRemoved) {
      ASSERT_EQ(std::remove(file.Path().c_str()), 0);
    } else if (question.modified) {
      WriteFile(file.Path(), "");
      SetModificationTime(file.Path(), *question.modified);
    }
    EXPECT_EQ(checker.IsTimeToExecute(question.now), question.answer) << "at " << question.now;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Watching, ChangeChecker,
    testing::ValuesIn<Case>({
        {"FirstQuestionTakesTheBaseline", 60, {{6000, 100, false}, {kSame, 200, false}}},
        {"LooksAtTheEndOfTheInterval",
         60,
         {{kSame, 100, false}, {6000, 159, false}, {kSame, 160, true}, {kSame, 161, false}}},
        {"ReportsAChangeOnce",
         60,
         {{kSame, 100, false}, {6000, 160, true}, {kSame, 220, false}, {kSame, 280, false}}},
        {"TwoEditsInOneIntervalAreOne",
         60,
         {{kSame, 100, false}, {6000, 130, false}, {6001, 170, true}, {kSame, 230, false}}},
        {"ALookWithoutAChangeStartsANewInterval",
         60,
         {{kSame, 100, false}, {kSame, 160, false}, {6000, 219, false}, {kSame, 220, true}}},
        {"BackwardsIsNoChange",
         60,
         {{kSame, 100, false}, {4000, 160, false}, {4999, 220, false}, {5001, 280, true}}},
        {"ARemovedFileIsNoChange",
         60,
         {{kSame, 100, false}, {kRemoved, 160, false}, {5000, 220, false}, {5001, 280, true}}},
        {"OffWithoutAnInterval", 0, {{kSame, 100, false}, {6000, 1000, false}}},
        {"TimeZeroIsNoBaseline",
         60,
         {{kSame, 0, false}, {6000, 0, false}, {kSame, 100, false}, {kSame, 160, false}}},
        {"TheClockMayWrapAround",
         60,
         {{kSame, 0xFFFFFFE0, false}, {6000, 0x1B, false}, {kSame, 0x1C, true}}},
        {"AClockSetBackLooksAtOnce", 60, {{kSame, 1000, false}, {6000, 999, true}}},
    }),
    [](const auto& row) { return std::string(row.param.name); });

TEST(ChangeCheckerState, IsLeftBehindByACopyAndTakenAlongByAssignment) {
  const PolicyFile file;
  SetModificationTime(file.Path(), 5000);
  CPeriodicFileModifyChecker checker(file.Path().c_str(), 60);
  EXPECT_FALSE(checker.IsTimeToExecute(100));
  SetModificationTime(file.Path(), 6000);

  CPeriodicFileModifyChecker copy(checker);
  EXPECT_FALSE(copy.IsTimeToExecute(160)) << "a copy begins with a baseline";
  EXPECT_EQ(copy.File(), file.Path());
  CPeriodicFileModifyChecker assigned;
  EXPECT_FALSE(assigned.IsTimeToExecute(160)) << "off without a file";
  assigned = checker;
  EXPECT_TRUE(assigned.IsTimeToExecute(160));
  checker = CPeriodicFileModifyChecker(file.Path().c_str(), 60);
  EXPECT_FALSE(checker.IsTimeToExecute(160)) << "a fresh checker has never looked";
}

}  // namespace
}  // namespace flow::test
