#include "host/base/endpoint.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>

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

std::string IpAddress::Text() const {
  char text[INET6_ADDRSTRLEN] = "";
  inet_ntop(family_ == Family::kIpv4 ? AF_INET : AF_INET6, bytes_.data(), text, sizeof(text));
  return text;
}

std::string Endpoint::Text() const {
  if (address.family() == Family::kIpv6) return fmt::format("[{}]:{}", address.Text(), port);
  return fmt::format("{}:{}", address.Text(), port);
}

}  // namespace flow::host
