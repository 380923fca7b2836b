// SPDX-License-Identifier: Apache-2.0
#include "host/intake/dropped_numbers.h"

#include "host/capture/made_headers.h"
#include "host/export/export_format.h"
#include "host/intake/sequence.h"

namespace flow::host {

void DroppedNumbers::Add(const UdpPacket& packet) {
  const std::span<const std::uint8_t> datagram = packet.Payload();
  const auto shim = ShimExporter(datagram);
  const auto rest = shim ? WithoutShim(datagram, *shim) : datagram;
  const std::size_t offset = bytes_.size();
  bytes_.insert(bytes_.end(), datagram.begin(),
                datagram.end() - static_cast<std::ptrdiff_t>(rest.size()));
  AppendNumbers(VersionOf(rest), rest, &bytes_);
  entries_.push_back({HeaderSource(packet), packet.time, offset, bytes_.size() - offset});
}

}  // namespace flow::host
