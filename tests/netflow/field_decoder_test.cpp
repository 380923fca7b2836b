// Every decoded element at every kind of length: the values by themselves, and the place of the
// next field in a whole record.

#include "netflow/field_decoder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <set>
#include <variant>

#include "tests/netflow/meter_test.h"

namespace flow::test {
namespace {

using R = nf9_record;

// What is kept outside of the record.
enum class Beside { kAppTag, kAppName, kAppDesc, kVrf, kRate };

using Target = std::variant<std::uint64_t R::*, std::uint32_t R::*, std::uint16_t R::*,
                            std::uint8_t R::*, std::uint8_t (R::*)[16], std::uint8_t (R::*)[6],
                            char (R::*)[129], char (R::*)[65], char (R::*)[33], Beside>;

struct Element {
  std::uint16_t id;
  std::size_t normal;  // length
  Target target;
  int presence = 0;
  std::uint64_t (*value)(std::uint64_t) = [](std::uint64_t number) { return number; };
};

std::uint64_t Low32(std::uint64_t number) { return number & 0xFFFFFFFF; }
std::uint64_t Times1000(std::uint64_t number) { return number * 1000; }
std::uint64_t Thousandth(std::uint64_t number) { return number / 1000; }
std::uint64_t Six(std::uint64_t /*number*/) { return 6; }

// clang-format off
const Element kElements[] = {
    {1, 4, &R::bytes, 0, Low32},          {2, 4, &R::packets, 0, Low32},
    {4, 1, &R::protocol},                 {6, 1, &R::tcp_flags},
    {7, 2, &R::src_port, 1 << 2},         {8, 4, &R::src_addr, 1 << 0},
    {9, 1, &R::src_mask},                 {10, 4, &R::in_ifindex, 1 << 5},
    {11, 2, &R::dst_port, 1 << 3},        {12, 4, &R::dst_addr, 1 << 1},
    {13, 1, &R::dst_mask},                {14, 4, &R::out_ifindex, 1 << 6},
    {15, 4, &R::ip_nexthop},              {16, 2, &R::src_as},
    {17, 2, &R::dst_as},                  {18, 4, &R::bgp_nexthop},
    {21, 4, &R::last},                    {22, 4, &R::first, 16},
    {23, 4, &R::rev_bytes},               {24, 4, &R::rev_packets},
    {27, 16, &R::src_addr6, 1 << 7 | 1},  {28, 16, &R::dst_addr6, 1 << 7 | 2},
    {29, 1, &R::src_mask},                {30, 1, &R::dst_mask},
    {34, 4, Beside::kRate},               {56, 6, &R::src_mac},
    {57, 6, &R::dst_mac},                 {58, 2, &R::src_vlan},
    {59, 2, &R::dst_vlan},                {60, 1, &R::ip_version},
    {61, 1, &R::direction},               {82, 32, &R::if_name},
    {83, 64, &R::if_desc},                {85, 4, &R::bytes, 0, Low32},
    {86, 4, &R::packets, 0, Low32},       {94, 55, Beside::kAppDesc},
    {95, 4, Beside::kAppTag},             {96, 24, Beside::kAppName},
    {136, 1, &R::tcp_flags, 0, Six},      {150, 4, &R::first, 0, Times1000},
    {151, 4, &R::last, 0, Times1000},     {152, 8, &R::first, 0, Thousandth},
    {153, 8, &R::last, 0, Thousandth},    {225, 4, &R::src_addr},
    {226, 4, &R::dst_addr},               {231, 4, &R::rev_bytes, 0, Low32},
    {232, 4, &R::bytes, 0, Low32},        {234, 4, Beside::kVrf},
    {305, 4, Beside::kRate},              {323, 8, &R::last},
    {346, 4, &R::enterprise_id},          {32769, 8, &R::rev_bytes},
    {32770, 8, &R::rev_packets},          {32861, 32, &R::vendor_text64},
    {56701, 32, &R::vendor_text32},       {56702, 64, &R::vendor_text64},
};
// clang-format on

std::set<std::size_t> LengthsOf(const Element& element) {
  return {0, 1, element.normal - 1, element.normal, element.normal + 1, 16, 64};
}

// Bytes that can be told apart: letters for texts, else 81 92 A3 B4 ...
Bytes ValueOf(const Element& element, std::size_t length) {
  const bool is_number = element.target.index() < 6 || element.id == 34 || element.id == 305 ||
                         element.id == 95 || element.id == 234;
  Bytes value(length);
  for (std::size_t i = 0; i < length; ++i) {
    value[i] = static_cast<std::uint8_t>(is_number ? 0x81 + 0x11 * i : 'a' + i % 26);
  }
  return value;
}

// What a field shall give, worked out from the length and the bytes alone.
struct Expected {
  DecodedRecord decoded;
  std::string beside[5] = {"", "", "", "", "no rate"};

  void Add(const Element& element, const Bytes& value, bool variable) {
    std::uint64_t number = 0;
    const bool is_number = value.size() <= 8 && std::popcount(value.size()) == 1;
    for (std::size_t i = 0; is_number && i < value.size(); ++i) number = number << 8 | value[i];
    const std::string text(value.begin(), value.end());
    const auto store = [&](auto target) {
      using T = decltype(target);
      R& r = decoded.record;
      if constexpr (std::is_same_v<T, Beside>) {
        beside[static_cast<int>(target)] = BesideText(target, value, number, text);
      } else if constexpr (requires { r.*target = 0; }) {
        r.*target =
            static_cast<std::remove_reference_t<decltype(r.*target)>>(element.value(number));
      } else if constexpr (std::is_same_v<decltype(r.*target + 0), std::uint8_t*>) {
        if (value.size() == sizeof(r.*target)) std::memcpy(r.*target, value.data(), value.size());
      } else {  // a text of at most two characters less than its field
        const bool is_vendor = element.id == 56701 || element.id == 56702;
        if (is_vendor && value.size() != sizeof(r.*target) - 1) return;
        if (element.id == 32861 && !variable) return;
        std::strcpy(r.*target, text.substr(0, sizeof(r.*target) - 2).c_str());
      }
    };
    std::visit(store, element.target);
    const bool is_address6 = std::holds_alternative<std::uint8_t(R::*)[16]>(element.target);
    if (!is_address6 || value.size() == 16) {
      decoded.presence = static_cast<std::uint8_t>(element.presence);
    }
  }

  static std::string BesideText(Beside target, const Bytes& value, std::uint64_t number,
                                const std::string& text) {
    switch (target) {
      case Beside::kAppTag:
        if (value.size() == 4) return "129:" + std::to_string(number & 0xFFFFFF);
        return value.size() == 8 ? HexText(value) : "";
      case Beside::kVrf:
        return "VRF:" + std::to_string(static_cast<std::int32_t>(number));
      case Beside::kRate:
        return std::to_string(Low32(number));
      default:
        return text.substr(0, 127);
    }
  }
};

// Of a text nothing counts behind its NUL.
void ExpectSame(const DecodedRecord& decoded, const DecodedRecord& expected) {
  const R& a = decoded.record;
  const R& b = expected.record;
  EXPECT_EQ(std::memcmp(&a, &b, offsetof(R, vendor_text32)), 0);
  EXPECT_STREQ(a.vendor_text32, b.vendor_text32);
  EXPECT_STREQ(a.vendor_text64, b.vendor_text64);
  EXPECT_STREQ(a.if_name, b.if_name);
  EXPECT_STREQ(a.if_desc, b.if_desc);
  EXPECT_EQ(decoded.presence, expected.presence);
}

class FieldDecoderTest : public testing::Test, private SamplingRateListener {
 protected:
  // Decode has one field decoded, from a block of just its size. The vendor's elements find the
  // enterprise number before them.
  const DecodedRecord& Decode(std::uint16_t id, const Bytes& value, bool variable = false,
                              std::uint32_t enterprise = 25461) {
    Start(&decoded_, id, enterprise);
    const auto block = std::make_unique<std::uint8_t[]>(value.size());
    std::ranges::copy(value, block.get());
    decoder_.DecodeField(DecodeOf(id), block.get(), value.size(), variable, switches_, &decoded_);
    return decoded_;
  }
  void Start(DecodedRecord* decoded, std::uint16_t id, std::uint32_t enterprise = 25461) {
    decoder_.Start(0xC0000201, decoded);
    context_.FirstSwitchedSeen = 0;
    rate_ = "no rate";
    if (id == 56701 || id == 56702) decoded->record.enterprise_id = enterprise;
  }
  Texts Kept() const {
    return {context_.AppTagText.Text(), texts_.AppNameText.Text(), texts_.AppDescText.Text(),
            context_.VrfTagText.Text(), rate_};
  }

  DecodeSwitches switches_ = {.use_post_nat_addresses = true, .ignore_out_counts = false};
  RecordContext context_;

 private:
  void OnSamplingRate(std::uint32_t exporter, std::uint32_t rate) override {
    EXPECT_EQ(exporter, 0xC0000201);
    rate_ = std::to_string(rate);
  }

  ApplicationTexts texts_;
  FieldDecoder decoder_{&context_, &texts_, this};
  DecodedRecord decoded_;
  std::string rate_;
};

TEST_F(FieldDecoderTest, EveryElementAtEveryLength) {
  for (const Element& element : kElements) {
    std::set<std::size_t> lengths = LengthsOf(element);
    lengths.insert({2, 4, 8, 127, 128, 255, 65534});
    for (const std::size_t length : lengths) {
      for (const bool variable : {false, true}) {
        SCOPED_TRACE(testing::Message() << "element " << element.id << " length " << length);
        const Bytes value = ValueOf(element, length);
        Expected expected;
        Start(&expected.decoded, element.id);
        expected.Add(element, value, variable);
        const DecodedRecord& decoded = Decode(element.id, value, variable);
        ExpectSame(decoded, expected.decoded);
        EXPECT_THAT(Kept(), testing::ElementsAreArray(expected.beside));
        EXPECT_EQ(context_.FirstSwitchedSeen, element.id == 22 ? 22U : 0U);
      }
    }
  }
}

TEST_F(FieldDecoderTest, TableIsComplete) {
  for (std::uint32_t id = 0; id < 65536; ++id) {
    const bool listed = std::ranges::count(kElements, id, &Element::id) == 1;
    EXPECT_EQ(DecodeOf(id) != flow::Decode::kSkip, listed) << id;
  }
}

TEST_F(FieldDecoderTest, Switches) {
  switches_ = {.use_post_nat_addresses = false, .ignore_out_counts = true};
  for (const std::uint16_t id : std::initializer_list<std::uint16_t>{225, 226, 23, 24}) {
    DecodedRecord start;
    Start(&start, id);
    ExpectSame(Decode(id, Numbers({7}).Get()), start);
  }
  EXPECT_EQ(Decode(32769, Numbers({7}).Get()).record.rev_bytes, 7U);
}

TEST_F(FieldDecoderTest, TextsEndAtNulAndMayHaveToBePrintable) {
  const auto decode = [&](std::uint16_t id, const std::string& text, std::size_t width,
                          std::uint32_t enterprise = 25461) -> std::string {
    const R& r = Decode(id, Wire().Text(text, width).Get(), id == 32861, enterprise).record;
    return std::string(r.if_name) + r.vendor_text32 + r.vendor_text64;
  };
  const std::string nul("a\0b", 3);
  const std::string sixty_three(63, '~');
  EXPECT_EQ(decode(82, nul, 3), "a");
  EXPECT_EQ(decode(32861, nul, 3), "a");
  EXPECT_EQ(decode(56701, "a\x01\xFF", 32), "a\x01\xFF");
  EXPECT_EQ(decode(56702, "a\x1F", 64), "");
  EXPECT_EQ(decode(56702, "a\x7F", 64), "");
  EXPECT_EQ(decode(56702, "\xE4", 64), "");
  EXPECT_EQ(decode(56702, " ~", 64), " ~");
  EXPECT_EQ(decode(56702, std::string("a\0\x01", 3), 64), "a");
  EXPECT_EQ(decode(56702, sixty_three + "a", 64), sixty_three);
  EXPECT_EQ(decode(56702, sixty_three + "\x01", 64), "") << "of the byte that is not kept";
  EXPECT_EQ(decode(56701, "user", 32, 25462), "");
  EXPECT_EQ(decode(56702, "app", 64, 0), "");
}

// Whatever the length of a field, the next one is read right behind it.
TEST_F(MeterTest, FieldsInARow) {
  Start("<AllowVariableLengthStrings>true</AllowVariableLengthStrings>");
  const auto send = [&](const Element& element, std::size_t length, const Wire& value) {
    Fields fields = {{element.id, static_cast<std::uint16_t>(length)}, {60, 1}};
    fields.insert(fields.end(), kFlowFields.begin(), kFlowFields.end());
    const Wire record = Wire(value).U8(4).Raw(FlowRecord().Get());
    host_.Forget();
    Send(V9(Learn(fields), Data(record).Record(record)));
    return Said();
  };
  for (const Element& element : kElements) {
    SCOPED_TRACE(element.id);
    const auto two_flows = testing::AllOf(
        testing::SizeIs(testing::Ge(2U)),
        testing::Contains(testing::StartsWith("6 10.0.0.1:51000 > 10.0.0.2:80 if 3 > 7")).Times(2));
    for (const std::size_t length : LengthsOf(element)) {
      const Wire value = Wire().Raw(ValueOf(element, length));
      EXPECT_THAT(send(element, length, value), two_flows) << length;
      const Wire variable = Wire().U8(static_cast<std::uint8_t>(length)).Raw(value.Get());
      EXPECT_THAT(send(element, kVariableLength, variable), two_flows) << "variable " << length;
    }
    EXPECT_EQ(meter_->LastSetError(), SetError::kNone);
  }
  for (const Element& element : kElements) {
    EXPECT_THAT(send(element, 65534, Wire().Zeros(100)), testing::IsEmpty());
    EXPECT_EQ(meter_->LastSetError(), SetError::kFieldOverflow);
    EXPECT_THAT(send(element, kVariableLength, Wire().U8(255)), testing::IsEmpty());
    EXPECT_EQ(meter_->LastSetError(), SetError::kVariableOverflow);
  }
}

}  // namespace
}  // namespace flow::test
