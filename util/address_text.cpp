#include "util/address_text.h"

#include <charconv>

#include "util/bytes.h"

namespace flow {
namespace {

constexpr int kGroups = 8;

// A run of groups of zero, the part that "::" stands for.
struct ZeroRun {
  int first = -1;
  int length = 0;
};

// The longest run of at least two groups, the first of equally long ones.
ZeroRun LongestZeroRun(const std::uint16_t* groups) noexcept {
  ZeroRun best;
  ZeroRun run;
  for (int i = 0; i < kGroups; ++i) {
    if (groups[i] != 0) {
      run = ZeroRun();
      continue;
    }
    if (run.length++ == 0) run.first = i;
    if (run.length > best.length) best = run;
  }
  return best.length >= 2 ? best : ZeroRun();
}

char* PutGroup(std::uint16_t group, char* out) noexcept {
  constexpr char digits[] = "0123456789abcdef";
  if (group > 0xFFF) *out++ = digits[group >> 12];
  if (group > 0xFF) *out++ = digits[group >> 8 & 15];
  if (group > 0xF) *out++ = digits[group >> 4 & 15];
  *out++ = digits[group & 15];
  return out;
}

}  // namespace

char* PutDecimal(std::uint64_t value, char* out) noexcept {
  return std::to_chars(out, out + 20, value).ptr;
}

char* PutSignedDecimal(std::int64_t value, char* out) noexcept {
  return std::to_chars(out, out + 20, value).ptr;
}

char* PutDottedIpv4(std::uint32_t address, char* out) noexcept {
  for (int shift = 24; shift >= 0; shift -= 8) {
    const unsigned octet = address >> shift & 0xFF;
    if (octet >= 100) *out++ = static_cast<char>('0' + octet / 100);
    if (octet >= 10) *out++ = static_cast<char>('0' + octet / 10 % 10);
    *out++ = static_cast<char>('0' + octet % 10);
    if (shift > 0) *out++ = '.';
  }
  return out;
}

char* PutIpv6Text(const std::uint8_t* address, char* out) noexcept {
  std::uint16_t groups[kGroups];
  for (int i = 0; i < kGroups; ++i) groups[i] = LoadBe16(address + 2 * i);
  const ZeroRun zeros = LongestZeroRun(groups);
  // IPv4-compatible and IPv4-mapped addresses end in dotted decimal.
  const bool ends_in_ipv4 =
      zeros.first == 0 && (zeros.length == 6 || (zeros.length == 5 && groups[5] == 0xFFFF));
  for (int i = 0; i < kGroups; ++i) {
    if (zeros.first >= 0 && i >= zeros.first && i < zeros.first + zeros.length) {
      if (i == zeros.first) *out++ = ':';
      continue;
    }
    if (i > 0) *out++ = ':';
    if (i == 6 && ends_in_ipv4) return PutDottedIpv4(LoadBe32(address + 12), out);
    out = PutGroup(groups[i], out);
  }
  if (zeros.first >= 0 && zeros.first + zeros.length == kGroups) *out++ = ':';
  return out;
}

}  // namespace flow
