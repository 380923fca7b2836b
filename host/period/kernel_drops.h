// SPDX-License-Identifier: Apache-2.0
// What was dropped here before anybody saw it, taken off what exporters' numbers miss.
#pragma once

#include <vector>

#include "host/intake/lane.h"

namespace flow::host {

// The kernel counts what a full socket drops and does not show it; of what full queues drop there
// is not always room for the numbers. So the gaps of all exporters that send to a port are
// shortened together, by as many datagrams.
class KernelDrops {
 public:
  // TakeOff takes a time's drops of sockets and what was counted in it. A gap shows with the next
  // datagram, so drops that no gap answers to count for the next time as well.
  void TakeOff(const PortDrops& drops, std::vector<Harvest>& harvests);

 private:
  PortDrops left_;
};

}  // namespace flow::host
