#include "host/base/endpoint.h"

#include <fmt/format.h>

namespace flow::host {

std::string Ipv4Text(std::uint32_t address) {
  return fmt::format("{}.{}.{}.{}", address >> 24, address >> 16 & 0xFF, address >> 8 & 0xFF,
                     address & 0xFF);
}

}  // namespace flow::host
