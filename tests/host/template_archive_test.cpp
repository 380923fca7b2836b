// SPDX-License-Identifier: Apache-2.0
// Templates over a restart.

#include "host/intake/template_archive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "host/base/error.h"
#include "tests/host/captures.h"

namespace flow::host::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::int64_t kNow = 1'700'000'000;

// The message of a v9 template set from 192.0.2.1:50000 with these ids, all of field (1, size).
Bytes Message(std::initializer_list<std::uint8_t> ids, std::uint8_t size = 4) {
  Bytes set;
  for (const std::uint8_t id : ids) {
    set = set + Bytes{1, id, 0, 1, 0, 1, 0, size};
  }
  return FromHex("45000000 00000000 00110000 C0000201 0A000001 C350 0807 0000") +
         Bytes{0, static_cast<std::uint8_t>(set.size() + 4)} + set;
}

class Archive : public testing::Test {
 protected:
  Archive() : archive_(Directory()) { archive_.Open(); }

  [[nodiscard]] std::string Directory() const { return (folder_ / "state").string(); }
  static std::vector<Bytes> MessagesOf(const TemplateArchive& archive) {
    std::vector<Bytes> messages;
    for (const auto& message : archive.Messages()) messages.push_back(message->bytes);
    return messages;
  }
  // What another process finds in the directory.
  std::vector<Bytes> Reload(std::int64_t now = kNow) {
    TemplateArchive archive(Directory());
    trouble_.clear();
    archive.Load(now, &trouble_);
    return MessagesOf(archive);
  }

  const TemporaryFolder folder_;
  TemplateArchive archive_;
  std::string trouble_;
};

TEST_F(Archive, KeepsTheNewestMessageOfEachTemplate) {
  archive_.Note({Message({0, 1})}, kNow);
  archive_.Note({Message({2})}, kNow);
  archive_.Note({Message({2}, 8)}, kNow + 1);
  archive_.Note({Message({0}, 2)}, kNow + 1);
  archive_.Note({Bytes{1, 2, 3}}, kNow + 1);
  archive_.Save(kNow + 1);
  EXPECT_EQ(archive_.templates(), 3U);
  EXPECT_THAT(Reload(kNow + 1), ElementsAre(Message({0, 1}), Message({2}, 8), Message({0}, 2)));
  EXPECT_EQ(trouble_, "");
}

TEST_F(Archive, ForgetsWhatIsOld) {
  archive_.Note({Message({0})}, kNow);
  archive_.Note({Message({1})}, kNow + 1);
  archive_.Save(kNow + 1);
  EXPECT_THAT(Reload(kNow + 1 + TemplateArchive::kLongestSeconds), ElementsAre(Message({1})));
  EXPECT_THAT(Reload(kNow + 2 + TemplateArchive::kLongestSeconds), IsEmpty());
}

TEST_F(Archive, SetsADamagedFileAside) {
  archive_.Note({Message({0})}, kNow);
  archive_.Note({Message({1})}, kNow);
  archive_.Save(kNow);
  const std::string whole = ReadFile(archive_.path());
  struct {
    const char* name;
    std::string text;
    std::size_t kept;
  } const cases[] = {
      {"Cut", whole.substr(0, whole.size() - 6), 2},
      {"CutWithinAMessage", whole.substr(0, whole.size() - 20), 1},
      {"AnotherFormat", "other" + whole, 0},
      {"NoHex", whole.substr(0, whole.find(" 45") + 1) + "zz\nend 1\n", 0},
      {"Empty", "", 0},
      {"Zeros", std::string(100, '\0'), 0},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    WriteFile(archive_.path(), row.text);
    EXPECT_EQ(Reload().size(), row.kept);
    EXPECT_THAT(trouble_, HasSubstr("is damaged and now stands aside as "));
    EXPECT_EQ(ReadFile(archive_.path() + ".damaged-" + std::to_string(kNow)), row.text);
    EXPECT_FALSE(std::filesystem::exists(archive_.path()));
  }
}

TEST_F(Archive, ForgetsWhoIsGone) {
  Bytes other = Message({0});
  other[12] = 0xF0;  // of the exporter's address
  archive_.Note({Message({0})}, kNow);
  archive_.Note({other}, kNow);
  archive_.Save(kNow);
  archive_.Forget([](const IpAddress& exporter) { return exporter.Text() == "240.0.2.1"; });
  archive_.Save(kNow);
  EXPECT_THAT(Reload(), ElementsAre(Message({0})));
}

TEST_F(Archive, BelongsToOneProcess) {
  EXPECT_THROW(TemplateArchive(Directory()).Open(), HostError);
}

TEST_F(Archive, IsBounded) {
  Bytes vast = Message({0});
  vast.resize(TemplateArchive::kLongestMessage + 1);
  archive_.Note({vast}, kNow);
  EXPECT_EQ(archive_.templates(), 0U);
  EXPECT_TRUE(archive_.TakeOverflow());
  EXPECT_FALSE(archive_.TakeOverflow());
}

TEST_F(Archive, KeepsTheTemplatesOfWhoSendsRecordsThroughAFlood) {
  const auto flood = [&](bool sends_records) {
    Bytes message = Message({0});
    for (std::size_t i = 0; i <= TemplateArchive::kMostTemplates; ++i) {
      message[13] = 7;  // of the exporter's address
      message[14] = static_cast<std::uint8_t>(i >> 8);
      message[15] = static_cast<std::uint8_t>(i);
      archive_.Note({message}, kNow);
      if (sends_records) archive_.NoteUsed(ParseTemplateMessage(message, false)->owner.exporter);
    }
  };
  archive_.Note({Message({0})}, kNow);
  archive_.NoteUsed(ParseTemplateMessage(Message({0}), false)->owner.exporter);
  flood(false);
  EXPECT_LE(archive_.templates(), TemplateArchive::kMostTemplates);
  EXPECT_FALSE(archive_.TakeOverflow());
  flood(true);
  EXPECT_EQ(archive_.templates(), TemplateArchive::kMostTemplates);
  EXPECT_TRUE(archive_.TakeOverflow());
  EXPECT_FALSE(archive_.TakeOverflow());
  archive_.Note({Message({0}, 8)}, kNow);  // a known one can still be replaced
  EXPECT_EQ(archive_.templates(), TemplateArchive::kMostTemplates);
  EXPECT_THAT(archive_.Messages().back()->bytes, testing::ElementsAreArray(Message({0}, 8)));
}

TEST_F(Archive, KeepsWhatItHadWhereTheDiskIsFull) {
  archive_.Note({Message({0})}, kNow);
  archive_.Save(kNow);
  archive_.Note({Message({1})}, kNow);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit full{64, before.rlim_max};
  std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &full);
  EXPECT_THROW(archive_.Save(kNow), HostError);
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_THAT(Reload(), ElementsAre(Message({0})));
  EXPECT_FALSE(std::filesystem::exists(archive_.path() + ".part"));
  archive_.Save(kNow);
  EXPECT_THAT(Reload(), ElementsAre(Message({0}), Message({1})));
}

TEST_F(Archive, WritesOnlyNews) {
  archive_.Save(kNow);
  EXPECT_FALSE(std::filesystem::exists(archive_.path()));
  std::filesystem::remove_all(folder_ / "state");
  WriteFile(folder_ / "state", "no directory");
  EXPECT_THROW(TemplateArchive(Directory()).Open(), HostError);
  archive_.Note({Message({0})}, kNow);
  EXPECT_THROW(archive_.Save(kNow), HostError);
  std::filesystem::remove(folder_ / "state");
  TemplateArchive(Directory()).Open();
  archive_.Save(kNow);  // the news are still to be written
  EXPECT_THAT(Reload(), ElementsAre(Message({0})));
}

}  // namespace
}  // namespace flow::host::test
