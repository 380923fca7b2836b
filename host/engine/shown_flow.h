// SPDX-License-Identifier: Apache-2.0
// Flows as reports show them: what an exporter, an interface or a client's port keeps apart is one.
#pragma once

#include <array>
#include <string_view>

#include "host/engine/flow_totals.h"

namespace flow::host {

// TurnRound makes side A of a flow its side B.
void TurnRound(FlowTotals* flow);

class ShownFlow {
 public:
  // Of gives the key under which a flow is shown, valid until the next call, and makes the flow fit
  // it. The clients' ports are one where the service is 53, 80 or 443.
  std::string_view Of(std::string_view key, FlowTotals* flow);

 private:
  std::array<char, 160> key_;  // an exporter of IPv6 makes the longest, 134
};

}  // namespace flow::host
