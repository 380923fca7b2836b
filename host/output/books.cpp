// SPDX-License-Identifier: Apache-2.0
#include "host/output/books.h"

namespace flow::host {

ExporterCounts SumOf(const Report& report) {
  ExporterCounts sum;
  for (const ExporterTable::Row& row : report.exporters) sum.Add(row.counts);
  return sum;
}

std::vector<BookEntry> BookEntries(const Report& report) {
  const ExporterCounts sum = SumOf(report);
  std::vector<BookEntry> entries{
      {"arrived_datagrams", sum.datagrams + report.losses.queue},
      {"metered_datagrams", sum.datagrams - sum.Refused()},
      {"dropped_datagrams", report.losses.queue},
      {"kernel_dropped_datagrams", report.losses.Kernel()},
      {"described_records", sum.books.described},
      {"reverse_records", sum.books.reverse},
      {"metered_records", sum.books.metered},
      {"sets_without_template", sum.unknown_sets},
      {"broken_sets", sum.books.broken_sets},
  };
  for (std::size_t i = 1; i < kRefusals; ++i) {
    if (sum.refused[i] == 0) continue;
    entries.push_back(
        {"rejected_datagrams." + std::string(RefusalId(static_cast<Refusal>(i))), sum.refused[i]});
  }
  for (std::size_t i = 0; i < kLeftOuts; ++i) {
    if (sum.books.left_out[i] == 0) continue;
    entries.push_back(
        {"left_out." + std::string(LeftOutId(static_cast<LeftOut>(i))), sum.books.left_out[i]});
  }
  return entries;
}

}  // namespace flow::host
