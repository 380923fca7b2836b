// SPDX-License-Identifier: Apache-2.0
// What a lane is told of datagrams that found its queue full: their numbers, so that what was lost
// here is not lost on the way as well.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/capture/udp_packet.h"

namespace flow::host {

class DroppedNumbers {
 public:
  struct Entry {
    Endpoint exporter;  // that sent it
    Timestamp time;
    std::size_t offset;
    std::size_t length;
  };

  // Add keeps a datagram's numbers, as a datagram without records and with its shim.
  void Add(const UdpPacket& packet);

  // In the order in which they came.
  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }
  [[nodiscard]] std::span<const std::uint8_t> BytesOf(const Entry& entry) const {
    return std::span(bytes_).subspan(entry.offset, entry.length);
  }

  // About the memory that they take.
  [[nodiscard]] std::size_t Size() const { return bytes_.size() + entries_.size() * sizeof(Entry); }

 private:
  std::vector<Entry> entries_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace flow::host
