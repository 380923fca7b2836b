// SPDX-License-Identifier: Apache-2.0
// Datagrams on their way from the intake to a lane, copied side by side into one block.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "flowhandlers/guid.h"
#include "host/capture/udp_packet.h"

namespace flow::host {

class PacketBatch {
 public:
  // An IP packet always fits into an empty batch.
  static constexpr std::size_t kCapacity = std::size_t{256} << 10;

  struct Entry {
    const IID* protocol;
    UdpPacket packet;  // its bytes are in the batch
  };

  // Add copies the packet; false when it does not fit. The protocol outlives the batch.
  bool Add(const IID& protocol, const UdpPacket& packet);

  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }

  void Clear();

 private:
  std::unique_ptr<std::uint8_t[]> block_{new std::uint8_t[kCapacity]};
  std::size_t used_ = 0;
  std::vector<Entry> entries_;
};

}  // namespace flow::host
