// SPDX-License-Identifier: Apache-2.0
#include "host/intake/packet_batch.h"

#include <cstring>

namespace flow::host {

bool PacketBatch::Add(const IID& protocol, const UdpPacket& packet, Portion portion, bool tells) {
  const std::size_t size = packet.ip.size();
  if (used_ + entries_.size() * sizeof(Entry) + size > kCapacity && used_ > 0) return false;
  std::uint8_t* const copy = block_.get() + used_;
  std::memcpy(copy, packet.ip.data(), size);
  used_ += size;
  Entry& entry = entries_.emplace_back(Entry{&protocol, packet, portion, tells});
  entry.packet.ip = {copy, size};
  if (portion == Portion::kNumbers) ++numbers_;
  return true;
}

void PacketBatch::Clear() {
  used_ = 0;
  entries_.clear();
  numbers_ = 0;
}

}  // namespace flow::host
