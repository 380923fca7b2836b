// SPDX-License-Identifier: Apache-2.0
#include "netflow/field_decoder.h"

#include <cstddef>
#include <cstring>
#include <span>
#include <utility>

#include "util/bytes.h"

namespace flow {
namespace {

// Stores a number at the place of a member of that type.
template <class To>
bool StoreAs(std::uint64_t value, std::uint8_t* target) noexcept {
  const auto number = static_cast<To>(value);
  std::memcpy(target, &number, sizeof(number));
  return true;
}

template <std::size_t N>
bool StoreBytes(const std::uint8_t* value, std::size_t length, std::uint8_t* target) noexcept {
  if (length != N) return false;
  std::memcpy(target, value, N);
  return true;
}

// StoreField is false when the field stores nothing. Inlined, for the moves of a plan ask it for
// one kind and length.
[[gnu::always_inline]] inline bool StoreField(FieldKind kind, const std::uint8_t* value,
                                              std::size_t length, std::uint8_t* target) noexcept {
  switch (kind) {
    case FieldKind::kSkipped:
    case FieldKind::kSpecial:
      return false;
    case FieldKind::kNumber8:
      return StoreAs<std::uint8_t>(GetVarInt(length, value), target);
    case FieldKind::kNumber16:
      return StoreAs<std::uint16_t>(GetVarInt(length, value), target);
    case FieldKind::kNumber32:
      return StoreAs<std::uint32_t>(GetVarInt(length, value), target);
    case FieldKind::kNumber64:
      return StoreAs<std::uint64_t>(GetVarInt(length, value), target);
    case FieldKind::kSeconds:
      return StoreAs<std::uint32_t>(GetVarInt(length, value) * 1000, target);
    case FieldKind::kMilliseconds:
      return StoreAs<std::uint32_t>(GetVarInt(length, value) / 1000, target);
    case FieldKind::kBytes6:
      return StoreBytes<6>(value, length, target);
    case FieldKind::kBytes16:
      return StoreBytes<16>(value, length, target);
  }
  return false;
}

void AddPresence(std::uint16_t presence, DecodeState* state) noexcept {
  state->presence |= presence;
  if ((presence & kFirstSwitchedSeen) != 0) state->context.FirstSwitchedSeen = 22;
}

// Carries out the moves of one kind and length, from a step of the plan to `end`.
template <std::size_t kMove>
const RecordPlan::Step* Carry(const RecordPlan::Step* step, const RecordPlan::Step* end,
                              const std::uint8_t* record, std::uint8_t* target) noexcept {
  for (; step != end; ++step) {
    StoreField(kMoves[kMove].kind, record + step->offset, kMoves[kMove].length,
               target + step->target);
  }
  return step;
}

template <std::size_t... kMove>
[[gnu::always_inline]] inline const RecordPlan::Step* CarryAll(
    const RecordPlan& plan, const std::uint8_t* record, std::uint8_t* target,
    std::index_sequence<kMove...> /*all*/) noexcept {
  const RecordPlan::Step* const steps = plan.Steps();
  const RecordPlan::Step* step = steps;
  ((step = Carry<kMove>(step, steps + plan.End(kMove), record, target)), ...);
  return step;
}

[[gnu::always_inline]] inline void Decode(const FieldPlace& place, FieldValue field,
                                          DecodeState* state) {
  if (place.kind == FieldKind::kSpecial) return place.decode(field, state);
  auto* const target = reinterpret_cast<std::uint8_t*>(&state->record) + place.offset;
  if (StoreField(place.kind, field.bytes, field.length, target)) {
    AddPresence(place.presence, state);
  }
}

// Decodes the fields that are no moves. Not inlined: most plans have none.
[[gnu::noinline]] void DecodeEach(std::span<const RecordPlan::Step> steps,
                                  const std::uint8_t* record, DecodeState* state) {
  for (const RecordPlan::Step& step : steps) {
    Decode(PlaceAt(step.row), {record + step.offset, step.length, false}, state);
  }
}

template <std::size_t N>
void ClearText(char (&text)[N]) noexcept {
  if (text[0] != '\0') std::memset(text, 0, N);
}

void ClearExtras(DecodeState* state) noexcept {
  FlowRecord& record = state->record;
  ClearText(record.vendor_text32);
  ClearText(record.vendor_text64);
  ClearText(record.if_name);
  ClearText(record.if_desc);
  ClearBytes<sizeof(record.src_mac)>(record.src_mac);
  ClearBytes<sizeof(record.dst_mac)>(record.dst_mac);
  state->context.AppTagText.Clear();
  state->context.VrfTagText.Clear();
  state->AppNameText.Clear();
  state->AppDescText.Clear();
}

}  // namespace

void StartRecord(DecodeState* state) noexcept {
  ClearBytes<offsetof(FlowRecord, vendor_text32)>(&state->record);
  state->record.ip_version = 4;
  if ((state->presence & kExtrasSeen) != 0) ClearExtras(state);  // of the record before
  state->presence = 0;
}

void DecodeField(const FieldPlace& place, FieldValue field, DecodeState* state) {
  Decode(place, field, state);
}

void DecodeByPlan(const RecordPlan& plan, const std::uint8_t* record, DecodeState* state) {
  AddPresence(plan.Presence(), state);
  const RecordPlan::Step* const others =
      CarryAll(plan, record, reinterpret_cast<std::uint8_t*>(&state->record),
               std::make_index_sequence<std::size(kMoves)>());
  const RecordPlan::Step* const end = plan.Steps() + plan.End(kNoMove);
  if (others != end) DecodeEach({others, end}, record, state);
}

}  // namespace flow
