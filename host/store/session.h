// SPDX-License-Identifier: Apache-2.0
// The sides of a flow, read from its key.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace flow::host {

struct SessionEnd {
  std::array<std::uint8_t, 16> address;
  std::uint16_t port;
  std::uint32_t interface;
};

struct Session {
  SessionEnd a;
  SessionEnd b;
  std::uint8_t protocol;
  bool is_ipv6;
  std::string_view exporter;  // its key; all zero where flows of several exporters are one

  [[nodiscard]] std::span<const std::uint8_t> AddressOf(const SessionEnd& end) const {
    return {end.address.data(), is_ipv6 ? std::size_t{16} : std::size_t{4}};
  }
};

// ReadSession reads "06C:0A.00.00.05:p-C001_0A.00.00.06:p-01BB_C0.00.02.01_00000001_00000002";
// false when the key has another form.
bool ReadSession(std::string_view key, Session* session);

}  // namespace flow::host
