// SPDX-License-Identifier: Apache-2.0
#include "host/command/store_command.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/base/error.h"
#include "host/base/number_text.h"
#include "host/output/text_table.h"
#include "host/store/database.h"
#include "host/store/schema.h"
#include "host/store/store_files.h"

namespace flow::host {
namespace {

using Align = TextTable::Align;

std::string Span(std::int64_t seconds) { return DurationText(seconds * 1000); }

std::string KeptFor(std::int64_t seconds) { return seconds == 0 ? "for ever" : Span(seconds); }

class StoreReport {
 public:
  explicit StoreReport(const std::string& directory)
      : directory_(directory), counters_(Database::ToRead(CountersPath(directory))) {
    if (counters_.Ask("PRAGMA application_id") != kStoreId) {
      throw HostError(fmt::format("{} is no store", directory));
    }
  }

  void Print() {
    PrintRun();
    PrintTiers();
    PrintFlows();
    PrintGaps();
  }

 private:
  void PrintRun();
  void PrintTiers();
  void PrintFlows();
  void PrintReach(const std::vector<FlowFileEntry>& files, std::uint64_t bytes);
  void PrintGaps();
  std::int64_t Meta(const std::string& name) {
    return counters_.Ask(fmt::format("SELECT value FROM meta WHERE name = '{}'", name)).value_or(0);
  }

  std::string directory_;
  Database counters_;
};

void StoreReport::PrintRun() {
  Statement run =
      counters_.Prepare("SELECT started, alive, how, program FROM runs ORDER BY run DESC LIMIT 1");
  if (!run.Step()) return fmt::print("{}: nothing was written yet\n", directory_);
  fmt::print("{}: format {}, times in UTC\nlast written {} by {}, which {} since {}\n\n",
             directory_, counters_.Ask("PRAGMA user_version").value_or(0), TimeText(run.Integer(1)),
             run.Text(3),
             run.IsNull(2)          ? "runs, or was killed,"
             : run.Text(2) == "end" ? "ran"
                                    : "was killed; it ran",
             TimeText(run.Integer(0)));
}

// A tier's pages are looked at one by one: some seconds for a large one.
void StoreReport::PrintTiers() {
  TextTable table;
  table.AddColumn("Counters by", Align::kLeft);
  for (const char* const heading :
       {"From", "To", "Spans", "Covered", "Size", "Keys a span", "Kept"}) {
    table.AddColumn(heading, Align::kRight);
  }
  Statement tiers = counters_.Prepare(
      "SELECT tier, (SELECT count(*) FROM buckets AS b WHERE b.tier = t.tier), (SELECT min(bucket) "
      "FROM buckets AS b WHERE b.tier = t.tier), (SELECT max(bucket) + seconds FROM buckets AS b "
      "WHERE b.tier = t.tier), (SELECT sum(ran) FROM buckets AS b WHERE b.tier = t.tier), "
      "keep_seconds, kept_keys, (SELECT sum(pgsize) FROM dbstat WHERE aggregate = TRUE AND name "
      "LIKE '%\\_' || t.tier ESCAPE '\\') FROM tiers AS t ORDER BY seconds");
  while (tiers.Step()) {
    const auto count = static_cast<std::uint64_t>(tiers.Integer(1));
    if (count == 0) continue;
    const std::int64_t length = tiers.Integer(3) - tiers.Integer(2);
    table.AddRow(
        {std::string(tiers.Text(0)), TimeText(tiers.Integer(2)), TimeText(tiers.Integer(3)),
         Thousands(count),
         Percent(static_cast<std::uint64_t>(tiers.Integer(4)), static_cast<std::uint64_t>(length)),
         SiBytes(static_cast<std::uint64_t>(tiers.Integer(7))),
         Thousands(static_cast<std::uint64_t>(tiers.Integer(6))), KeptFor(tiers.Integer(5))});
  }
  if (!table.empty()) table.Print(stdout);
}

void StoreReport::PrintFlows() {
  const std::vector<FlowFileEntry> files = ListFlowFiles(directory_);
  std::uint64_t bytes = 0;
  for (const FlowFileEntry& file : files) bytes += file.bytes;
  if (files.empty()) return fmt::print("\nNo flows are kept.\n");
  const auto rows =
      static_cast<std::uint64_t>(counters_.Ask("SELECT sum(rows) FROM flow_files").value_or(0));
  fmt::print("\n{} flows in {} files from {} on, {}, {} bytes a flow, kept {}\n", Thousands(rows),
             files.size(), TimeText(files.front().hour), SiBytes(bytes),
             rows == 0 ? 0 : bytes / rows, KeptFor(Meta("keep_flows_seconds")));
  const auto lost = counters_.Ask("SELECT sum(flows_not_kept) FROM buckets WHERE tier = 'minute'");
  if (lost.value_or(0) > 0) {
    fmt::print("not kept, for want of time: {} flows\n",
               Thousands(static_cast<std::uint64_t>(*lost)));
  }
  PrintReach(files, bytes);
}

// At the rate of the last day.
void StoreReport::PrintReach(const std::vector<FlowFileEntry>& files, std::uint64_t bytes) {
  const auto limit = static_cast<std::uint64_t>(Meta("most_flow_bytes"));
  const std::int64_t end =
      counters_.Ask("SELECT max(bucket) + 60 FROM buckets WHERE tier = 'minute'").value_or(0);
  std::uint64_t recent = 0;
  std::int64_t first = end;
  for (const FlowFileEntry& file : files) {
    if (file.hour + kHourSeconds <= end - kDaySeconds) continue;
    recent += file.bytes;
    first = std::min(first, file.hour);
  }
  if (limit == 0 || recent == 0 || first >= end) return;
  const double rate = static_cast<double>(recent) / static_cast<double>(end - first);
  fmt::print(
      "the limit of {}, of which {} are taken, reaches {} at the present rate of {} an hour\n",
      SiBytes(limit), Percent(bytes, limit),
      Span(static_cast<std::int64_t>(static_cast<double>(limit) / rate)),
      SiBytes(static_cast<std::uint64_t>(rate * kHourSeconds)));
}

void StoreReport::PrintGaps() {
  Statement gaps = counters_.Prepare("SELECT started, ended, reason FROM gaps ORDER BY started");
  bool any = false;
  while (gaps.Step()) {
    if (!std::exchange(any, true)) fmt::print("\nGaps:\n");
    fmt::print("  {} to {}  {}, {}\n", TimeText(gaps.Integer(0)), TimeText(gaps.Integer(1)),
               Span(gaps.Integer(1) - gaps.Integer(0)), gaps.Text(2));
  }
}

}  // namespace

int RunStore(const StoreCommandOptions& options) {
  StoreReport(options.directory).Print();
  return kExitOk;
}

}  // namespace flow::host
