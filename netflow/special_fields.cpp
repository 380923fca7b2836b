// SPDX-License-Identifier: Apache-2.0
#include "netflow/special_fields.h"

#include <bit>
#include <charconv>

#include "util/address_text.h"

namespace flow {
namespace {

constexpr std::uint32_t kVendorEnterprise = 25461;  // whose elements 56701 and 56702 are decoded
constexpr std::size_t kVendorAppIdLength = 32;
constexpr std::size_t kVendorUserIdLength = 64;

// Some firewalls tell how a flow ended but no TCP flags; SYN and RST close the flow.
constexpr std::uint8_t kFlagsOfEndedFlow = 0x06;

// Whether all is printable up to a NUL, if there is one. Eight characters at a time: in each byte
// of a word the top bit says that the character there is none of 0x20 to 0x7E.
bool IsPrintable(const std::uint8_t* text, std::size_t words) noexcept {
  constexpr std::uint64_t kEach = 0x0101010101010101;
  constexpr std::uint64_t kTops = 0x80 * kEach;
  for (; words > 0; --words, text += 8) {
    const std::uint64_t characters = LoadBe64(text);
    const std::uint64_t rests = characters & ~kTops;
    const std::uint64_t others =
        (characters | ~(rests + 0x60 * kEach) | (rests + 0x01 * kEach)) & kTops;
    if (others != 0) return text[std::countl_zero(others) / 8] == 0;
  }
  return true;
}

void LearnRate(std::int32_t rate, DecodeState* state) {
  const std::uint32_t exporter = be32::FromHost(state->exporter).AsStored();
  state->rate = rate;
  if (state->domain) {
    state->rates.LearnInDomain(exporter, *state->domain, rate);
    return SamplingRates::SetSamplingRateKeyAttribute(state->host.engine, exporter, rate);
  }
  state->rates.Learn(exporter, rate);
  state->rates.SetSamplingRateKeyAttributes(state->host.engine);
}

// The nearest whole number.
void LearnRateOfPackets(DecodeState* state) {
  const std::uint64_t interval = state->packet_interval;
  const std::uint64_t all = interval + state->packet_space.value_or(0);
  const bool has_both = state->packet_space.has_value() && interval != 0;
  LearnRate(static_cast<std::int32_t>(has_both ? (all + interval / 2) / interval : interval),
            state);
}

}  // namespace

void DecodeFlowEndReason(FieldValue /*field*/, DecodeState* state) noexcept {
  state->record.tcp_flags = kFlagsOfEndedFlow;
}

// Application ids (RFC 6759): a classification engine and a selector in 4 bytes, or 8 bytes of a
// vendor's own.
void DecodeApplicationId(FieldValue field, DecodeState* state) {
  char text[32];
  char* end = text;
  if (field.length == 4) {
    const std::uint32_t selector = LoadBe32(field.bytes) & 0xFFFFFF;
    state->AppSelectorId = selector;
    end = PutDecimal(field.bytes[0], end);
    *end++ = ':';
    end = PutDecimal(selector, end);
  } else if (field.length == 8) {
    const std::uint64_t selector = LoadBe64(field.bytes);
    state->AppSelectorId = static_cast<std::int64_t>(selector);
    end = std::to_chars(end, text + sizeof(text), selector, 16).ptr;
  } else {
    return;
  }
  state->context.AppTagText.Assign(text, static_cast<std::size_t>(end - text));
  state->presence |= kExtrasSeen;
}

void DecodeIngressVrf(FieldValue field, DecodeState* state) {
  const auto vrf = static_cast<std::int32_t>(GetVarInt(field.length, field.bytes));
  char text[24] = "VRF:";
  char* const end = PutSignedDecimal(vrf, text + 4);
  state->context.VrfTagText.Assign(text, static_cast<std::size_t>(end - text));
  state->presence |= kExtrasSeen;
}

void DecodeSamplingRate(FieldValue field, DecodeState* state) {
  LearnRate(static_cast<std::int32_t>(GetVarInt(field.length, field.bytes)), state);
}

// RFC 5477: so many packets in a row are taken, then so many passed over. Exporters that tell the
// interval alone mean one packet in so many.
void DecodePacketInterval(FieldValue field, DecodeState* state) {
  state->packet_interval = static_cast<std::uint32_t>(GetVarInt(field.length, field.bytes));
  LearnRateOfPackets(state);
}

void DecodePacketSpace(FieldValue field, DecodeState* state) {
  if (!state->policy.fUseSamplingSpace) return;
  state->packet_space = static_cast<std::uint32_t>(GetVarInt(field.length, field.bytes));
  if (state->packet_interval != 0) LearnRateOfPackets(state);
}

void DecodeVendorAppId(FieldValue field, DecodeState* state) noexcept {
  if (state->record.enterprise_id != kVendorEnterprise) return;
  if (field.length == kVendorAppIdLength) StoreText(field, state->record.vendor_text32, state);
}

void DecodeVendorUserId(FieldValue field, DecodeState* state) noexcept {
  if (state->record.enterprise_id != kVendorEnterprise) return;
  if (field.length == kVendorUserIdLength && IsPrintable(field.bytes, kVendorUserIdLength / 8)) {
    StoreText(field, state->record.vendor_text64, state);
  }
}

void DecodeVariableText(FieldValue field, DecodeState* state) noexcept {
  if (field.is_variable) StoreText(field, state->record.vendor_text64, state);
}

}  // namespace flow
