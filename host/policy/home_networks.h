// The networks that count as home.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace flow::host {

// An IPv4 network, host byte order; the address has no bits outside the mask.
struct Network {
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
};

// ParseNetwork reads "10.0.0.0/8" or a single address. False for anything else.
bool ParseNetwork(std::string_view text, Network* out);

class HomeNetworks {
 public:
  // The private ranges of RFC 1918.
  static HomeNetworks Private();

  explicit HomeNetworks(std::vector<Network> networks);

  [[nodiscard]] const std::vector<Network>& networks() const { return networks_; }

  // Contains asks for an address in host byte order; its cost grows with the logarithm of the
  // number of networks, because a meter asks twice per record.
  [[nodiscard]] bool Contains(std::uint32_t address) const;

 private:
  struct Range {
    std::uint32_t first;
    std::uint32_t last;
  };

  std::vector<Network> networks_;
  std::vector<Range> ranges_;  // ascending, none touching another
};

}  // namespace flow::host
