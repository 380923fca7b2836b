#include "host/policy/home_ranges.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace flow::host {

std::uint32_t Network::Ipv4Mask() const {
  return prefix == 0 ? 0 : ~std::uint32_t{0} << (32 - prefix);
}

bool ParseNetwork(std::string_view text, Network* out) {
  const std::size_t slash = text.find('/');
  out->prefix = 32;
  if (slash != std::string_view::npos) {
    const std::string_view digits = text.substr(slash + 1);
    const auto [end, error] = std::from_chars(digits.begin(), digits.end(), out->prefix);
    if (error != std::errc() || end != digits.end() || out->prefix > 32) return false;
  }
  const auto address = IpAddress::Parse(std::string(text.substr(0, slash)));
  if (!address || address->family() != Family::kIpv4) return false;
  out->address = IpAddress::Ipv4(address->AsIpv4() & out->Ipv4Mask());
  return true;
}

HomeRanges HomeRanges::Private() {
  return HomeRanges({{IpAddress::Ipv4(0x0A000000), 8},
                     {IpAddress::Ipv4(0xAC100000), 12},
                     {IpAddress::Ipv4(0xC0A80000), 16}});
}

HomeRanges::HomeRanges(std::vector<Network> networks) : networks_(std::move(networks)) {
  std::vector<Range> sorted;
  sorted.reserve(networks_.size());
  for (const Network& network : networks_) {
    const std::uint32_t first = network.address.AsIpv4();
    sorted.push_back({first, first | ~network.Ipv4Mask()});
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

bool HomeRanges::Contains(std::uint32_t ipv4) const {
  const auto after = std::ranges::upper_bound(ranges_, ipv4, {}, &Range::first);
  return after != ranges_.begin() && ipv4 <= std::prev(after)->last;
}

}  // namespace flow::host
