// SPDX-License-Identifier: Apache-2.0
#include "util/bytes.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <vector>

namespace {

constexpr std::array<std::uint8_t, 8> kBytes = {0x81, 0x02, 0x83, 0x04, 0x85, 0x06, 0x87, 0x08};

TEST(Bytes, LoadsAreBigEndianAndUnsigned) {
  EXPECT_EQ(LoadBe16(kBytes.data()), 0x8102U);
  EXPECT_EQ(LoadBe32(kBytes.data()), 0x81028304U);
  EXPECT_EQ(LoadBe64(kBytes.data()), 0x8102830485068708U);
  EXPECT_EQ(be16::FromHost(0x8102).ToHost(), 0x8102U);
  EXPECT_EQ(be32::FromHost(0x81028304).bytes[3], 0x04U);
  EXPECT_EQ(be32::FromHost(0x81028304).AsStored(),
            std::endian::native == std::endian::little ? 0x04830281U : 0x81028304U);
}

TEST(Bytes, GetVarIntKnowsFourWidths) {
  const std::uint64_t expected[] = {0, 0x81, 0x8102, 0, 0x81028304, 0, 0, 0, 0x8102830485068708};
  for (std::size_t width = 0; width < 9; ++width) {
    EXPECT_EQ(GetVarInt(width, kBytes.data()), expected[width]) << "width " << width;
  }
  EXPECT_EQ(GetVarInt(9, kBytes.data()), 0U);
  EXPECT_EQ(GetVarInt(3, nullptr), 0U) << "reads nothing";
}

// Over every length, in a heap block of exactly that length.
TEST(ByteCursor, TakesWhatIsThereAndElseChangesNothing) {
  for (std::size_t length = 0; length <= 5; ++length) {
    SCOPED_TRACE(length);
    const std::vector<std::uint8_t> bytes(kBytes.begin(), kBytes.begin() + length);
    ByteCursor cursor(bytes);
    std::uint32_t wide = 7;
    EXPECT_EQ(cursor.TakeBe32(&wide), length >= 4);
    EXPECT_EQ(wide, length >= 4 ? 0x81028304U : 7U);
    EXPECT_EQ(cursor.Remaining(), length >= 4 ? length - 4 : length);

    ByteCursor second(bytes);
    std::uint16_t narrow = 7;
    EXPECT_EQ(second.TakeBe16(&narrow), length >= 2);
    EXPECT_EQ(narrow, length >= 2 ? 0x8102U : 7U);
    EXPECT_EQ(second.Position(), bytes.data() + (length >= 2 ? 2 : 0));
  }
}

TEST(ByteCursor, RefusesLengthsThatWouldWrapAround) {
  ByteCursor cursor(kBytes);
  std::span<const std::uint8_t> out;
  EXPECT_FALSE(cursor.Take(SIZE_MAX, &out));
  EXPECT_FALSE(cursor.Take(9, &out));
  EXPECT_TRUE(out.empty());
  EXPECT_TRUE(cursor.Take(8, &out));
  EXPECT_EQ(out.size(), 8U);
  EXPECT_TRUE(cursor.Take(0, &out)) << "nothing fits where nothing is left";
  EXPECT_EQ(cursor.Remaining(), 0U);
}

}  // namespace
