// SPDX-License-Identifier: Apache-2.0
// Where datagrams go: a capture file, or the loopback interface.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "bench/flowgen/exporter.h"
#include "bench/flowgen/options.h"

namespace flow::gen {

class Output {
 public:
  virtual ~Output() = default;

  // Put takes datagrams of one exporter, in order.
  virtual void Put(std::uint32_t exporter, std::span<const Datagram> datagrams) = 0;

  // Finish must come last: what was buffered may not reach the disk. Errors are exceptions.
  virtual void Finish() {}

  // How often the kernel reported that nobody listens, at most once per datagram.
  [[nodiscard]] virtual std::uint64_t SendErrors() const { return 0; }
};

// The address of an exporter, as captures show it and sFlow agents state it: 192.0.2.1 to
// 192.0.2.254, then 198.18.0.0/15.
inline constexpr std::uint32_t kMaxExporters = 100'000;
constexpr std::uint32_t ExporterAddress(std::uint32_t exporter) {
  constexpr std::uint32_t kFew = 254;
  return exporter < kFew ? 0xC0000201 + exporter : 0xC6120000 + exporter - kFew;
}

// The address that an exporter sends from on loopback.
constexpr std::uint32_t LoopbackAddress(std::uint32_t exporter) { return 0x7F010001 + exporter; }

std::unique_ptr<Output> NewCaptureOutput(const Options& options);
std::unique_ptr<Output> NewUdpOutput(const Options& options);

}  // namespace flow::gen
