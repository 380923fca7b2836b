// Where the values of elements go in a record, and how those are stored that need nothing else.
#pragma once

#include <cstdint>

#include "netflow/elements.h"

namespace flow {

// What is stored of a field. A number that does not fit its member is cut off; a field that is no
// number of 1, 2, 4 or 8 bytes counts as 0.
enum class FieldKind : std::uint8_t {
  kOther,  // it takes more than storing a value
  kNumber8,
  kNumber16,
  kNumber32,
  kNumber64,
  kLow32,         // of 64 bits in the record, the low 32; the upper ones become 0
  kSeconds,       // stored as milliseconds, 32 bits
  kMilliseconds,  // stored as seconds, 32 bits
  kBytes6,        // as they are, and nothing of a field of another length
  kBytes16,
};

struct FieldPlace {
  FieldKind kind;
  std::uint8_t presence;  // bits of Presence
  // In nf9_record. Of an element of the other kind: the number that it stores or asks, 0 for none.
  std::uint16_t offset;
};

[[nodiscard]] const FieldPlace& PlaceOf(Decode decode) noexcept;

}  // namespace flow
