// SPDX-License-Identifier: Apache-2.0
// The plan by which records of one length are decoded: which bytes go where.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <vector>

#include "netflow/elements.h"

namespace flow {

// The fields that a plan brings into the record as they come, by what is stored of them and their
// length on the wire.
struct Move {
  FieldKind kind;
  std::uint16_t length;
};
inline constexpr Move kMoves[] = {
    {FieldKind::kNumber8, 1},  {FieldKind::kNumber16, 2},     {FieldKind::kNumber32, 2},
    {FieldKind::kNumber32, 4}, {FieldKind::kNumber64, 4},     {FieldKind::kNumber64, 8},
    {FieldKind::kSeconds, 4},  {FieldKind::kMilliseconds, 8}, {FieldKind::kBytes6, 6},
    {FieldKind::kBytes16, 16},
};
inline constexpr std::size_t kNoMove = std::size(kMoves);  // all others: decoded field by field

class RecordPlan {
 public:
  // A field of the template.
  struct Field {
    std::uint16_t offset;  // in the wire's record
    std::uint16_t length;
    std::uint16_t row;  // of its element
  };
  struct Step {
    std::uint16_t offset;
    std::uint16_t length;
    std::uint16_t row;
    std::uint16_t target;  // of a move: offset in FlowRecord
  };

  RecordPlan() = default;
  explicit RecordPlan(std::span<const Field> fields);

  // Steps are the fields that are not skipped, move by move in the order of kMoves, and then the
  // others. End is the number of those up to a move, or of all.
  [[nodiscard]] const Step* Steps() const noexcept { return steps_.data(); }
  [[nodiscard]] std::size_t End(std::size_t move) const noexcept { return ends_[move]; }

  [[nodiscard]] bool IsEmpty() const noexcept { return ends_[kNoMove] == 0; }

  // Presence is what the moves add to a record's presence.
  [[nodiscard]] std::uint16_t Presence() const noexcept { return presence_; }

 private:
  std::vector<Step> steps_;
  // A set has room for the specifiers of 16,383 fields.
  std::array<std::uint16_t, std::size(kMoves) + 1> ends_{};
  std::uint16_t presence_ = 0;
};

}  // namespace flow
