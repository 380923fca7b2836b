// SPDX-License-Identifier: Apache-2.0
#include "util/address_text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>

#include "util/bytes.h"

namespace flow {
namespace {

// Several characters are made in one word and stored at once.
static_assert(std::endian::native == std::endian::little);

// The decimal digits of an octet, and a dot; what follows them is of no use.
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
    text.digits[text.length] = '.';
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

// Four digits in one word; the first one is the lowest byte, as in memory.
std::uint32_t FourDigits(std::uint32_t value) noexcept {
  const auto high = std::bit_cast<std::uint16_t>(kDecimalPairs[value / 100]);
  const auto low = std::bit_cast<std::uint16_t>(kDecimalPairs[value % 100]);
  return high | std::uint32_t{low} << 16;
}

// The characters of such a word.
template <class Word>
char* Put(Word characters, char* out) noexcept {
  __builtin_memcpy(out, &characters, sizeof(characters));
  return out + sizeof(characters);
}

// Leaves leading zeros out; changes four bytes.
char* PutUpToFourDigits(std::uint32_t value, char* out) noexcept {
  // The bits in which the digits differ from zeros, and one of the last digit, which stays.
  const std::uint32_t digits = FourDigits(value);
  const auto zeros = static_cast<unsigned>(std::countr_zero((digits ^ 0x30303030U) | 1U << 24)) / 8;
  return Put(digits >> 8 * zeros, out) - zeros;
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
constexpr std::array<ZeroRun, 256> kZeroRuns = [] {  // by the groups that are not zero
  std::array<ZeroRun, 256> runs{};
  for (unsigned others = 0; others < runs.size(); ++others) {
    runs[others] = LongestZeroRun(~others & 0xFF);
  }
  return runs;
}();

// Bit i says that the i-th group in memory is not zero.
unsigned NonzeroGroups(const std::uint8_t* address) noexcept {
  constexpr std::uint64_t kTops = 0x8000800080008000;
  std::uint64_t halves[2];
  __builtin_memcpy(halves, address, sizeof(halves));
  // The top bit of each group becomes that group's answer, and moves to the group's bit 0.
  const auto answers = [](std::uint64_t groups) {
    return ((((groups & ~kTops) + ~kTops) | groups) & kTops) >> 15;
  };
  // Gathers bits 0, 16, 32 and 48, and those four places above each, from bit 48 on.
  constexpr std::uint64_t kGather = 1ULL << 48 | 1ULL << 33 | 1ULL << 18 | 1ULL << 3;
  return static_cast<unsigned>((answers(halves[0]) | answers(halves[1]) << 4) * kGather >> 48);
}

// The two digits of each octet, and how they are written without leading zeros.
struct HexText {
  char pair[2];
  char digits[2];
  std::uint32_t length;
};
constexpr std::array<HexText, 256> kHexTexts = [] {
  constexpr char digits[] = "0123456789abcdef";
  std::array<HexText, 256> texts{};
  for (std::size_t i = 0; i < 256; ++i) {
    const char high = digits[i >> 4];
    const char low = digits[i & 15];
    texts[i] = i > 15 ? HexText{{high, low}, {high, low}, 2} : HexText{{high, low}, {low}, 1};
  }
  return texts;
}();

// Copies of fixed sizes below are the compiler's own: a fortified memcpy counts as a call when it
// decides what to inline.

// Writes groups, each without leading zeros and with a colon behind it.
char* PutGroups(const std::uint8_t* address, int from, int to, char* out) noexcept {
  for (int i = from; i < to; ++i) {
    const HexText& high = kHexTexts[address[2 * i]];
    const HexText& low = kHexTexts[address[2 * i + 1]];
    if (address[2 * i] != 0) {
      __builtin_memcpy(out, high.digits, 2);
      out += high.length;
      __builtin_memcpy(out, low.pair, 2);
      out += 2;
    } else {
      __builtin_memcpy(out, low.digits, 2);
      out += low.length;
    }
    *out++ = ':';
  }
  return out;
}

}  // namespace

char* PutDecimal(std::uint64_t value, char* out) noexcept {
  return std::to_chars(out, out + 20, value).ptr;
}

char* PutShortDecimal(std::uint32_t value, char* out) noexcept {
  constexpr std::uint32_t kFourDigits = 10'000;
  if (value < kFourDigits) return PutUpToFourDigits(value, out);
  const std::uint32_t high = value / kFourDigits;
  if (high >= kFourDigits) return PutDecimal(value, out);
  if (high < 10) {
    *out++ = static_cast<char>('0' + high);
  } else {
    out = PutUpToFourDigits(high, out);
  }
  return Put(FourDigits(value % kFourDigits), out);
}

char* PutSignedDecimal(std::int64_t value, char* out) noexcept {
  return std::to_chars(out, out + 20, value).ptr;
}

char* PutOctet(std::uint8_t octet, char* out) noexcept {
  const OctetText& text = kOctets[octet];
  __builtin_memcpy(out, text.digits, sizeof(text.digits));
  return out + text.length;
}

char* PutDottedIpv4(std::uint32_t address, char* out) noexcept {
  for (const int shift : {24, 16, 8}) {
    out = PutOctet(static_cast<std::uint8_t>(address >> shift), out) + 1;  // with its dot
  }
  return PutOctet(static_cast<std::uint8_t>(address), out);
}

char* PutIpv6Text(const std::uint8_t* address, char* out) noexcept {
  const ZeroRun zeros = kZeroRuns[NonzeroGroups(address)];
  out = PutGroups(address, 0, zeros.first, out);
  if (zeros.length == 0) return out - 1;  // without the last colon
  const int behind = zeros.first + zeros.length;
  if (zeros.first == 0) *out++ = ':';
  *out++ = ':';
  if (behind == kGroups) return out;
  // IPv4-compatible and IPv4-mapped addresses end in dotted decimal.
  if (zeros.first == 0 && (behind == 6 || (behind == 5 && LoadBe16(address + 10) == 0xFFFF))) {
    return PutDottedIpv4(LoadBe32(address + 12), PutGroups(address, behind, 6, out));
  }
  return PutGroups(address, behind, kGroups, out) - 1;
}

}  // namespace flow
