// SPDX-License-Identifier: Apache-2.0
// The books of a whole report, for every output under the same names.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/output/report.h"

namespace flow::host {

struct BookEntry {
  std::string id;  // with a dot between a heading and what stands below it
  std::uint64_t value = 0;
};

// SumOf adds up what all exporters sent.
ExporterCounts SumOf(const Report& report);

// BookEntries is where every datagram and every record went:
//   arrived_datagrams = metered_datagrams + rejected_datagrams.* + dropped_datagrams
//   described_records + reverse_records = metered_records + left_out.*
// Entries below a heading stand there only where something went. Datagrams that the kernel dropped
// did not arrive.
std::vector<BookEntry> BookEntries(const Report& report);

}  // namespace flow::host
