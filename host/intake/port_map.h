// SPDX-License-Identifier: Apache-2.0
// Which protocol arrives on which UDP port.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/border/component_catalog.h"

namespace flow::host {

// A further port of a protocol, as the user named it.
struct ExtraPort {
  std::string protocol;
  std::uint16_t port = 0;
};

// A UDP port, and the protocol that arrives there.
struct ProtocolPort {
  std::uint16_t port = 0;
  const ComponentDescription* handler = nullptr;
};

// PortsToListenOn gives the extra ports, or those that the handlers prefer where there are none.
// UsageError for a protocol that no handler has.
std::vector<ProtocolPort> PortsToListenOn(std::span<const ComponentDescription> components,
                                          std::span<const ExtraPort> extra_ports);

class PortMap {
 public:
  // The handlers' preferred ports, the first handler that wants one having it, and the extra ports,
  // which take precedence. UsageError for a protocol that no handler has. The components outlive
  // it.
  PortMap(std::span<const ComponentDescription> components, std::span<const ExtraPort> extra_ports);

  // ProtocolOf gives the protocol of a port, null where no handler wants it.
  [[nodiscard]] const IID* ProtocolOf(std::uint16_t port) const { return protocols_[port]; }

 private:
  std::vector<const IID*> protocols_;  // by port
};

}  // namespace flow::host
