// SPDX-License-Identifier: Apache-2.0
// What a run's reports are written to, beside the terminal. A new output is a writer in a file of
// its own and a row of the table; the command line and the reports of a run read the table.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/output/report.h"

namespace flow::host {

class SheetRecord;

// A stretch of time in an output that holds many.
struct TimeBucket {
  std::int64_t start = 0;  // seconds since 1970
  int keep_days = 0;       // buckets that are older than this are deleted; 0 for never
  bool replaces = false;   // the same bucket where the output has it already
};

// What becomes of what an output holds already, which may be a collector's history.
enum class Existing {
  kRefuse,    // nothing is written there, unless a report of captures is all that it holds
  kReplace,   // it makes room
  kAppend,    // buckets are added
  kContinue,  // likewise, where it holds nothing or what a collector has counted
};

struct OutputKind {
  std::string_view name;  // its option is --NAME
  std::string_view place_type;
  std::string_view help;
  bool has_standard_output;  // as the place "-", where it then stands alone

  // Writes a report, in place of an older one. HostError when it cannot.
  void (*write)(const Report& report, const ReportOptions& options, const std::string& place);
  // Adds a bucket, for the runs that report interval by interval; null where each of their reports
  // is written. HostError when it cannot, and then nothing has changed.
  void (*append)(const SheetRecord& sheets, const std::string& place,
                 const TimeBucket& bucket) = nullptr;
  // Looks at what is there before anything is read or received; null where there is nothing to
  // lose. HostError when it is to stay, or cannot be written.
  void (*prepare)(const std::string& place, Existing existing) = nullptr;
};

std::span<const OutputKind> OutputKinds();

// Where a run's results go beside the terminal.
struct Destination {
  const OutputKind* kind = nullptr;
  std::string place;

  [[nodiscard]] bool IsStandardOutput() const { return kind->has_standard_output && place == "-"; }
};
struct OutputOptions {
  ReportOptions report;  // group_ids holds names as given until the groups are known
  std::vector<Destination> destinations;
  int keep_days = 7;              // of time buckets; 0 for all
  bool replaces_buckets = false;  // those of the same time
  bool has_summary = true;        // on standard output
};

// Prepare looks at what the destinations hold, with the outputs' own HostError.
void Prepare(std::span<const Destination> destinations, Existing existing);

// The writers. One JSON document; SHEET.csv for every sheet in a directory, which is made; and
// tables of an SQLite database, which is made, too. Replaced tables leave the others in it alone;
// tables of buckets have the bucket's start in a column more.
void WriteJson(const Report& report, const ReportOptions& options, const std::string& path);
void WriteCsv(const Report& report, const ReportOptions& options, const std::string& directory);
void WriteSqlite(const Report& report, const ReportOptions& options, const std::string& path);
void AppendSqlite(const SheetRecord& sheets, const std::string& path, const TimeBucket& bucket);
void PrepareSqlite(const std::string& path, Existing existing);

}  // namespace flow::host
