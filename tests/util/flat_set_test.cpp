// SPDX-License-Identifier: Apache-2.0
#include "util/flat_set.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <set>
#include <utility>

namespace flow {
namespace {

// Random operations on keys from a small range, so that most are met again, beside std::set.
template <class Key>
void CompareWithStdSet(Key stride) {
  std::mt19937_64 random(stride);
  FlatSet<Key> set;
  std::set<Key> expected;
  for (int step = 0; step < 60'000; ++step) {
    const Key key = static_cast<Key>(random() % 3000) * stride;
    if (random() % 4096 == 0) {
      set.Clear();
      expected.clear();
    }
    ASSERT_EQ(set.Insert(key), expected.insert(key).second) << "step " << step;
    const Key other = static_cast<Key>(random() % 3000) * stride;
    ASSERT_EQ(set.Contains(other), expected.contains(other)) << "step " << step;
    ASSERT_EQ(set.Size(), expected.size());
    ASSERT_EQ(set.Empty(), expected.empty());
  }
  for (Key i = 0; i < 3000; ++i) {
    ASSERT_EQ(set.Contains(i * stride), expected.contains(i * stride)) << "key " << i * stride;
  }
}

TEST(FlatSet, AgreesWithStdSet) {
  CompareWithStdSet<std::uint32_t>(1);
  CompareWithStdSet<std::uint32_t>(1U << 20);  // keys that differ in their high bits alone
  CompareWithStdSet<std::uint64_t>(std::uint64_t{1} << 32 | 1);
}

TEST(FlatSet, TellsZeroAndTheLargestKeyFromAnEmptySlot) {
  FlatSet<std::uint64_t> set;
  for (const std::uint64_t key : {std::uint64_t{0}, UINT64_MAX}) {
    SCOPED_TRACE(key);
    EXPECT_FALSE(set.Contains(key));
    EXPECT_TRUE(set.Insert(key));
    EXPECT_FALSE(set.Insert(key));
    EXPECT_TRUE(set.Contains(key));
  }
  EXPECT_EQ(set.Size(), 2U);
  set.Clear();
  EXPECT_FALSE(set.Contains(0));
  EXPECT_TRUE(set.Empty());
}

TEST(FlatSet, IsEmptyAfterItWasMovedFrom) {
  FlatSet<std::uint32_t> set;
  for (const std::uint32_t key : {0U, 7U}) set.Insert(key);
  const FlatSet<std::uint32_t> taken = std::move(set);
  EXPECT_EQ(taken.Size(), 2U);
  EXPECT_TRUE(set.Empty());  // NOLINT(bugprone-use-after-move)
  EXPECT_FALSE(set.Contains(0));
  set = taken;
  EXPECT_TRUE(set.Contains(0) && set.Contains(7));
}

}  // namespace
}  // namespace flow
