// SPDX-License-Identifier: Apache-2.0
// Names of ports and protocols, as far as the system knows them.
#pragma once

#include <cstdint>
#include <string_view>

namespace flow::host {

// ServiceName gives the name of a TCP or UDP port, empty when the system has none.
std::string_view ServiceName(std::uint16_t port);

// ProtocolName gives the name of an IP protocol in lower case, empty when it has none.
std::string_view ProtocolName(std::uint8_t protocol);

}  // namespace flow::host
