// SPDX-License-Identifier: Apache-2.0
// Export datagrams of real exporters, from the captures of the project.
#pragma once

#include <string>
#include <vector>

#include "tests/support/wire.h"

namespace flow::test {

// RecordedDatagrams are those of the captures in the project's folder samples, in order; each is
// named for its capture and its number there.
struct RecordedDatagram {
  std::string name;
  Bytes bytes;
};
std::vector<RecordedDatagram> RecordedDatagrams();

}  // namespace flow::test
