#include "host/policy/home_networks.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace flow::host {
namespace {

std::uint32_t MaskOf(unsigned length) {
  return length == 0 ? 0 : ~std::uint32_t{0} << (32 - length);
}

}  // namespace

bool ParseNetwork(std::string_view text, Network* out) {
  const std::size_t slash = text.find('/');
  unsigned length = 32;
  if (slash != std::string_view::npos) {
    const std::string_view digits = text.substr(slash + 1);
    const auto [end, error] = std::from_chars(digits.begin(), digits.end(), length);
    if (error != std::errc() || end != digits.end() || length > 32) return false;
  }
  in_addr address{};
  if (inet_pton(AF_INET, std::string(text.substr(0, slash)).c_str(), &address) != 1) return false;
  out->mask = MaskOf(length);
  out->address = ntohl(address.s_addr) & out->mask;
  return true;
}

HomeNetworks HomeNetworks::Private() {
  return HomeNetworks(
      {{0x0A000000, MaskOf(8)}, {0xAC100000, MaskOf(12)}, {0xC0A80000, MaskOf(16)}});
}

HomeNetworks::HomeNetworks(std::vector<Network> networks) : networks_(std::move(networks)) {
  std::vector<Range> sorted;
  sorted.reserve(networks_.size());
  for (const Network& network : networks_) {
    sorted.push_back({network.address, network.address | ~network.mask});
  }
  std::ranges::sort(sorted, {}, &Range::first);
  for (const Range& range : sorted) {
    if (!ranges_.empty() && range.first <= ranges_.back().last) {
      ranges_.back().last = std::max(ranges_.back().last, range.last);
    } else {
      ranges_.push_back(range);
    }
  }
}

bool HomeNetworks::Contains(std::uint32_t address) const {
  const auto after = std::ranges::upper_bound(ranges_, address, {}, &Range::first);
  return after != ranges_.begin() && address <= std::prev(after)->last;
}

}  // namespace flow::host
