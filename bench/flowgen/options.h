// SPDX-License-Identifier: Apache-2.0
// What a run is to do.
#pragma once

#include <cstdint>
#include <string>

namespace flow::gen {

enum class Format : std::uint8_t { kNetflow5, kNetflow9, kIpfix, kSFlow };
inline constexpr std::uint32_t kFormats = 4;

struct Options {
  Format format = Format::kNetflow5;
  bool mixed = false;  // the formats in turn, one exporter each
  std::uint64_t records = 1'000'000;
  std::uint32_t hosts = 10'000;
  std::uint32_t exporters = 1;
  std::uint64_t seed = 1;
  std::uint32_t minutes = 1;
  bool fresh_hosts = false;
  bool realistic = false;
  std::uint32_t drop_every = 0;
  std::uint32_t sampling_rate = 1;

  std::string write;             // a capture file
  std::uint32_t send_to = 0;     // or an address on loopback
  std::uint16_t port = 0;        // 0: the port of each format
  std::uint16_t sflow_port = 0;  // 0: as any other
  std::uint32_t rate = 0;        // datagrams a second; 0: as fast as possible
  std::uint32_t batch = 32;

  [[nodiscard]] Format FormatOf(std::uint32_t exporter) const {
    return mixed ? static_cast<Format>(exporter % kFormats) : format;
  }
  [[nodiscard]] std::uint16_t PortOf(Format of) const {
    constexpr std::uint16_t kPorts[kFormats] = {2055, 2055, 4739, 6343};
    if (of == Format::kSFlow && sflow_port != 0) return sflow_port;
    return port != 0 ? port : kPorts[static_cast<std::uint32_t>(of)];
  }
};

inline constexpr int kExitOk = 0;
inline constexpr int kExitTrouble = 1;
inline constexpr int kExitUsage = 2;

}  // namespace flow::gen
