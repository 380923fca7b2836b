#include "netflow/field_decoder.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "netflow/field_places.h"
#include "util/address_text.h"
#include "util/bytes.h"

namespace flow {
namespace {

constexpr std::uint32_t kVendorEnterprise = 25461;  // whose elements 56701 and 56702 are decoded
constexpr std::size_t kVendorAppIdLength = 32;
constexpr std::size_t kVendorUserIdLength = 64;

// Some firewalls tell how a flow ended but no TCP flags; SYN and RST close the flow.
constexpr std::uint8_t kFlagsOfEndedFlow = 0x06;

// Stores a number at the place of a member of that type.
template <class To>
void StoreAs(std::uint64_t value, std::uint8_t* target) noexcept {
  const auto number = static_cast<To>(value);
  std::memcpy(target, &number, sizeof(number));
}

template <std::size_t N>
bool StoreBytes(const std::uint8_t* value, std::size_t length, std::uint8_t* target) noexcept {
  if (length != N) return false;
  std::memcpy(target, value, N);
  return true;
}

// StoreField is false when the field stores nothing.
bool StoreField(FieldKind kind, const std::uint8_t* value, std::size_t length,
                std::uint8_t* target) noexcept {
  const std::uint64_t number = GetVarInt(length, value);
  switch (kind) {
    case FieldKind::kOther:
      return false;
    case FieldKind::kNumber8:
      StoreAs<std::uint8_t>(number, target);
      return true;
    case FieldKind::kNumber16:
      StoreAs<std::uint16_t>(number, target);
      return true;
    case FieldKind::kNumber32:
      StoreAs<std::uint32_t>(number, target);
      return true;
    case FieldKind::kNumber64:
      StoreAs<std::uint64_t>(number, target);
      return true;
    case FieldKind::kLow32:
      StoreAs<std::uint64_t>(static_cast<std::uint32_t>(number), target);
      return true;
    case FieldKind::kSeconds:
      StoreAs<std::uint32_t>(number * 1000, target);
      return true;
    case FieldKind::kMilliseconds:
      StoreAs<std::uint32_t>(number / 1000, target);
      return true;
    case FieldKind::kBytes6:
      return StoreBytes<6>(value, length, target);
    case FieldKind::kBytes16:
      return StoreBytes<16>(value, length, target);
  }
  return false;
}

// Copies a text up to its first NUL, cut to the most characters that the field keeps.
template <std::size_t N>
void StoreText(const std::uint8_t* value, std::size_t length, std::size_t most,
               char (&to)[N]) noexcept {
  static_assert(N > 0);
  const std::size_t size = strnlen(reinterpret_cast<const char*>(value), std::min(length, most));
  std::memcpy(to, value, size);
  to[size] = '\0';
}

void StoreRecordText(const std::uint8_t* value, std::size_t length, RecordText<128>* to) noexcept {
  to->Assign(reinterpret_cast<const char*>(value), length);
}

bool IsPrintable(const std::uint8_t* value, std::size_t length) noexcept {
  for (std::size_t i = 0; i < length && value[i] != 0; ++i) {
    if (value[i] < 0x20 || value[i] > 0x7E) return false;
  }
  return true;
}

}  // namespace

void FieldDecoder::Start(std::uint32_t exporter_address, DecodedRecord* out) const noexcept {
  nf9_record& record = out->record;
  ClearBytes<offsetof(nf9_record, vendor_text32)>(&record);
  record.vendor_text32[0] = '\0';
  record.vendor_text64[0] = '\0';
  record.if_name[0] = '\0';
  record.if_desc[0] = '\0';
  record.exporter_addr = exporter_address;
  record.ip_version = 4;
  out->presence = 0;
  RecordContext& context = *context_;
  context.AppTagText.Clear();
  context.VrfTagText.Clear();
  ApplicationTexts& texts = *texts_;
  texts.AppNameText.Clear();
  texts.AppDescText.Clear();
}

void FieldDecoder::DecodeField(Decode decode, const std::uint8_t* value, std::size_t length,
                               bool is_variable, const DecodeSwitches& switches,
                               DecodedRecord* out) const {
  const FieldPlace& place = PlaceOf(decode);
  auto* const target = reinterpret_cast<std::uint8_t*>(&out->record) + place.offset;
  if (StoreField(place.kind, value, length, target)) {
    AddPresence(place.presence, out);
  } else if (place.kind == FieldKind::kOther) {
    DecodeOther(decode, value, length, is_variable, switches, &out->record);
  }
}

void FieldDecoder::AddPresence(std::uint8_t presence, DecodedRecord* out) const noexcept {
  out->presence |= presence;
  if ((presence & kFirstSwitchedSeen) != 0) context_->FirstSwitchedSeen = 22;
}

void FieldDecoder::DecodeOther(Decode decode, const std::uint8_t* value, std::size_t length,
                               bool is_variable, const DecodeSwitches& switches,
                               nf9_record* record) const {
  nf9_record& r = *record;
  const std::uint64_t number = GetVarInt(length, value);
  const auto low = static_cast<std::uint32_t>(number);
  switch (decode) {
    case Decode::kOutBytes:
      if (!switches.ignore_out_counts) r.rev_bytes = number;
      return;
    case Decode::kOutPackets:
      if (!switches.ignore_out_counts) r.rev_packets = number;
      return;
    case Decode::kForwardDeltaBytes:
      r.rev_bytes = std::max(static_cast<std::uint32_t>(r.rev_bytes), low);
      return;
    case Decode::kReverseDeltaBytes:
      r.bytes = std::max(static_cast<std::uint32_t>(r.bytes), low);
      return;
    case Decode::kFlowEndReason:
      r.tcp_flags = kFlagsOfEndedFlow;
      return;
    case Decode::kPostNatSourceAddress:
      if (switches.use_post_nat_addresses) r.src_addr = low;
      return;
    case Decode::kPostNatDestinationAddress:
      if (switches.use_post_nat_addresses) r.dst_addr = low;
      return;
    case Decode::kInterfaceName:
      return StoreText(value, length, 127, r.if_name);
    case Decode::kInterfaceDescription:
      return StoreText(value, length, 127, r.if_desc);
    case Decode::kApplicationDescription:
      return StoreRecordText(value, length, &texts_->AppDescText);
    case Decode::kApplicationName:
      return StoreRecordText(value, length, &texts_->AppNameText);
    case Decode::kApplicationId:
      return DecodeApplicationId(value, length);
    case Decode::kIngressVrf: {
      char text[24] = "VRF:";
      char* const end = PutSignedDecimal(static_cast<std::int32_t>(low), text + 4);
      context_->VrfTagText.Assign(text, static_cast<std::size_t>(end - text));
      return;
    }
    case Decode::kSamplingRate:
      return rates_->OnSamplingRate(r.exporter_addr, low);
    case Decode::kVendorAppId:
      if (r.enterprise_id == kVendorEnterprise && length == kVendorAppIdLength) {
        StoreText(value, length, 31, r.vendor_text32);
      }
      return;
    case Decode::kVendorUserId:
      if (r.enterprise_id == kVendorEnterprise && length == kVendorUserIdLength &&
          IsPrintable(value, length)) {
        StoreText(value, length, 63, r.vendor_text64);
      }
      return;
    case Decode::kVariableText:
      if (is_variable) StoreText(value, length, 63, r.vendor_text64);
      return;
    default:  // skipped
      return;
  }
}

void FieldDecoder::DecodeByPlan(const RecordPlan& plan, const std::uint8_t* record,
                                const DecodeSwitches& switches, DecodedRecord* out) const {
  AddPresence(plan.Presence(), out);
  auto* const target = reinterpret_cast<std::uint8_t*>(&out->record);
  const RecordPlan::Step* const steps = plan.Steps().data();
  const RecordPlan::Step* step = steps;
  const auto each = [&](Move kind, auto move) {
    for (const auto* const end = steps + plan.End(kind); step != end; ++step) {
      move(record + step->offset, target + step->target);
    }
  };
  each(Move::k8To8, [](auto* from, auto* to) { *to = *from; });
  each(Move::k16To16, [](auto* from, auto* to) { StoreAs<std::uint16_t>(LoadBe16(from), to); });
  each(Move::k16To32, [](auto* from, auto* to) { StoreAs<std::uint32_t>(LoadBe16(from), to); });
  each(Move::k32To32, [](auto* from, auto* to) { StoreAs<std::uint32_t>(LoadBe32(from), to); });
  each(Move::k32To64, [](auto* from, auto* to) { StoreAs<std::uint64_t>(LoadBe32(from), to); });
  each(Move::k64To64, [](auto* from, auto* to) { StoreAs<std::uint64_t>(LoadBe64(from), to); });
  each(Move::k64ToLow32,
       [](auto* from, auto* to) { StoreAs<std::uint64_t>(LoadBe32(from + 4), to); });
  each(Move::k32Seconds,
       [](auto* from, auto* to) { StoreAs<std::uint32_t>(LoadBe32(from) * 1000U, to); });
  each(Move::k64Milliseconds,
       [](auto* from, auto* to) { StoreAs<std::uint32_t>(LoadBe64(from) / 1000, to); });
  each(Move::kBytes6, [](auto* from, auto* to) { std::memcpy(to, from, 6); });
  each(Move::kBytes16, [](auto* from, auto* to) { std::memcpy(to, from, 16); });
  for (const auto* const end = steps + plan.End(Move::kDecode); step != end; ++step) {
    DecodeField(step->decode, record + step->offset, step->length, false, switches, out);
  }
}

// Application ids (RFC 6759): a classification engine and a selector in 4 bytes, or 8 bytes of a
// vendor's own.
void FieldDecoder::DecodeApplicationId(const std::uint8_t* value, std::size_t length) const {
  char text[32];
  char* end = text;
  if (length == 4) {
    const std::uint32_t selector = LoadBe32(value) & 0xFFFFFF;
    texts_->AppSelectorId = selector;
    end = PutDecimal(value[0], end);
    *end++ = ':';
    end = PutDecimal(selector, end);
  } else if (length == 8) {
    const std::uint64_t selector = LoadBe64(value);
    texts_->AppSelectorId = static_cast<std::int64_t>(selector);
    end = std::to_chars(end, text + sizeof(text), selector, 16).ptr;
  } else {
    return;
  }
  context_->AppTagText.Assign(text, static_cast<std::size_t>(end - text));
}

}  // namespace flow
