// SPDX-License-Identifier: Apache-2.0
// What a lane is told of datagrams that found its queue full: their numbers, so that what was lost
// here is not lost on the way as well.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "host/capture/udp_packet.h"

namespace flow::host {

// Datagrams that were dropped, by the UDP port that they came to.
using PortDrops = std::map<std::uint16_t, std::uint64_t>;

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
  // AddUnseen counts a datagram for whose numbers there is no room.
  void AddUnseen(const UdpPacket& packet) { ++unseen_[packet.destination.port]; }

  // In the order in which they came.
  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }
  [[nodiscard]] std::span<const std::uint8_t> BytesOf(const Entry& entry) const {
    return std::span(bytes_).subspan(entry.offset, entry.length);
  }

  [[nodiscard]] const PortDrops& unseen() const { return unseen_; }

  // About the memory that they take.
  [[nodiscard]] std::size_t Size() const { return bytes_.size() + entries_.size() * sizeof(Entry); }

 private:
  std::vector<Entry> entries_;
  std::vector<std::uint8_t> bytes_;
  PortDrops unseen_;
};

}  // namespace flow::host
