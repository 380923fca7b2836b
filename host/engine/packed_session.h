// SPDX-License-Identifier: Apache-2.0
// Session keys in the fewest bytes: flows are too many to be kept by texts of 71 or 113 characters.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace flow::host {

// What the first byte of a packed key says of those behind it. In every other kind these are the
// protocol, address and port of both sides and, where there is one, the exporter with its two
// interfaces; so that packed keys of one kind are ordered as their texts are.
enum class SessionKind : char {
  kText,  // the key as it is
  kIpv4Merged,
  kIpv4,
  kIpv6Merged,
  kIpv6,
};

inline constexpr std::size_t kPackedMost = 64;  // bytes of a key that is not kept as text

// PackSession gives the packed form of a key: in the buffer, or for kText, as no more than its
// first byte, which stands before the text.
std::size_t PackSession(std::string_view text, char* out);

inline bool IsText(std::string_view packed) {
  return static_cast<SessionKind>(packed[0]) == SessionKind::kText;
}

// IsIpv4 is false for a text, whatever it is.
inline bool IsIpv4(std::string_view packed) {
  const auto kind = static_cast<SessionKind>(packed[0]);
  return kind == SessionKind::kIpv4 || kind == SessionKind::kIpv4Merged;
}

// ComesBefore tells whether the text of a packed key is less than another's.
bool ComesBefore(std::string_view a, std::string_view b);

// SessionText writes texts of packed keys.
class SessionText {
 public:
  // Of gives the text, valid until the next call and as long as the packed key.
  std::string_view Of(std::string_view packed);

 private:
  std::array<char, 128> text_;
};

// PackedShown makes a packed key, not one of kText, that of the flow as which it is shown, as
// ShownFlow does with texts: how long it is, and whether the flow turns round.
struct ShownKey {
  std::size_t size;
  bool turns;
};
ShownKey PackedShown(std::string_view packed, char* out);

// ShowInPlace makes a packed key of IPv4 that of the flow as which it is shown. False, and nothing
// was done, for another kind of key, and where the flow would have to turn round.
bool ShowInPlace(char* packed, std::size_t* size);

}  // namespace flow::host
