// Addresses as texts.
#pragma once

#include <cstdint>
#include <string>

namespace flow::host {

// Ipv4Text is the dotted form of an address in host byte order.
std::string Ipv4Text(std::uint32_t address);

}  // namespace flow::host
