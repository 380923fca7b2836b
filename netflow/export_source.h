// SPDX-License-Identifier: Apache-2.0
// Where an export datagram came from: what its IPv4 header says, computed once per datagram.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "flowhandlers/counter_keys.h"
#include "netflow/export_formats.h"

namespace flow {

// An exporter's templates are kept under the IPv4 source address of its datagrams (low 32 bits) and
// their UDP source port (bits 32 to 47), both as stored on the wire.
using ExporterKey = std::uint64_t;

// MkExporterKey reads the key from an IPv4 layer of at least 20 bytes. A port that does not lie
// inside the layer counts as 0.
[[nodiscard]] ExporterKey MkExporterKey(std::span<const std::uint8_t> ip_layer) noexcept;

[[nodiscard]] constexpr std::uint32_t AddressOf(ExporterKey key) noexcept {  // host byte order
  return be32{std::bit_cast<be32>(static_cast<std::uint32_t>(key))}.ToHost();
}
[[nodiscard]] constexpr std::uint16_t PortOf(ExporterKey key) noexcept {
  return std::bit_cast<be16>(static_cast<std::uint16_t>(key >> 32)).ToHost();
}

struct ExportSource {
  ExporterKey key;
  ip_header ip;
  Ipv4Key address_key;  // the address as a counter key
  // The IPv4 header and what follows it, the first 24 bytes: with these a template set travels to
  // the other meters. Bytes that the layer does not have are 0.
  std::array<std::uint8_t, 24> carrier;
  // Whose templates and rates these are, where the policy keeps them by domain: v9's source id,
  // IPFIX' observation domain. Unknown in messages of meters that do not tell it.
  std::optional<std::uint32_t> domain = std::nullopt;

  // The layer has at least 20 bytes.
  explicit ExportSource(std::span<const std::uint8_t> ip_layer) noexcept;

  [[nodiscard]] std::uint32_t Address() const noexcept { return ip.source.ToHost(); }
};

}  // namespace flow
