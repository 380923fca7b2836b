// SPDX-License-Identifier: Apache-2.0
// The fields whose decoding takes more than storing a value. Those that store into a member of the
// record have it as their parameter.
#pragma once

#include <algorithm>
#include <cstring>

#include "netflow/decode_state.h"
#include "netflow/elements.h"
#include "util/bytes.h"

namespace flow {

// Copies a text up to its first NUL, at most so much of it as the member keeps.
template <std::size_t N>
void StoreText(FieldValue field, char (&to)[N], DecodeState* state) noexcept {
  if (to[0] != '\0') std::memset(to, 0, N);  // the same element before in the record
  const auto* const text = reinterpret_cast<const char*>(field.bytes);
  std::memcpy(to, text, strnlen(text, std::min<std::size_t>(field.length, N - 2)));
  state->presence |= kExtrasSeen;
}

template <auto kMember>
void DecodeText(FieldValue field, DecodeState* state) noexcept {
  StoreText(field, state->record.*kMember, state);
}

template <auto kMember>
void DecodeOutCount(FieldValue field, DecodeState* state) noexcept {
  if (state->policy.fIgnoreOutCounts) return;
  state->record.*kMember = GetVarInt(field.length, field.bytes);
}

// Of several counts in a record the largest stands.
template <auto kMember>
void DecodeLargestCount(FieldValue field, DecodeState* state) noexcept {
  auto& count = state->record.*kMember;
  const NetflowPolicy& policy = state->policy;
  count = std::max(policy.Counted(count), policy.Counted(GetVarInt(field.length, field.bytes)));
}

template <auto kMember>
void DecodePostNatAddress(FieldValue field, DecodeState* state) noexcept {
  if (!state->policy.fUsePostNATAddresses) return;
  state->record.*kMember = static_cast<std::uint32_t>(GetVarInt(field.length, field.bytes));
}

template <auto kMember>
void DecodeApplicationText(FieldValue field, DecodeState* state) noexcept {
  (state->*kMember).Assign(reinterpret_cast<const char*>(field.bytes), field.length);
  state->presence |= kExtrasSeen;
}

void DecodeFlowEndReason(FieldValue field, DecodeState* state) noexcept;
void DecodeApplicationId(FieldValue field, DecodeState* state);
void DecodeIngressVrf(FieldValue field, DecodeState* state);
void DecodeSamplingRate(FieldValue field, DecodeState* state);
void DecodePacketInterval(FieldValue field, DecodeState* state);
void DecodePacketSpace(FieldValue field, DecodeState* state);
void DecodeVendorAppId(FieldValue field, DecodeState* state) noexcept;
void DecodeVendorUserId(FieldValue field, DecodeState* state) noexcept;
void DecodeVariableText(FieldValue field, DecodeState* state) noexcept;

}  // namespace flow
