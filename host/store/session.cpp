// SPDX-License-Identifier: Apache-2.0
#include "host/store/session.h"

namespace flow::host {
namespace {

constexpr std::array<std::uint8_t, 256> kDigits = [] {
  std::array<std::uint8_t, 256> digits{};
  digits.fill(0xFF);
  for (std::size_t i = 0; i < 10; ++i) digits['0' + i] = static_cast<std::uint8_t>(i);
  for (std::size_t i = 0; i < 6; ++i) digits['A' + i] = static_cast<std::uint8_t>(10 + i);
  return digits;
}();

// Reads pieces of a key that is known to be long enough; what does not fit shows in the end.
class Reader {
 public:
  explicit Reader(const char* at) : at_(at) {}

  std::uint32_t Hex(int digits) {
    std::uint32_t value = 0;
    for (; digits > 0; --digits) {
      const std::uint8_t digit = kDigits[static_cast<unsigned char>(*at_++)];
      wrong_ |= digit & 0xF0;
      value = value << 4 | (digit & 0x0F);
    }
    return value;
  }
  void Expect(char c) { wrong_ |= static_cast<unsigned>(*at_++ ^ c); }

  void End(bool is_ipv6, SessionEnd* end) {
    for (std::size_t i = 0; i < (is_ipv6 ? 16U : 4U); ++i) {
      if (!is_ipv6 && i > 0) Expect('.');
      end->address[i] = static_cast<std::uint8_t>(Hex(2));
    }
    for (const char c : {':', 'p', '-'}) Expect(c);
    end->port = static_cast<std::uint16_t>(Hex(4));
    Expect('_');
  }

  [[nodiscard]] const char* at() const { return at_; }
  void Skip(std::size_t length) { at_ += length; }
  [[nodiscard]] bool Fits() const { return wrong_ == 0; }

 private:
  const char* at_;
  unsigned wrong_ = 0;
};

constexpr std::size_t kIpv4Sides = 42;
constexpr std::size_t kIpv6Sides = 84;

}  // namespace

bool ReadSession(std::string_view key, Session* session) {
  if (key.size() < kIpv4Sides || (key[2] != 'C' && key[2] != 'D')) return false;
  session->is_ipv6 = key[2] == 'D';
  const std::size_t sides = session->is_ipv6 ? kIpv6Sides : kIpv4Sides;
  // An exporter's address of IPv4 or IPv6, and two interfaces of 8 digits, or 4 where all are 0.
  constexpr std::size_t kShort = 21;
  constexpr std::size_t kIpv4 = 29;
  constexpr std::size_t kIpv6 = 50;
  const std::size_t rest = key.size() < sides ? 0 : key.size() - sides;
  if (rest != kShort && rest != kIpv4 && rest != kIpv6) return false;
  const int digits = rest == kShort ? 4 : 8;
  Reader reader(key.data());
  session->protocol = static_cast<std::uint8_t>(reader.Hex(2));
  reader.Skip(1);
  reader.Expect(':');
  reader.End(session->is_ipv6, &session->a);
  reader.End(session->is_ipv6, &session->b);
  session->exporter = {reader.at(), rest == kIpv6 ? std::size_t{32} : std::size_t{11}};
  reader.Skip(session->exporter.size());
  reader.Expect('_');
  session->a.interface = reader.Hex(digits);
  reader.Expect('_');
  session->b.interface = reader.Hex(digits);
  return reader.Fits();
}

}  // namespace flow::host
