#include "netflow/record_plan.h"

#include <algorithm>
#include <bitset>

#include "netflow/data_record.h"
#include "netflow/field_places.h"

namespace flow {
namespace {

Move MoveOf(std::uint32_t length, FieldKind kind) noexcept {
  struct Row {
    std::uint32_t length;
    FieldKind kind;
    Move move;
  };
  static constexpr Row kMoves[] = {
      {1, FieldKind::kNumber8, Move::k8To8},
      {2, FieldKind::kNumber16, Move::k16To16},
      {2, FieldKind::kNumber32, Move::k16To32},
      {4, FieldKind::kNumber32, Move::k32To32},
      {4, FieldKind::kNumber64, Move::k32To64},
      {4, FieldKind::kLow32, Move::k32To64},
      {8, FieldKind::kLow32, Move::k64ToLow32},
      {8, FieldKind::kNumber64, Move::k64To64},
      {4, FieldKind::kSeconds, Move::k32Seconds},
      {8, FieldKind::kMilliseconds, Move::k64Milliseconds},
      {6, FieldKind::kBytes6, Move::kBytes6},
      {16, FieldKind::kBytes16, Move::kBytes16},
  };
  for (const Row& row : kMoves) {
    if (row.length == length && row.kind == kind) return row.move;
  }
  return Move::kDecode;
}

}  // namespace

void RecordPlan::Add(std::uint16_t offset, std::uint16_t length, Decode decode) {
  const FieldPlace& place = PlaceOf(decode);
  const Move move = MoveOf(length, place.kind);
  if (move != Move::kDecode) presence_ |= place.presence;
  steps_.push_back({offset, length, place.offset, decode, move});
}

// The moves go first, because one loop over all moves of a kind is faster than a choice at every
// step. A move that would overwrite what an earlier field has stored, or change what that one has
// asked, keeps its place among the fields that are decoded.
void RecordPlan::Finish() {
  std::bitset<sizeof(nf9_record)> touched;
  for (Step& step : steps_) {
    if (touched[step.target]) step.move = Move::kDecode;
    touched.set(step.target);
  }
  std::ranges::stable_sort(steps_, {}, &Step::move);
  steps_.shrink_to_fit();
  for (std::size_t move = 0; move < ends_.size(); ++move) {
    const auto end = std::ranges::upper_bound(steps_, static_cast<Move>(move), {}, &Step::move);
    ends_[move] = static_cast<std::uint16_t>(end - steps_.begin());
  }
}

}  // namespace flow
