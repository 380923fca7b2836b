// SPDX-License-Identifier: Apache-2.0
// What is stored of a field of each kind at any length, what a record holds where nothing was
// decoded, and the place of the next field.

#include "netflow/field_decoder.h"

#include <cstring>
#include <memory>

#include "tests/netflow/meter_test.h"

namespace flow::test {
namespace {

using R = flow::FlowRecord;

class FieldDecoderTest : public testing::Test {
 protected:
  // Decode has one field decoded, from a block of just its size.
  void Decode(std::uint16_t id, const Bytes& value, bool variable = false) {
    const auto block = std::make_unique<std::uint8_t[]>(value.size());
    std::ranges::copy(value, block.get());
    DecodeField(PlaceAt(RowOf(id)),
                {block.get(), static_cast<std::uint32_t>(value.size()), variable}, &state_);
  }
  const R& Decoded(std::uint16_t id, const Bytes& value, std::uint32_t enterprise = 25461) {
    StartRecord(&state_);
    state_.record.enterprise_id = enterprise;
    Decode(id, value, id == 32861);
    return state_.record;
  }

  NetflowPolicy policy_;
  RecordingHost host_;
  IOmbrelContainer* site_ = nullptr;
  HostLinks links_{.site = site_, .engine = host_.Engine()};
  RecordContext context_;
  SamplingRates rates_;
  DecodeState state_{.policy = policy_, .host = links_, .context = context_, .rates = rates_};
};

TEST_F(FieldDecoderTest, NumbersOfAnyLength) {
  const Bytes bytes = {0x81, 0x92, 0xA3, 0xB4, 0xC5, 0xD6, 0xE7, 0xF8, 0x09};
  const struct {
    std::uint16_t id;
    std::uint64_t (*member)(const R& r);
    std::uint64_t stored[4];  // of a field of 1, 2, 4 and 8 bytes
  } cases[] = {
      {4, [](const R& r) -> std::uint64_t { return r.protocol; }, {0x81, 0x92, 0xB4, 0xF8}},
      {7, [](const R& r) -> std::uint64_t { return r.src_port; }, {0x81, 0x8192, 0xA3B4, 0xE7F8}},
      {10,
       [](const R& r) -> std::uint64_t { return r.in_ifindex; },
       {0x81, 0x8192, 0x8192A3B4, 0xC5D6E7F8}},
      {32769,
       [](const R& r) { return r.rev_bytes; },
       {0x81, 0x8192, 0x8192A3B4, 0x8192A3B4C5D6E7F8}},
      {1, [](const R& r) { return r.bytes; }, {0x81, 0x8192, 0x8192A3B4, 0x8192A3B4C5D6E7F8}},
      {150,
       [](const R& r) -> std::uint64_t { return r.first; },
       {129000, 33170000, 0x24CF7720, 0xCF7A20C0}},
      {152, [](const R& r) -> std::uint64_t { return r.first; }, {0, 33, 2173871, 0x075DA7A7}},
  };
  for (const auto& row : cases) {
    std::size_t next = 0;
    for (std::size_t length = 0; length <= bytes.size(); ++length) {
      SCOPED_TRACE(testing::Message() << "element " << row.id << " length " << length);
      const bool is_number = length == 1 || length == 2 || length == 4 || length == 8;
      const Bytes value(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
      EXPECT_EQ(row.member(Decoded(row.id, value)), is_number ? row.stored[next++] : 0);
    }
  }
}

TEST_F(FieldDecoderTest, AddressesOfTheirOwnLengthAlone) {
  const struct {
    std::uint16_t id;
    std::size_t size;
    const std::uint8_t* (*member)(const R& r);
    int presence;
  } cases[] = {{56, 6, [](const R& r) { return r.src_mac; }, 1 << 8},
               {57, 6, [](const R& r) { return r.dst_mac; }, 1 << 8},
               {27, 16, [](const R& r) { return r.src_addr6; }, 1 << 7 | 1},
               {28, 16, [](const R& r) { return r.dst_addr6; }, 1 << 7 | 2}};
  for (const auto& row : cases) {
    for (std::size_t length = 0; length <= 17; ++length) {
      const R& r = Decoded(row.id, Bytes(length, 'x'));
      const bool is_stored = length == row.size;
      const Bytes expected(row.size, static_cast<std::uint8_t>(is_stored ? 'x' : 0));
      EXPECT_EQ(std::memcmp(row.member(r), expected.data(), row.size), 0)
          << row.id << " " << length;
      EXPECT_EQ(state_.presence, is_stored ? row.presence : 0) << row.id << " " << length;
    }
  }
}

TEST_F(FieldDecoderTest, TextsEndAtNulAndMayHaveToBePrintable) {
  const auto decode = [&](std::uint16_t id, const std::string& text, std::size_t width,
                          std::uint32_t enterprise = 25461) -> std::string {
    const R& r = Decoded(id, Wire().Text(text, width).Get(), enterprise);
    return std::string(r.if_name) + r.if_desc + r.vendor_text32 + r.vendor_text64;
  };
  const std::string nul("a\0b", 3);
  const std::string sixty_three(63, '~');
  EXPECT_EQ(decode(82, nul, 3), "a");
  EXPECT_EQ(decode(82, std::string(130, 'x'), 130), std::string(127, 'x'));
  EXPECT_EQ(decode(83, std::string(65534, 'x'), 65534), std::string(127, 'x'));
  EXPECT_EQ(decode(32861, nul, 3), "a");
  EXPECT_EQ(decode(32861, std::string(255, 'x'), 255), std::string(63, 'x'));
  EXPECT_EQ(decode(56701, "a\x01\xFF", 32), "a\x01\xFF");
  EXPECT_EQ(decode(56701, std::string(32, 'x'), 32), std::string(31, 'x'));
  EXPECT_EQ(decode(56701, "user", 31) + decode(56701, "user", 33), "");
  EXPECT_EQ(decode(56702, "a\x1F", 64), "");
  EXPECT_EQ(decode(56702, "a\x7F", 64), "");
  EXPECT_EQ(decode(56702, "\xE4", 64), "");
  EXPECT_EQ(decode(56702, " ~", 64), " ~");
  EXPECT_EQ(decode(56702, "app", 63) + decode(56702, "app", 65), "");
  EXPECT_EQ(decode(56702, std::string("a\0\x01", 3), 64), "a");
  EXPECT_EQ(decode(56702, sixty_three + "a", 64), sixty_three);
  EXPECT_EQ(decode(56702, sixty_three + "\x01", 64), "") << "of the byte that is not kept";
  EXPECT_EQ(decode(56701, "user", 32, 25462), "");
  EXPECT_EQ(decode(56702, "app", 64, 0), "");
}

// Whatever the record before has held, and whatever the same element has held before in this one.
TEST_F(FieldDecoderTest, ZeroWhereNothingWasDecoded) {
  const auto bytes = [](const R& r) {
    const auto* const first = reinterpret_cast<const std::uint8_t*>(&r);
    return Bytes(first, first + sizeof(r));
  };
  const Bytes start = bytes(Decoded(999, {}));
  for (const Element& element : Elements()) {
    SCOPED_TRACE(element.id);
    const auto id = static_cast<std::uint16_t>(element.id);
    for (const std::size_t length : {4, 6, 8, 16, 32, 64, 127})
      Decode(id, Bytes(length, 'x'), true);
    EXPECT_EQ(bytes(Decoded(999, {})), start);
  }
  const Bytes name = bytes(Decoded(82, {'e', 't', 'h'}));
  Decode(82, {'l', 'o', 'n', 'g', 'e', 'r'});
  Decode(82, {'e', 't', 'h'});
  EXPECT_EQ(bytes(state_.record), name);
}

// Whatever the length of a field, the next one is read right behind it.
TEST_F(MeterTest, FieldsInARow) {
  Start("<AllowVariableLengthStrings>true</AllowVariableLengthStrings>");
  const auto send = [&](std::uint16_t id, std::size_t length, const Wire& value) {
    Fields fields = {{id, static_cast<std::uint16_t>(length)}, {60, 1}};
    fields.insert(fields.end(), kFlowFields.begin(), kFlowFields.end());
    const Wire record = Wire(value).U8(4).Raw(FlowRecord().Get());
    host_.Forget();
    Send(V9(Learn(fields), Data(record).Record(record)));
    return Said();
  };
  const auto two_flows = testing::AllOf(
      testing::SizeIs(testing::Ge(2U)),
      testing::Contains(testing::StartsWith("6 10.0.0.1:51000 > 10.0.0.2:80 if 3 > 7")).Times(2));
  for (const Element& element : Elements()) {
    if (element.place.kind == FieldKind::kSkipped) continue;
    SCOPED_TRACE(element.id);
    const auto id = static_cast<std::uint16_t>(element.id);
    for (const std::size_t length : {0, 1, 3, 4, 8, 16, 65}) {
      const Wire value = Wire().Text(std::string(length, 'a'));
      EXPECT_THAT(send(id, length, value), two_flows) << length;
      const Wire variable = Wire().U8(static_cast<std::uint8_t>(length)).Raw(value.Get());
      EXPECT_THAT(send(id, kVariableLength, variable), two_flows) << "variable " << length;
    }
    EXPECT_THAT(send(id, 65534, Wire().Zeros(100)), testing::IsEmpty());
    EXPECT_THAT(send(id, kVariableLength, Wire().U8(255)), testing::IsEmpty());
    EXPECT_EQ(meter_->LastSetError(), SetError::kVariableOverflow);
  }
}

}  // namespace
}  // namespace flow::test
