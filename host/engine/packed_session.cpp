// SPDX-License-Identifier: Apache-2.0
#include "host/engine/packed_session.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

#include "flowhandlers/session_keys.h"

namespace flow::host {
namespace {

constexpr std::size_t kExporterText = sizeof(kMergedExporter) - 1;
constexpr std::size_t kExporterBytes = 12;
constexpr std::size_t kMostText = 128;

// The compiler's vectors: sixteen characters at a time on every processor.
using Bytes16 = signed char __attribute__((vector_size(16)));
using Words2 = std::uint64_t __attribute__((vector_size(16)));

Bytes16 Load(const char* from) {
  Bytes16 bytes;
  std::memcpy(&bytes, from, sizeof(bytes));
  return bytes;
}
void Store(Bytes16 bytes, char* to) { std::memcpy(to, &bytes, sizeof(bytes)); }

// What a key of a family looks like, '0' for each digit, and where its bytes stand in it.
template <class Session, std::size_t kAddress>
struct Form {
  static constexpr std::size_t kSides = sizeof(Session::kForm) - 1;
  static constexpr std::size_t kText = kSides + kExporterText;
  static constexpr std::size_t kSideBytes = kAddress + 2;
  static constexpr std::size_t kMerged = 2 + 2 * kSideBytes;
  static constexpr std::size_t kWhole = kMerged + kExporterBytes;
  static constexpr std::size_t kBytes = kWhole - 1;  // behind the kind

  char form[kText]{};
  char digit[kText]{};  // the bits of a digit's value
  std::uint8_t at[kBytes]{};

  constexpr Form() {
    for (std::size_t i = 0; i < kSides; ++i) form[i] = Session::kForm[i];
    for (std::size_t i = 0; i < kExporterText; ++i) form[kSides + i] = kMergedExporter[i];
    std::size_t byte = 0;
    for (std::size_t i = 0; i < kText; ++i) {
      if (form[i] != '0') continue;
      at[byte++] = static_cast<std::uint8_t>(i);
      digit[i] = digit[i + 1] = 15;
      ++i;
    }
  }
};
constexpr Form<Ipv4Session, 4> kForm4;
constexpr Form<Ipv6Session, 16> kForm6;
static_assert(kForm4.at[24] == 69 && kForm6.at[48] == 111, "two digits for each byte");

// Places are constants: a byte is a load and a store then, if the compiler does not take it out of
// registers instead.
template <const auto& kForm, std::size_t... kByte>
[[gnu::noinline]] void Gather(const char* from, char* out,
                              std::index_sequence<kByte...> /*bytes*/) {
  ((out[kByte] = from[kForm.at[kByte]]), ...);
}

// Writes the bytes behind the kind; false where the text has another form.
template <const auto& kForm>
bool PackBytes(const char* text, char* out) {
  using F = std::decay_t<decltype(kForm)>;
  constexpr std::size_t kLast = F::kText - 16;
  constexpr char kBeforeLetters = 'A' - '9' - 1;
  char digits[kMostText + 16];
  Bytes16 differs{};
  const auto read = [&](std::size_t at) {
    const Bytes16 c = Load(text + at);
    const Bytes16 digit = ((c & 15) + ((c > '9') & 9)) & Load(kForm.digit + at);
    // What is none has not been written as its value would be.
    differs |= c ^ (Load(kForm.form + at) + digit + ((digit > 9) & kBeforeLetters));
    Store(digit, digits + at);
  };
  for (std::size_t at = 0; at < kLast; at += 16) read(at);
  read(kLast);
  const auto both = reinterpret_cast<Words2>(differs);
  if ((both[0] | both[1]) != 0) return false;
  // Each digit with the one behind it, wherever two belong together.
  for (std::size_t at = 0; at < F::kText; at += 16) {
    const auto upper = reinterpret_cast<Words2>(Load(digits + at)) << 4;
    Store(reinterpret_cast<Bytes16>(upper) | Load(digits + at + 1), digits + at);
  }
  Gather<kForm>(digits, out, std::make_index_sequence<F::kBytes>());
  return true;
}

template <const auto& kForm>
std::size_t Pack(SessionKind kind, SessionKind merged, const char* text, char* out) {
  using F = std::decay_t<decltype(kForm)>;
  if (!PackBytes<kForm>(text, out + 1)) {
    *out = static_cast<char>(SessionKind::kText);
    return 1;
  }
  constexpr char kNone[kExporterBytes] = {};
  const bool is_merged = std::memcmp(out + F::kMerged, kNone, kExporterBytes) == 0;
  *out = static_cast<char>(is_merged ? merged : kind);
  return is_merged ? F::kMerged : F::kWhole;
}

void PutDigits(char byte, char* out) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  const auto value = static_cast<unsigned char>(byte);
  out[0] = kDigits[value >> 4];
  out[1] = kDigits[value & 15];
}

template <class Session, std::size_t kAddress>
std::size_t Unpack(const Form<Session, kAddress>& form, std::string_view packed, char* out) {
  using F = Form<Session, kAddress>;
  std::memcpy(out, form.form, F::kText);
  for (std::size_t i = 1; i < packed.size(); ++i) PutDigits(packed[i], out + form.at[i - 1]);
  return F::kText;
}

constexpr char kAnyPort[] = {'\xFF', '\xFF'};

std::uint16_t PortAt(const char* at) {
  return static_cast<std::uint16_t>(static_cast<unsigned char>(at[0]) << 8 |
                                    static_cast<unsigned char>(at[1]));
}
bool IsService(std::uint16_t port) { return port == 53 || port == 80 || port == 443; }

// Clients' ports are one where the service's is known. True where the sides change places: the
// client comes first where keys are ordered by their ports.
bool MergeClientPorts(char* a_port, char* b_port) {
  const std::uint16_t a = PortAt(a_port);
  const std::uint16_t b = PortAt(b_port);
  if (IsService(b)) {
    std::memcpy(a_port, kAnyPort, sizeof(kAnyPort));
  } else if (IsService(a)) {
    std::memcpy(b_port, kAnyPort, sizeof(kAnyPort));
    return a >= b;
  }
  return false;
}

constexpr char kNoExporter[4] = {};

template <class F>
ShownKey Shown(SessionKind merged, std::string_view packed, char* out) {
  constexpr std::size_t kSide = F::kSideBytes;
  std::memcpy(out, packed.data(), packed.size());
  char* const a = out + 2;
  char* const b = a + kSide;
  const bool turns = MergeClientPorts(a + kSide - 2, b + kSide - 2);
  if (turns) std::swap_ranges(a, a + kSide, b);
  if (packed.size() == F::kMerged || std::memcmp(b + kSide, kNoExporter, 4) == 0) {
    return {packed.size(), turns};
  }
  *out = static_cast<char>(merged);
  return {F::kMerged, turns};
}

}  // namespace

std::size_t PackSession(std::string_view text, char* out) {
  if (text.size() == decltype(kForm4)::kText) {
    return Pack<kForm4>(SessionKind::kIpv4, SessionKind::kIpv4Merged, text.data(), out);
  }
  if (text.size() == decltype(kForm6)::kText) {
    return Pack<kForm6>(SessionKind::kIpv6, SessionKind::kIpv6Merged, text.data(), out);
  }
  *out = static_cast<char>(SessionKind::kText);
  return 1;
}

bool ComesBefore(std::string_view a, std::string_view b) {
  if (a[0] == b[0]) return a < b;
  SessionText text_a;
  SessionText text_b;
  return text_a.Of(a) < text_b.Of(b);
}

std::string_view SessionText::Of(std::string_view packed) {
  if (IsText(packed)) return packed.substr(1);
  char* const out = text_.data();
  return {out, IsIpv4(packed) ? Unpack(kForm4, packed, out) : Unpack(kForm6, packed, out)};
}

ShownKey PackedShown(std::string_view packed, char* out) {
  return IsIpv4(packed) ? Shown<decltype(kForm4)>(SessionKind::kIpv4Merged, packed, out)
                        : Shown<decltype(kForm6)>(SessionKind::kIpv6Merged, packed, out);
}

bool ShowInPlace(char* packed, std::size_t* size) {
  using F = decltype(kForm4);
  if (!IsIpv4({packed, *size})) return false;
  char* const b_port = packed + F::kMerged - 2;
  char* const a_port = b_port - F::kSideBytes;
  const bool is_b = IsService(PortAt(b_port));
  const bool is_a = !is_b && IsService(PortAt(a_port));
  if (is_a && PortAt(a_port) >= PortAt(b_port)) return false;
  if (is_a || is_b) std::memcpy(is_b ? a_port : b_port, kAnyPort, sizeof(kAnyPort));
  if (*size == F::kMerged || std::memcmp(b_port + 2, kNoExporter, 4) == 0) return true;
  *packed = static_cast<char>(SessionKind::kIpv4Merged);
  *size = F::kMerged;
  return true;
}

}  // namespace flow::host
