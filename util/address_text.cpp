#include "util/address_text.h"

#include <array>
#include <bit>
#include <charconv>
#include <cstring>

#include "util/bytes.h"

namespace flow {
namespace {

// The decimal digits of an octet; what follows them is of no use.
struct OctetText {
  char digits[4];
  std::uint32_t length;
};
constexpr std::array<OctetText, 256> kOctets = [] {
  std::array<OctetText, 256> octets{};
  for (unsigned i = 0; i < 256; ++i) {
    OctetText& text = octets[i];
    if (i >= 100) text.digits[text.length++] = static_cast<char>('0' + i / 100);
    if (i >= 10) text.digits[text.length++] = static_cast<char>('0' + i / 10 % 10);
    text.digits[text.length++] = static_cast<char>('0' + i % 10);
  }
  return octets;
}();

constexpr std::array<std::array<char, 2>, 100> kDecimalPairs = [] {
  std::array<std::array<char, 2>, 100> pairs{};
  for (std::size_t i = 0; i < 100; ++i) {
    pairs[i] = {static_cast<char>('0' + i / 10), static_cast<char>('0' + i % 10)};
  }
  return pairs;
}();

// Four and eight digits in one word; the first one is the lowest byte, as in memory.
std::uint32_t FourDigits(std::uint32_t value) noexcept {
  const auto high = std::bit_cast<std::uint16_t>(kDecimalPairs[value / 100]);
  const auto low = std::bit_cast<std::uint16_t>(kDecimalPairs[value % 100]);
  return high | std::uint32_t{low} << 16;
}
std::uint64_t EightDigits(std::uint32_t value) noexcept {
  constexpr std::uint32_t kHalf = 10'000;
  return FourDigits(value / kHalf) | std::uint64_t{FourDigits(value % kHalf)} << 32;
}

// The characters of such a word.
template <class Word>
char* Put(Word characters, char* out) noexcept {
  std::memcpy(out, &characters, sizeof(characters));
  return out + sizeof(characters);
}

constexpr std::int8_t kGroups = 8;

// A run of groups of zero, the part that "::" stands for.
struct ZeroRun {
  std::int8_t first;  // kGroups: there is none
  std::int8_t length;
};

// The longest run of at least two groups, the first of equally long ones; bit i of zeros says that
// group i is zero.
constexpr ZeroRun LongestZeroRun(unsigned zeros) {
  unsigned starts = zeros & zeros >> 1;  // of runs of at least that length
  if (starts == 0) return {kGroups, 0};
  std::int8_t length = 2;
  for (unsigned longer = starts; (longer &= zeros >> length) != 0; ++length) starts = longer;
  return {static_cast<std::int8_t>(std::countr_zero(starts)), length};
}
constexpr std::array<ZeroRun, 256> kZeroRuns = [] {
  std::array<ZeroRun, 256> runs{};
  for (unsigned zeros = 0; zeros < runs.size(); ++zeros) runs[zeros] = LongestZeroRun(zeros);
  return runs;
}();

constexpr std::array<std::array<char, 2>, 256> kHexPairs = [] {
  constexpr char digits[] = "0123456789abcdef";
  std::array<std::array<char, 2>, 256> pairs{};
  for (std::size_t i = 0; i < 256; ++i) pairs[i] = {digits[i >> 4], digits[i & 15]};
  return pairs;
}();

// Writes the digits of a group without leading zeros; changes four bytes.
char* PutGroup(std::uint16_t group, char* out) noexcept {
  const auto high = std::bit_cast<std::uint16_t>(kHexPairs[group >> 8]);
  const auto low = std::bit_cast<std::uint16_t>(kHexPairs[group & 0xFF]);
  const int zeros = (std::countl_zero(group | 1U) - 16) / 4;
  return Put((high | std::uint32_t{low} << 16) >> 8 * zeros, out) - zeros;
}

}  // namespace

char* PutDecimal(std::uint64_t value, char* out) noexcept {
  return std::to_chars(out, out + 20, value).ptr;
}

char* PutShortDecimal(std::uint32_t value, char* out) noexcept {
  constexpr std::uint32_t kFourDigits = 10'000;
  if (value < kFourDigits) {
    // The bits in which the digits differ from zeros, and one of the last digit, which stays.
    const std::uint32_t digits = FourDigits(value);
    const int zeros = std::countr_zero((digits ^ 0x30303030U) | 1U << 24) / 8;
    return Put(digits >> 8 * zeros, out) - zeros;
  }
  constexpr std::uint32_t kEightDigits = kFourDigits * kFourDigits;
  if (value < kEightDigits) {
    const std::uint64_t digits = EightDigits(value);
    const int zeros = std::countr_zero((digits ^ 0x3030303030303030U) | std::uint64_t{1} << 56) / 8;
    return Put(digits >> 8 * zeros, out) - zeros;
  }
  out = PutShortDecimal(value / kEightDigits, out);
  return Put(EightDigits(value % kEightDigits), out);
}

char* PutSignedDecimal(std::int64_t value, char* out) noexcept {
  return std::to_chars(out, out + 20, value).ptr;
}

char* PutOctet(std::uint8_t octet, char* out) noexcept {
  const OctetText& text = kOctets[octet];
  std::memcpy(out, text.digits, sizeof(text.digits));
  return out + text.length;
}

char* PutDottedIpv4(std::uint32_t address, char* out) noexcept {
  for (const int shift : {24, 16, 8}) {
    out = PutOctet(static_cast<std::uint8_t>(address >> shift), out);
    *out++ = '.';
  }
  return PutOctet(static_cast<std::uint8_t>(address), out);
}

char* PutIpv6Text(const std::uint8_t* address, char* out) noexcept {
  std::uint16_t groups[kGroups];
  unsigned is_zero = 0;
  for (int i = kGroups - 1; i >= 0; --i) {
    groups[i] = LoadBe16(address + 2 * i);
    is_zero = 2 * is_zero + (groups[i] == 0);
  }
  const ZeroRun zeros = kZeroRuns[is_zero];
  // IPv4-compatible and IPv4-mapped addresses end in dotted decimal.
  const bool ends_in_ipv4 =
      zeros.first == 0 && (zeros.length == 6 || (zeros.length == 5 && groups[5] == 0xFFFF));
  for (int i = 0; i < kGroups; ++i) {
    if (i == zeros.first) {
      *out++ = ':';
      i += zeros.length;
      if (i == kGroups) {
        *out++ = ':';
        break;
      }
    }
    if (i > 0) *out++ = ':';
    if (i == 6 && ends_in_ipv4) return PutDottedIpv4(LoadBe32(address + 12), out);
    out = PutGroup(groups[i], out);
  }
  return out;
}

}  // namespace flow
