// SPDX-License-Identifier: Apache-2.0
// What sockets dropped before anybody saw it, taken off what exporters' numbers miss.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "host/intake/lane.h"

namespace flow::host {

// Datagrams that sockets dropped, by UDP port.
using PortDrops = std::map<std::uint16_t, std::uint64_t>;

// The kernel counts what a full socket drops and does not show it. So the gaps of all exporters
// that send to its port are shortened together, by as many datagrams.
class KernelDrops {
 public:
  // TakeOff takes a time's drops and what was counted in it. A gap shows with the next datagram, so
  // drops that no gap answers to count for the next time as well.
  void TakeOff(const PortDrops& drops, std::vector<Harvest>& harvests);

 private:
  PortDrops left_;
};

}  // namespace flow::host
