// SPDX-License-Identifier: Apache-2.0
#include "config/home_as_feed.h"

#include <glob.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/policy_file.h"
#include "tests/support/recording_host.h"

namespace flow::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kNoFile[] = "Log 4 Glob cannot find any data files for use";
const std::string kChecking = "Log 7 HOMEASREFRESH: Checking for new HomeASNumbersFile current=";
const std::string kStaying =
    "Log 7 HOMEASREFRESH: No new HomeASNumbersFile available, staying with ";

struct NameCase {
  const char* name;
  std::vector<std::string> files;
  std::string newest;  // empty: none
};

class NewestFeedFile : public testing::TestWithParam<NameCase> {};

TEST_P(NewestFeedFile, HasTheLargestNumber) {
  const NameCase& row = GetParam();
  const TempDirectory directory;
  for (const std::string& file : row.files) WriteFile(directory.Path(file), "");
  RecordingHost host;
  const std::string newest = GetLatestFile(directory.Path(), "feed", host.Site());
  EXPECT_EQ(newest, row.newest.empty() ? "" : directory.Path(row.newest));
  EXPECT_EQ(host.TakeText(), row.newest.empty() ? std::string(kNoFile) + "\n" : "");
}

INSTANTIATE_TEST_SUITE_P(
    Names, NewestFeedFile,
    testing::ValuesIn<NameCase>({
        {"NoFile", {}, ""},
        {"ByNumberNotByText", {"incoming_5_feed", "incoming_12_feed"}, "incoming_12_feed"},
        {"LeadingZeroIsOctal", {"incoming_010_feed", "incoming_9_feed"}, "incoming_9_feed"},
        {"Hexadecimal", {"incoming_0x20_feed", "incoming_31_feed"}, "incoming_0x20_feed"},
        {"TheNumberEndsAtItsFirstLetter",
         {"incoming_12x_feed", "incoming_11_feed"},
         "incoming_12x_feed"},
        {"ZeroQualifies", {"incoming_0_feed"}, "incoming_0_feed"},
        {"NoNumberIsZero", {"incoming__feed", "incoming_1_feed"}, "incoming_1_feed"},
        {"NoNumberQualifies", {"incoming_new_feed"}, "incoming_new_feed"},
        {"NumbersAbove32Bits",
         {"incoming_4294967297_feed", "incoming_2_feed"},
         "incoming_4294967297_feed"},
        {"OtherNamesAreNoFeed",
         {"incoming_feed", "incoming_9_feed2", "incoming_9_FEED", "outgoing_9_feed", "feed"},
         ""},
        {"TheFeedNameMayFollowMore", {"incoming_3_other_feed"}, "incoming_3_other_feed"},
    }),
    [](const auto& row) { return std::string(row.param.name); });

// Of equal numbers the file that comes last in the directory's own order wins, whatever that is. A
// directory named like a feed file gives all files in it the same number.
TEST(NewestFeedFileOfEqualNumbers, IsTheLastOne) {
  for (int i = 0; i < 10; ++i) {
    const TempDirectory parent;
    const bool named = i % 2 == 0;
    const std::string directory = parent.Path(named ? "incoming_7_data" : "data");
    std::filesystem::create_directory(directory);
    for (const char letter : {'a', 'b', 'c', 'd'}) {
      const std::string name = (named ? std::to_string(letter) : "12") + letter + std::to_string(i);
      WriteFile(directory + "/incoming_" + name + "_feed", "");
    }
    glob_t found = {};
    ASSERT_EQ(glob((directory + "/*").c_str(), GLOB_NOSORT, nullptr, &found), 0);
    ASSERT_EQ(found.gl_pathc, 4U);
    const std::string last = found.gl_pathv[3];
    globfree(&found);
    RecordingHost host;
    EXPECT_EQ(GetLatestFile(directory, "feed", host.Site()), last);
  }
}

// A feed in a data directory of its own, with an availability directory beside it. The set holds
// 42 at the start.
class Feed : public testing::Test {
 protected:
  Feed() {
    numbers_.Insert(42);
    feed_.SetDataDirectory(data_.Path().c_str());
  }

  std::string WriteFeed(const std::string& number, const std::string& content) {
    const std::string path = data_.Path("incoming_" + number + "_feed");
    WriteFile(path, content);
    return path;
  }
  bool Load() { return feed_.LoadHomeNetsFromLatestFile("feed", host_.Site(), &numbers_); }
  std::vector<std::string> Check(std::uint64_t now) {
    feed_.Check(now, "feed", host_.Site(), &numbers_);
    return host_.Take();
  }
  void ExpectNumbers(const std::vector<std::uint32_t>& numbers) const {
    EXPECT_EQ(numbers_.Size(), numbers.size());
    for (const std::uint32_t number : numbers) EXPECT_TRUE(numbers_.Contains(number)) << number;
  }
  static std::string Loading(const std::string& path) {
    return "Log 7 FLOW: loading home as numbers from AS file " + path;
  }

  RecordingHost host_;
  TempDirectory data_;
  TempDirectory available_;
  HomeAsFeed feed_{available_.Path()};
  FlatSet<std::uint32_t> numbers_;
};

std::string Counted(std::size_t count) {
  return "Log 7 FLOW: loading Home and Downstream AS numbers count=" + std::to_string(count);
}
std::string Skipped(const std::string& line) {
  return "Log 5 FLOW: downstream_origin_as : skipping invalid as number [" + line + "] ";
}

struct ContentCase {
  const char* name;
  std::string content;
  std::vector<std::uint32_t> numbers;
  std::vector<std::string> log;  // after the message that names the file
};

class FeedContent : public Feed, public testing::WithParamInterface<ContentCase> {};

TEST_P(FeedContent, IsRead) {
  const ContentCase& row = GetParam();
  const std::string path = WriteFeed("1", row.content);
  EXPECT_TRUE(Load());
  ExpectNumbers(row.numbers);
  std::vector<std::string> expected = {Loading(path)};
  expected.insert(expected.end(), row.log.begin(), row.log.end());
  EXPECT_THAT(host_.Take(), ElementsAreArray(expected));
  Check(1);  // the file is in use even when it brought nothing
  EXPECT_EQ(Check(1802).front(), kChecking + path);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, FeedContent,
    testing::ValuesIn<ContentCase>({
        {"AllKinds",
         "# comment\n\n64512\n65000 trailing text\nabc\n # 5\n \t7\n+8\n-1\n010\n0x20\n",
         {64512, 65000, 7, 8, 4294967295, 10},
         {Skipped("abc"), Skipped(" # 5"), Counted(6)}},
        {"CarriageReturnsAndNoLastLineFeed",
         "64512\r\n\r\n1",
         {64512, 1},
         {Skipped("\\r"), Counted(2)}},
        {"CutTo32BitsAndZeroSkippedSilently", "4294967297\n1\n0\n4294967296\n", {1}, {Counted(1)}},
        {"SixtyFourBitsAreTheMost",
         "18446744073709551615\n18446744073709551616\n99999999999999999999999\n",
         {4294967295},
         {Skipped("18446744073709551616"), Skipped("99999999999999999999999"), Counted(1)}},
        {"AnEmptyFileKeepsTheSet", "", {42}, {}},
        {"AFileWithoutNumbersKeepsTheSet", "# none\n0\nnone\n", {42}, {Skipped("none")}},
    }),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(Feed, WithoutAFileForgetsTheFileButNotTheNumbers) {
  const std::string path = WriteFeed("1", "7\n");
  EXPECT_TRUE(Load());
  std::remove(path.c_str());
  host_.Forget();
  EXPECT_TRUE(Load());
  ExpectNumbers({7});
  EXPECT_THAT(host_.Take(), ElementsAre(kNoFile));
  Check(1);
  EXPECT_EQ(Check(1802).front(), kChecking);
}

TEST_F(Feed, ThatCannotBeOpenedKeepsNumbersAndFile) {
  const std::string first = WriteFeed("1", "7\n");
  EXPECT_TRUE(Load());
  host_.Forget();
  const std::string dangling = data_.Path("incoming_2_feed");
  std::filesystem::create_symlink(data_.Path("nowhere"), dangling);
  EXPECT_FALSE(Load());
  ExpectNumbers({7});
  EXPECT_THAT(host_.Take(),
              ElementsAre(Loading(dangling), "Log 4 FLOW: Error loading home AS Number feed file"));
  Check(1);
  EXPECT_EQ(Check(1802).front(), kChecking + first);
}

TEST_F(Feed, IsCheckedWhenMoreThanHalfAnHourHasPassed) {
  const struct {
    std::uint64_t now;
    bool looks;
  } steps[] = {
      {0, false},    {1000, false}, {2800, false}, {2801, true},
      {2802, false}, {4601, false}, {4602, true},  {4601, true},  // a clock set back looks at once
      {4601, false},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.now);
    const auto lines = Check(step.now);
    if (step.looks) {
      EXPECT_THAT(lines, ElementsAre(kChecking, kNoFile, kStaying));
    } else {
      EXPECT_THAT(lines, IsEmpty());
    }
  }
}

// News is seen in the one directory, numbers come from the other.
TEST_F(Feed, MovesToWhatIsNewInTheAvailabilityDirectory) {
  const std::string first = WriteFeed("1", "7\n");
  EXPECT_TRUE(Load());
  host_.Forget();
  Check(1);
  WriteFile(available_.Path("incoming_2_feed"), "100\n");
  const std::string second = WriteFeed("2", "8\n9\n");
  const std::string moved = "Log 7 HOMEASREFRESH: Moved to newer HomeASNumbersFile=";
  EXPECT_THAT(Check(2000),
              ElementsAre(kChecking + first, Loading(second), Counted(2), moved + second));
  ExpectNumbers({8, 9});
  // The file there is never the one in use, so every check loads again.
  EXPECT_THAT(Check(4000),
              ElementsAre(kChecking + second, Loading(second), Counted(2), moved + second));
  std::filesystem::remove(second);
  std::filesystem::create_symlink(data_.Path("nowhere"), second);
  EXPECT_THAT(Check(6000),
              ElementsAre(kChecking + second, Loading(second),
                          "Log 4 FLOW: Error loading home AS Number feed file", moved + second));
  ExpectNumbers({8, 9});
}

TEST_F(Feed, StaysWithTheFileThatTheAvailabilityDirectoryShows) {
  feed_.SetDataDirectory(available_.Path().c_str());
  const std::string path = available_.Path("incoming_2_feed");
  WriteFile(path, "8\n");
  EXPECT_TRUE(Load());
  host_.Forget();
  Check(1);
  EXPECT_THAT(Check(2000), ElementsAre(kChecking + path, kStaying + path));
  feed_.Check(4000, "", host_.Site(), &numbers_);  // without a name nothing is new
  EXPECT_EQ(host_.Take().size(), 2U);
}

}  // namespace
}  // namespace flow::test
