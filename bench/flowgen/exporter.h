// SPDX-License-Identifier: Apache-2.0
// An exporter makes one datagram after the other and counts in them as its protocol wants.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "bench/flowgen/options.h"
#include "bench/flowgen/traffic_model.h"

namespace flow::gen {

// When a datagram leaves: microseconds since 1970, and since the run's first datagram.
struct Moment {
  std::uint64_t time_us;
  std::uint64_t since_start_us;

  [[nodiscard]] std::uint32_t Seconds() const {
    return static_cast<std::uint32_t>(time_us / 1'000'000);
  }
  // Exporters had been up for a while when the run began, so that every flow has begun since.
  [[nodiscard]] std::uint32_t Uptime() const {
    return static_cast<std::uint32_t>(5'000'000 + since_start_us / 1000);
  }
};

inline constexpr std::size_t kMaxDatagram = 1472;  // with its headers, a frame of 1,500 bytes

// A datagram and what it claims: its records or samples, and their bytes and packets summed up.
struct Datagram {
  Moment when{};
  std::array<std::uint8_t, kMaxDatagram> payload;
  std::size_t size = 0;
  std::uint32_t records = 0;
  std::uint64_t bytes = 0;
  std::uint64_t packets = 0;
};

class Exporter {
 public:
  virtual ~Exporter() = default;

  // Make writes the next datagram, of at most `records` (at least 1) records.
  void Make(const Moment& now, std::uint64_t records, TrafficModel* traffic, Datagram* out) {
    out->when = now;
    out->bytes = 0;
    out->packets = 0;
    Write(records, traffic, out);
  }

 private:
  virtual void Write(std::uint64_t records, TrafficModel* traffic, Datagram* out) = 0;
};

// The number tells exporters apart where a protocol has a field for it.
std::unique_ptr<Exporter> NewNetflow5Exporter(std::uint32_t number);
std::unique_ptr<Exporter> NewNetflow9Exporter(std::uint32_t number);
std::unique_ptr<Exporter> NewIpfixExporter(std::uint32_t number);
std::unique_ptr<Exporter> NewSFlowExporter(std::uint32_t number, std::uint32_t agent,
                                           std::uint32_t sampling_rate);

}  // namespace flow::gen
