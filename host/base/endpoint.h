// SPDX-License-Identifier: Apache-2.0
// Where a datagram comes from or goes to: an address of either family, and a port.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace flow::host {

enum class Family : std::uint8_t { kIpv4, kIpv6 };

// An IPv4 or IPv6 address, 0.0.0.0 by default. All of IPv4 come in front of IPv6.
class IpAddress {
 public:
  constexpr IpAddress() = default;

  // Ipv4 takes an address in host byte order, Ipv6 the bytes as they go over the wire.
  static constexpr IpAddress Ipv4(std::uint32_t address) {
    IpAddress made;
    for (std::size_t i = 4; i-- > 0; address >>= 8) {
      made.bytes_[i] = static_cast<std::uint8_t>(address);
    }
    return made;
  }
  static IpAddress Ipv6(std::span<const std::uint8_t, 16> bytes);

  // Parse reads "192.0.2.1" or "2001:db8::1".
  static std::optional<IpAddress> Parse(const std::string& text);

  [[nodiscard]] Family family() const { return family_; }

  // The address as it goes over the wire: 4 or 16 bytes.
  [[nodiscard]] std::span<const std::uint8_t> bytes() const {
    return {bytes_.data(), family_ == Family::kIpv4 ? std::size_t{4} : bytes_.size()};
  }

  // AsIpv4 gives an IPv4 address in host byte order.
  [[nodiscard]] constexpr std::uint32_t AsIpv4() const {
    return std::uint32_t{bytes_[0]} << 24 | std::uint32_t{bytes_[1]} << 16 |
           std::uint32_t{bytes_[2]} << 8 | bytes_[3];
  }

  // MappedIpv4 gives the IPv4 address that is written as one of IPv6, "::ffff:192.0.2.1".
  [[nodiscard]] std::optional<IpAddress> MappedIpv4() const;

  [[nodiscard]] std::string Text() const;

  friend auto operator<=>(const IpAddress&, const IpAddress&) = default;

  template <class Hash>
  friend Hash AbslHashValue(Hash hash, const IpAddress& address) {
    return Hash::combine(std::move(hash), address.family_, address.bytes_);
  }

 private:
  Family family_ = Family::kIpv4;
  std::array<std::uint8_t, 16> bytes_{};  // what IPv4 leaves over is zero
};

struct Endpoint {
  IpAddress address;
  std::uint16_t port = 0;

  // Parse reads what Text writes.
  static std::optional<Endpoint> Parse(const std::string& text);

  // "192.0.2.1:2055", "[2001:db8::1]:2055".
  [[nodiscard]] std::string Text() const;

  friend auto operator<=>(const Endpoint&, const Endpoint&) = default;

  template <class Hash>
  friend Hash AbslHashValue(Hash hash, const Endpoint& endpoint) {
    return Hash::combine(std::move(hash), endpoint.address, endpoint.port);
  }
};

}  // namespace flow::host
