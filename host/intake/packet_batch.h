// SPDX-License-Identifier: Apache-2.0
// Datagrams on their way from the intake to a lane, copied side by side into one block.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "flowhandlers/guid.h"
#include "host/capture/udp_packet.h"

namespace flow::host {

// How much of a datagram a lane does. What another lane than its exporter's meters leaves the
// numbers to that one, which has to see all of them in their order.
enum class Portion : std::uint8_t { kAll, kRecords, kNumbers };

class PacketBatch {
 public:
  // An IP packet always fits into an empty batch.
  static constexpr std::size_t kCapacity = std::size_t{256} << 10;

  struct Entry {
    const IID* protocol;
    UdpPacket packet;  // its bytes are in the batch
    Portion portion;
    bool tells;  // something that lanes have from each other
  };

  // Add copies the packet; false when it does not fit. The protocol outlives the batch.
  bool Add(const IID& protocol, const UdpPacket& packet, Portion portion = Portion::kAll,
           bool tells = false);

  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }
  // Datagrams to meter: the entries but those that are numbers alone, and whether there are those.
  [[nodiscard]] std::size_t Datagrams() const { return entries_.size() - numbers_; }
  [[nodiscard]] bool HasNumbers() const { return numbers_ > 0; }

  void Clear();

 private:
  std::unique_ptr<std::uint8_t[]> block_{new std::uint8_t[kCapacity]};
  std::size_t used_ = 0;
  std::vector<Entry> entries_;
  std::size_t numbers_ = 0;
};

}  // namespace flow::host
