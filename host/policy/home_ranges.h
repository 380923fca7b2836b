// SPDX-License-Identifier: Apache-2.0
// Sets of networks: those that count as home, or that may send.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/endpoint.h"

namespace flow::host {

// A network; its address has no bits behind the prefix.
struct Network {
  IpAddress address;
  unsigned prefix = 0;

  // The mask of an IPv4 network, host byte order.
  [[nodiscard]] std::uint32_t Ipv4Mask() const;
};

// ParseNetwork reads a network, "10.0.0.0/8" or "2001:db8::/32", or a single address. False for
// anything else.
bool ParseNetwork(std::string_view text, Network* out);

class HomeRanges {
 public:
  // The networks given; of a family of which there is none, the private ranges (RFC 1918, RFC
  // 4193).
  static HomeRanges OrPrivate(std::vector<Network> networks);

  explicit HomeRanges(const std::vector<Network>& networks);

  // Those of IPv4, which are all that a plug-in can ask for.
  [[nodiscard]] const std::vector<Network>& ipv4_networks() const { return ipv4_networks_; }

  // Contains asks for an IPv4 address in host byte order, as meters do twice per record, or for any
  // address; its cost grows with the logarithm of the number of networks.
  [[nodiscard]] bool Contains(std::uint32_t ipv4) const;
  [[nodiscard]] bool Contains(const IpAddress& address) const;

 private:
  template <class Address>
  struct Range {
    Address first;
    Address last;
  };
  // Ascending, none touching another.
  template <class Address>
  using Ranges = std::vector<Range<Address>>;

  template <class Address>
  static Ranges<Address> Joined(Ranges<Address> ranges);
  template <class Address>
  static bool Holds(const Ranges<Address>& ranges, const Address& address);

  std::vector<Network> ipv4_networks_;
  Ranges<std::uint32_t> ipv4_;
  Ranges<IpAddress> ipv6_;
};

}  // namespace flow::host
