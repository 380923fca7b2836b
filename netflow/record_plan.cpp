// SPDX-License-Identifier: Apache-2.0
#include "netflow/record_plan.h"

#include <algorithm>
#include <bitset>
#include <numeric>

#include "metering/flow_record.h"

namespace flow {
namespace {

std::size_t MoveOf(FieldKind kind, std::uint16_t length) noexcept {
  const Move* const move = std::ranges::find_if(
      kMoves, [&](const Move& m) { return m.kind == kind && m.length == length; });
  return static_cast<std::size_t>(move - std::begin(kMoves));
}

}  // namespace

// The moves go first, because one loop over all moves of a kind is faster than a choice at every
// step. A move that would overwrite what an earlier field has stored, or change what that one has
// asked, keeps its place among the fields that are decoded.
RecordPlan::RecordPlan(std::span<const Field> fields) {
  struct Planned {
    std::size_t move;
    Step step;
  };
  std::vector<Planned> planned;
  std::bitset<sizeof(FlowRecord)> touched;
  for (const Field& field : fields) {
    const FieldPlace& place = PlaceAt(field.row);
    if (place.kind == FieldKind::kSkipped) continue;
    const std::size_t move = touched[place.offset] ? kNoMove : MoveOf(place.kind, field.length);
    touched.set(place.offset);
    if (move != kNoMove) presence_ |= place.presence;
    planned.push_back({move, {field.offset, field.length, field.row, place.offset}});
  }
  std::ranges::stable_sort(planned, {}, &Planned::move);
  steps_.reserve(planned.size());
  for (const Planned& field : planned) {
    steps_.push_back(field.step);
    ++ends_[field.move];
  }
  std::partial_sum(ends_.begin(), ends_.end(), ends_.begin());
}

}  // namespace flow
