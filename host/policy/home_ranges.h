// The networks that count as home.
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

// ParseNetwork reads an IPv4 network, "10.0.0.0/8", or a single address. False for anything else.
bool ParseNetwork(std::string_view text, Network* out);

class HomeRanges {
 public:
  // The private ranges of RFC 1918.
  static HomeRanges Private();

  explicit HomeRanges(std::vector<Network> networks);

  [[nodiscard]] const std::vector<Network>& networks() const { return networks_; }

  // Contains asks for an IPv4 address in host byte order, as meters do twice per record; its cost
  // grows with the logarithm of the number of networks.
  [[nodiscard]] bool Contains(std::uint32_t ipv4) const;

 private:
  struct Range {  // of IPv4 addresses
    std::uint32_t first;
    std::uint32_t last;
  };

  std::vector<Network> networks_;
  std::vector<Range> ranges_;  // ascending, none touching another
};

}  // namespace flow::host
