// SPDX-License-Identifier: Apache-2.0
#include "util/bounded_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace {

// A destination on the heap of exactly the capacity, so that a byte too many is noticed.
class Destination {
 public:
  explicit Destination(std::size_t capacity, const char* content = "")
      : capacity_(capacity), bytes_(new char[capacity]) {
    std::memset(bytes_.get(), '#', capacity);
    std::memcpy(bytes_.get(), content, std::min(capacity, std::strlen(content) + 1));
  }
  char* get() const { return bytes_.get(); }
  std::size_t capacity() const { return capacity_; }

  // The text up to its end, or a mark when there is none.
  std::string Text() const {
    const std::size_t length = strnlen(bytes_.get(), capacity_);
    return length == capacity_ ? "not terminated" : std::string(bytes_.get(), length);
  }

 private:
  std::size_t capacity_;
  std::unique_ptr<char[]> bytes_;
};

struct FitCase {
  std::size_t capacity;
  const char* stored;
};
constexpr FitCase kFitCases[] = {{1, ""}, {2, "p"}, {7, "port=8"}, {8, "port=80"}, {9, "port=80"}};

TEST(BoundedText, PrintAndCopyStoreWhatFits) {
  for (const FitCase& row : kFitCases) {
    SCOPED_TRACE(row.capacity);
    const int length = static_cast<int>(std::strlen(row.stored));
    Destination dst(row.capacity);
    EXPECT_EQ(_stprintf_s(dst.get(), dst.capacity(), "%s=%d", "port", 80), length);
    EXPECT_EQ(dst.Text(), row.stored);

    Destination second(row.capacity);
    EXPECT_EQ(sprintf_s(second.get(), second.capacity(), "%s=%d", "port", 80), length);
    EXPECT_EQ(second.Text(), row.stored);

    Destination third(row.capacity);
    EXPECT_EQ(_tcscpy_s(third.get(), third.capacity(), "port=80"), third.get());
    EXPECT_EQ(third.Text(), row.stored);
  }
}

TEST(BoundedText, AppendStoresWhatFitsBehindTheText) {
  struct {
    std::size_t capacity;
    const char* before;
    const char* src;
    const char* after;
  } const kCases[] = {
      {8, "", "abc", "abc"},      {8, "abc", "defg", "abcdefg"}, {7, "abc", "defg", "abcdef"},
      {4, "abc", "defg", "abc"},  {8, "abc", nullptr, "abc"},    {1, "", "abc", ""},
      {3, "abcdef", "ghi", "ab"},  // came without a terminator
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.before);
    Destination dst(row.capacity, row.before);
    EXPECT_EQ(_tcscat_s(dst.get(), dst.capacity(), row.src), dst.get());
    EXPECT_EQ(dst.Text(), row.after);
  }
}

TEST(BoundedText, NoCapacityWritesNothing) {
  char dst[] = "kept";
  EXPECT_EQ(_stprintf_s(dst, 0, "%d", 1), 0);
  EXPECT_EQ(sprintf_s(dst, 0, "%d", 1), 0);
  EXPECT_EQ(_tcscpy_s(dst, 0, "x"), dst);
  EXPECT_EQ(_tcscat_s(dst, 0, "x"), dst);
  EXPECT_STREQ(dst, "kept");
}

TEST(BoundedText, ScanCountsTheFieldsConverted) {
  int a = 0;
  unsigned index = 0;
  EXPECT_EQ(_stscanf_s("10_7", "%d_%u", &a, &index), 2);
  EXPECT_EQ(a, 10);
  EXPECT_EQ(index, 7U);
  EXPECT_EQ(_stscanf_s("11/8", "%d_%u", &a, &index), 1);
  EXPECT_EQ(_stscanf_s("x", "%d", &a), 0);
  EXPECT_EQ(_stscanf_s("", "%d", &a), EOF);
}

}  // namespace
