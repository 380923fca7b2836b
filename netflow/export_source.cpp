// SPDX-License-Identifier: Apache-2.0
#include "netflow/export_source.h"

#include <algorithm>
#include <cstring>

namespace flow {

ExporterKey MkExporterKey(std::span<const std::uint8_t> ip_layer) noexcept {
  ip_header ip;
  std::memcpy(&ip, ip_layer.data(), sizeof(ip));
  std::uint16_t port = 0;
  const std::size_t port_at = ip.HeaderLength();
  if (port_at + sizeof(port) <= ip_layer.size()) {
    std::memcpy(&port, ip_layer.data() + port_at, sizeof(port));
  }
  return ExporterKey{port} << 32 | ip.source.AsStored();
}

ExportSource::ExportSource(std::span<const std::uint8_t> ip_layer) noexcept
    : key(MkExporterKey(ip_layer)), ip(), address_key(), carrier() {
  std::memcpy(&ip, ip_layer.data(), sizeof(ip));
  address_key = MakeIpv4Key(ip.source.ToHost());
  std::memcpy(carrier.data(), ip_layer.data(), std::min(ip_layer.size(), carrier.size()));
}

}  // namespace flow
