// The plan by which records of one length are decoded: which bytes go where.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "netflow/elements.h"

namespace flow {

// How a step brings a field into the record. Numbers are widths in bits, on the wire and in the
// record.
enum class Move : std::uint8_t {
  k8To8,
  k16To16,
  k16To32,
  k32To32,
  k32To64,
  k64To64,
  k64ToLow32,
  k32Seconds,
  k64Milliseconds,
  kBytes6,
  kBytes16,
  kDecode,  // not that simple: by what the element means
};

class RecordPlan {
 public:
  struct Step {
    std::uint16_t offset;  // of the field in the wire's record
    std::uint16_t length;
    std::uint16_t target;  // of a move: offset in nf9_record
    Decode decode;
    Move move;
  };

  // Add adds a step for the next field in template order; Finish ends the plan.
  void Add(std::uint16_t offset, std::uint16_t length, Decode decode);
  void Finish();

  // All steps, kind by kind in the order of Move; End is the number of those up to a kind.
  [[nodiscard]] const std::vector<Step>& Steps() const noexcept { return steps_; }
  [[nodiscard]] std::size_t End(Move move) const noexcept {
    return ends_[static_cast<std::size_t>(move)];
  }

  // Presence is what the moves add to a record's presence.
  [[nodiscard]] std::uint8_t Presence() const noexcept { return presence_; }

 private:
  std::vector<Step> steps_;
  // A set has room for the specifiers of 16,383 fields.
  std::array<std::uint16_t, static_cast<std::size_t>(Move::kDecode) + 1> ends_{};
  std::uint8_t presence_ = 0;
};

}  // namespace flow
