// SPDX-License-Identifier: Apache-2.0
#include "host/policy/home_ranges.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace flow::host {
namespace {

// An IPv6 address with all bits behind the prefix set, or none.
IpAddress WithBitsBehind(const IpAddress& address, unsigned prefix, bool set) {
  std::array<std::uint8_t, 16> bytes{};
  std::ranges::copy(address.bytes(), bytes.begin());
  for (unsigned bit = prefix; bit < 128; ++bit) {
    const auto mask = static_cast<std::uint8_t>(0x80U >> bit % 8);
    std::uint8_t& byte = bytes[bit / 8];
    byte = static_cast<std::uint8_t>(set ? byte | mask : byte & ~mask);
  }
  return IpAddress::Ipv6(bytes);
}

}  // namespace

std::uint32_t Network::Ipv4Mask() const {
  return prefix == 0 ? 0 : ~std::uint32_t{0} << (32 - prefix);
}

bool ParseNetwork(std::string_view text, Network* out) {
  const std::size_t slash = text.find('/');
  const auto address = IpAddress::Parse(std::string(text.substr(0, slash)));
  if (!address) return false;
  const unsigned most = address->family() == Family::kIpv4 ? 32 : 128;
  out->prefix = most;
  if (slash != std::string_view::npos) {
    const std::string_view digits = text.substr(slash + 1);
    const auto [end, error] = std::from_chars(digits.begin(), digits.end(), out->prefix);
    if (error != std::errc() || end != digits.end() || out->prefix > most) return false;
  }
  out->address = *address;
  out->address = address->family() == Family::kIpv4
                     ? IpAddress::Ipv4(address->AsIpv4() & out->Ipv4Mask())
                     : WithBitsBehind(*address, out->prefix, false);
  return true;
}

template <class Address>
HomeRanges::Ranges<Address> HomeRanges::Joined(Ranges<Address> ranges) {
  std::ranges::sort(ranges, {}, &Range<Address>::first);
  Ranges<Address> joined;
  for (const Range<Address>& range : ranges) {
    if (!joined.empty() && range.first <= joined.back().last) {
      joined.back().last = std::max(joined.back().last, range.last);
    } else {
      joined.push_back(range);
    }
  }
  return joined;
}

template <class Address>
bool HomeRanges::Holds(const Ranges<Address>& ranges, const Address& address) {
  const auto after = std::ranges::upper_bound(ranges, address, {}, &Range<Address>::first);
  return after != ranges.begin() && address <= std::prev(after)->last;
}

HomeRanges HomeRanges::OrPrivate(std::vector<Network> networks) {
  const auto has = [&](Family family) {
    return std::ranges::any_of(
        networks, [&](const Network& network) { return network.address.family() == family; });
  };
  const bool has_ipv6 = has(Family::kIpv6);
  if (!has(Family::kIpv4)) {
    networks.push_back({IpAddress::Ipv4(0x0A000000), 8});
    networks.push_back({IpAddress::Ipv4(0xAC100000), 12});
    networks.push_back({IpAddress::Ipv4(0xC0A80000), 16});
  }
  constexpr std::array<std::uint8_t, 16> kLocal{0xFC};
  if (!has_ipv6) networks.push_back({IpAddress::Ipv6(kLocal), 7});
  return HomeRanges(networks);
}

HomeRanges::HomeRanges(const std::vector<Network>& networks) {
  for (const Network& network : networks) {
    if (network.address.family() == Family::kIpv6) {
      ipv6_.push_back({network.address, WithBitsBehind(network.address, network.prefix, true)});
      continue;
    }
    const std::uint32_t first = network.address.AsIpv4();
    ipv4_networks_.push_back(network);
    ipv4_.push_back({first, first | ~network.Ipv4Mask()});
  }
  ipv4_ = Joined(std::move(ipv4_));
  ipv6_ = Joined(std::move(ipv6_));
}

bool HomeRanges::Contains(std::uint32_t ipv4) const { return Holds(ipv4_, ipv4); }
bool HomeRanges::Contains(const IpAddress& address) const {
  const bool is_ipv4 = address.family() == Family::kIpv4;
  return is_ipv4 ? Contains(address.AsIpv4()) : Holds(ipv6_, address);
}

}  // namespace flow::host
