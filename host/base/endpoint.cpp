// SPDX-License-Identifier: Apache-2.0
#include "host/base/endpoint.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace flow::host {

IpAddress IpAddress::Ipv6(std::span<const std::uint8_t, 16> bytes) {
  IpAddress made;
  made.family_ = Family::kIpv6;
  std::ranges::copy(bytes, made.bytes_.begin());
  return made;
}

std::optional<IpAddress> IpAddress::Parse(const std::string& text) {
  IpAddress parsed;
  if (inet_pton(AF_INET, text.c_str(), parsed.bytes_.data()) == 1) return parsed;
  parsed.family_ = Family::kIpv6;
  if (inet_pton(AF_INET6, text.c_str(), parsed.bytes_.data()) == 1) return parsed;
  return std::nullopt;
}

// RFC 4291, 2.5.5.2.
std::optional<IpAddress> IpAddress::MappedIpv4() const {
  constexpr std::array<std::uint8_t, 12> kFront{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  const auto front = bytes().first(std::min(bytes().size(), kFront.size()));
  if (!std::ranges::equal(front, kFront)) return std::nullopt;
  IpAddress ipv4;
  std::ranges::copy(bytes().subspan(kFront.size()), ipv4.bytes_.begin());
  return ipv4;
}

std::string IpAddress::Text() const {
  char text[INET6_ADDRSTRLEN] = "";
  inet_ntop(family_ == Family::kIpv4 ? AF_INET : AF_INET6, bytes_.data(), text, sizeof(text));
  return text;
}

std::optional<Endpoint> Endpoint::Parse(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return std::nullopt;
  const char* const end = text.data() + text.size();
  Endpoint parsed;
  const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, parsed.port);
  const bool is_bracketed = text[0] == '[' && colon >= 2 && text[colon - 1] == ']';
  const auto address =
      IpAddress::Parse(is_bracketed ? text.substr(1, colon - 2) : text.substr(0, colon));
  if (error != std::errc() || stop != end || !address) return std::nullopt;
  if (is_bracketed != (address->family() == Family::kIpv6)) return std::nullopt;
  parsed.address = *address;
  return parsed;
}

std::string Endpoint::Text() const {
  if (address.family() == Family::kIpv6) return fmt::format("[{}]:{}", address.Text(), port);
  return fmt::format("{}:{}", address.Text(), port);
}

}  // namespace flow::host
