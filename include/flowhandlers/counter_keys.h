// SPDX-License-Identifier: Apache-2.0
// Counter keys: the fixed-width upper-case hexadecimal texts that name hosts, interfaces, subnets
// and ports. The host stores counters under these texts, so one input always gives one
// text. All numbers are in host byte order.
//
// A writer (MakeX, FormatMAC) puts its text at `out`, ends it with a NUL and returns the position
// of that NUL. The caller's buffer holds the key's length and the NUL.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace flow {

inline constexpr std::size_t kIpv4KeyLength = 11;  // C0.A8.01.0A
inline constexpr std::size_t kIpv6KeyLength = 32;
inline constexpr std::size_t kInterfaceKeyLength = 20;  // C0.A8.01.01_0000000A
inline constexpr std::size_t kSubnetKeyLength = 14;     // C0.A8.01.00/18
inline constexpr std::size_t kMacKeyLength = 17;        // 00:1B:21:3A:4F:5C
inline constexpr std::size_t kPortKeyLength = 6;        // p-0050
inline constexpr std::size_t kProtocolKeyLength = 2;    // 06
inline constexpr std::size_t kKeyBufferSize = 256;      // of a meter's key buffers

// "00" to "FF", each with the dot that follows it in an address.
struct HexOctet {
  char text[4];
};
inline constexpr std::array<HexOctet, 256> kHexOctets = [] {
  constexpr char digits[] = "0123456789ABCDEF";
  std::array<HexOctet, 256> octets{};
  for (std::size_t i = 0; i < 256; ++i) octets[i] = {{digits[i >> 4], digits[i & 15], '.', '\0'}};
  return octets;
}();

// CopyFixed copies N characters, in a few moves. A memcpy that is fortified at its source counts as
// a call when the compiler decides what to inline, and keys are written for every record.
template <std::size_t N>
[[gnu::always_inline]] inline void CopyFixed(const char* from, char* out) noexcept {
#ifdef __GNUC__
  __builtin_memcpy(out, from, N);
#else
  std::memcpy(out, from, N);
#endif
}

// The PutX functions write digits alone, without a NUL, and return the position behind them.
inline char* PutHexPair(std::size_t value, char* out) noexcept {  // value is below 256
  CopyFixed<2>(kHexOctets[value].text, out);
  return out + 2;
}
inline char* PutHex8(std::uint8_t value, char* out) noexcept { return PutHexPair(value, out); }
inline char* PutHex16(std::uint16_t value, char* out) noexcept {
  const std::size_t index = value;  // as wide as a register, which saves conversions
  return PutHexPair(index & 0xFF, PutHexPair(index >> 8, out));
}
[[gnu::always_inline]] inline char* PutHex32(std::uint32_t value, char* out) noexcept {
  const auto low = static_cast<std::uint16_t>(value);
  if (value == low) {  // most interface numbers
    std::memset(out, '0', 4);
    return PutHex16(low, out + 4);
  }
  return PutHex16(low, PutHex16(static_cast<std::uint16_t>(value >> 16), out));
}
// As many digits as the number needs, at least two.
inline char* PutHexDigits(std::uint32_t value, char* out) noexcept {
  unsigned digits = 2;
  while (digits < 8 && value >> 4 * digits != 0) ++digits;
  for (unsigned i = digits; i > 0; --i) *out++ = kHexOctets[value >> 4 * (i - 1) & 15].text[1];
  return out;
}
inline char* PutIpv4(std::uint32_t address, char* out) noexcept {
  // Four bytes at a time: the last one of them is written over by what follows.
  const auto put_with_dot = [&](std::uint32_t octet, char* to) {
    CopyFixed<sizeof(HexOctet)>(kHexOctets[octet & 0xFF].text, to);
  };
  put_with_dot(address >> 24, out);
  put_with_dot(address >> 16, out + 3);
  put_with_dot(address >> 8, out + 6);
  PutHex8(static_cast<std::uint8_t>(address), out + 9);
  return out + kIpv4KeyLength;
}

}  // namespace flow

namespace OmbrelAPI {

// Long2Hex writes a number as 8 hexadecimal digits.
inline char* Long2Hex(std::uint32_t value, char* out) noexcept {
  out = flow::PutHex32(value, out);
  *out = '\0';
  return out;
}

// Long2IPHex writes an IPv4 address as four hexadecimal octets joined by dots.
inline char* Long2IPHex(std::uint32_t address, char* out) noexcept {
  out = flow::PutIpv4(address, out);
  *out = '\0';
  return out;
}

// IP62Hex writes the 16 bytes of an IPv6 address, network order, as 32 hexadecimal digits.
// Compilers make all of them at once with vector instructions, as long as it stays a function of
// its own.
[[gnu::noinline]] inline char* IP62Hex(const std::uint8_t* address, char* out) noexcept {
  std::int8_t digits[32];
  for (std::size_t i = 0; i < 16; ++i) {
    digits[2 * i] = static_cast<std::int8_t>(address[i] >> 4);
    digits[2 * i + 1] = static_cast<std::int8_t>(address[i] & 15);
  }
  for (int i = 0; i < 32; ++i) {
    out[i] = static_cast<char>(digits[i] + '0' + (digits[i] > 9 ? 'A' - '9' - 1 : 0));
  }
  out[32] = '\0';
  return out + 32;
}

}  // namespace OmbrelAPI

namespace flow {

// An IPv4 key that was made before, ready to be put into longer keys.
struct Ipv4Key {
  char text[kIpv4KeyLength + 1];
};
// Inlined, so that the text is written where it stays: returned, it would pass through registers.
[[nodiscard, gnu::always_inline]] inline Ipv4Key MakeIpv4Key(std::uint32_t address) noexcept {
  Ipv4Key key;  // NOLINT(cppcoreguidelines-pro-type-member-init)
  OmbrelAPI::Long2IPHex(address, key.text);
  return key;
}

// The last address and its key, for addresses that come again in record after record.
class RecentIpv4Key {
 public:
  [[nodiscard]] const char* KeyOf(std::uint32_t address) noexcept {
    if (address != address_) {
      address_ = address;
      key_ = MakeIpv4Key(address);
    }
    return key_.text;
  }

 private:
  std::uint32_t address_ = 0;
  Ipv4Key key_ = MakeIpv4Key(0);
};

// An interface is named by its exporter's address and its ifIndex there.
[[gnu::always_inline]] inline char* MakeIntfKey(const Ipv4Key& exporter, std::uint32_t ifindex,
                                                char* out) noexcept {
  CopyFixed<kIpv4KeyLength>(exporter.text, out);
  out[kIpv4KeyLength] = '_';
  return OmbrelAPI::Long2Hex(ifindex, out + kIpv4KeyLength + 1);
}

// The key of one interface after the other of an exporter, whose part is written once.
class InterfaceKey {
 public:
  InterfaceKey() noexcept { SetExporter(MakeIpv4Key(0)); }
  void SetExporter(const Ipv4Key& exporter) noexcept { MakeIntfKey(exporter, 0, text_); }

  // KeyOf has kInterfaceKeyLength characters, until it is asked again.
  [[nodiscard]] const char* KeyOf(std::uint32_t ifindex) noexcept {
    PutHex32(ifindex, text_ + kIpv4KeyLength + 1);
    return text_;
  }

 private:
  char text_[kInterfaceKeyLength + 1];
};

// prefix_length is 1 to 31.
inline char* MakeSubnetKey(std::uint32_t address, std::uint8_t prefix_length, char* out) noexcept {
  out = PutIpv4(address & (~std::uint32_t{0} << (32 - prefix_length)), out);
  *out = '/';
  out = PutHex8(prefix_length, out + 1);
  *out = '\0';
  return out;
}

inline char* FormatMAC(const std::uint8_t* mac, char* out) noexcept {
  for (int i = 0; i < 6; ++i) {
    if (i > 0) *out++ = ':';
    out = PutHex8(mac[i], out);
  }
  *out = '\0';
  return out;
}

inline char* MakePortKey(std::uint16_t port, char* out) noexcept {
  out[0] = 'p';
  out[1] = '-';
  out = PutHex16(port, out + 2);
  *out = '\0';
  return out;
}

inline char* MakeProtocolKey(std::uint8_t protocol, char* out) noexcept {
  out = PutHex8(protocol, out);
  *out = '\0';
  return out;
}

// WriteText copies a text with its NUL.
template <std::size_t N>
char* WriteText(const char (&text)[N], char* out) noexcept {
  CopyFixed<N>(text, out);
  return out + N - 1;
}

}  // namespace flow
