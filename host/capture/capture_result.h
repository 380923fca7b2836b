// SPDX-License-Identifier: Apache-2.0
// What came of reading a capture.
#pragma once

#include <cstdint>
#include <string>

namespace flow::host {

struct CaptureResult {
  std::string path;
  std::uint64_t packets = 0;
  std::string error;  // empty when it was read to its end
};

}  // namespace flow::host
