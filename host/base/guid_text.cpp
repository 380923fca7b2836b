// SPDX-License-Identifier: Apache-2.0
#include "host/base/guid_text.h"

#include <fmt/format.h>

namespace flow::host {

std::string GuidText(const GUID& guid) {
  const std::uint8_t* const tail = guid.Data4;
  return fmt::format("{:08X}-{:04X}-{:04X}-{:02X}{:02X}-{:02X}{:02X}{:02X}{:02X}{:02X}{:02X}",
                     guid.Data1, guid.Data2, guid.Data3, tail[0], tail[1], tail[2], tail[3],
                     tail[4], tail[5], tail[6], tail[7]);
}

}  // namespace flow::host
