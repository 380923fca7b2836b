// SPDX-License-Identifier: Apache-2.0
// The information elements of NetFlow v9 and IPFIX that the meter knows: their names, the lengths
// that they have by default, and where their values go. Sources: RFC 3954, IANA's registry of IPFIX
// information elements, and vendors' descriptions of their private elements.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace flow {

struct DecodeState;

// A field of a record. Its bytes have been checked to be there.
struct FieldValue {
  const std::uint8_t* bytes;
  std::uint32_t length;
  bool is_variable;  // it brought its own length
};

using SpecialDecoder = void (*)(FieldValue field, DecodeState* state);

// What is stored of a field. A number that does not fit its member is cut off; a field that is no
// number of 1, 2, 4 or 8 bytes counts as 0.
enum class FieldKind : std::uint8_t {
  kSkipped,
  kNumber8,
  kNumber16,
  kNumber32,
  kNumber64,
  kSeconds,       // times 1000, 32 bits
  kMilliseconds,  // divided by 1000, 32 bits
  kBytes6,        // as they are, and nothing of a field of another length
  kBytes16,
  kSpecial,  // it takes more than storing a value
};

struct FieldPlace {
  FieldKind kind = FieldKind::kSkipped;
  std::uint16_t presence = 0;  // bits of Presence
  // In FlowRecord. Of a special field: the number that it stores or asks, 0 for none.
  std::uint16_t offset = 0;
  SpecialDecoder decode = nullptr;  // of a special field alone
};

struct Element {
  std::uint32_t id;
  std::int32_t default_length;  // -1: none
  const char* name;
  FieldPlace place = {};  // skipped, when a row gives none
};

// Scope fields of a v9 options template are kept apart from elements: their types begin here.
inline constexpr std::uint32_t kScopeTypeBase = 15610;

// Elements is the table, in ascending order of ids. Its first row is none of an element: it stands
// for all that the table does not name.
[[nodiscard]] std::span<const Element> Elements() noexcept;

// RowOf is an element's row in the table. In IPFIX the enterprise bit (0x8000) is part of the id.
[[nodiscard]] std::uint16_t RowOf(std::uint32_t id) noexcept;

// PlaceAt says where the value of a row's element goes.
[[nodiscard]] const FieldPlace& PlaceAt(std::uint16_t row) noexcept;

// GetFieldCode is the display name of an element, "Unknown" for one without.
[[nodiscard]] const char* GetFieldCode(std::uint32_t id) noexcept;

// GetDefaultLengthForAttribute is the length in bytes that a template has for an element when it
// names none, 65535 for a variable length. -1 means that such a template cannot hold the element.
[[nodiscard]] int GetDefaultLengthForAttribute(int id) noexcept;

}  // namespace flow
