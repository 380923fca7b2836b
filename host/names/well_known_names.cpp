// SPDX-License-Identifier: Apache-2.0
#include "host/names/well_known_names.h"

#include <absl/container/flat_hash_map.h>
#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <iterator>
#include <string>

namespace flow::host {
namespace {

using Services = absl::flat_hash_map<std::uint16_t, std::string>;

// The whole list is read once: asking for one port reads the file again each time. TCP names win.
Services LoadServices() {
  Services services;
  setservent(1);
  while (const servent* const entry = getservent()) {
    const auto port = ntohs(static_cast<std::uint16_t>(entry->s_port));
    const std::string_view protocol = entry->s_proto;
    if (protocol == "tcp") services.insert_or_assign(port, entry->s_name);
    if (protocol == "udp") services.try_emplace(port, entry->s_name);
  }
  endservent();
  return services;
}

struct Protocol {
  std::uint8_t number;
  std::string_view name;
};

// Those that export data name often, so that a system without a list knows them too.
constexpr Protocol kProtocols[] = {
    {0, "hopopt"}, {1, "icmp"},  {2, "igmp"},   {4, "ipip"},   {6, "tcp"},        {17, "udp"},
    {41, "ipv6"},  {47, "gre"},  {50, "esp"},   {51, "ah"},    {58, "ipv6-icmp"}, {88, "eigrp"},
    {89, "ospf"},  {103, "pim"}, {112, "vrrp"}, {115, "l2tp"}, {132, "sctp"},
};

}  // namespace

std::string_view ServiceName(std::uint16_t port) {
  // Never destroyed: a last report may be made while the process ends.
  static const Services& services = *new Services(LoadServices());
  const auto known = services.find(port);
  return known == services.end() ? std::string_view() : std::string_view(known->second);
}

std::string_view ProtocolName(std::uint8_t protocol) {
  const auto* const known = std::ranges::find(kProtocols, protocol, &Protocol::number);
  return known == std::end(kProtocols) ? std::string_view() : known->name;
}

}  // namespace flow::host
