// SPDX-License-Identifier: Apache-2.0
// What a run has to report, and the choices of the user about it. All outputs are made from this.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/capture/capture_result.h"
#include "host/engine/stats_store.h"
#include "host/intake/exporter_table.h"
#include "host/intake/intake.h"
#include "host/period/period.h"

namespace flow::host {

struct Report {
  std::vector<CaptureResult> captures;
  std::string title;  // empty for a replay's only report
  const IntakeCounts& intake;
  const Losses& losses;
  const StatsStore& store;
  const StandIns& stand_ins;
  std::vector<ExporterTable::Row> exporters;  // by their real addresses
  double seconds = 0;                         // that the run took
  std::uint64_t streams_evicted = 0;          // numbered streams that were too many to be followed
};

struct ReportOptions {
  std::size_t top = 10;                // keys per group on the terminal
  std::vector<std::string> group_ids;  // empty for all groups
  bool raw_keys = false;
  bool split_flows = false;  // by client port, exporter and interfaces, as they were counted
  bool exact = false;        // bytes to the last digit rather than in units
  bool only_top_n = false;   // in files: no more keys of a group than its top-N setting says

  [[nodiscard]] bool Wants(const GroupInfo& group) const;
};

// A key of a group with its values.
struct KeyRow {
  std::string_view key;
  const std::uint64_t* values = nullptr;
  const FlowTotals* flow = nullptr;  // of flows alone
  std::uint64_t rank = 0;            // what it is ranked by
};

// The largest keys of a group, which has to stay as it is, and what all keys together have.
class Ranking {
 public:
  Ranking(const GroupCounters& group, std::size_t top);

  // ForEach calls visit(KeyRow), the largest first, equal ones by key. What a row points to is
  // there during the call.
  template <class Visit>
  void ForEach(Visit&& visit) const {
    SessionText text;
    for (const Ranked& each : rows_) {
      const std::string_view key = KeyTable::KeyOf(each.row);
      const std::uint64_t* const values = KeyTable::ValuesOf(each.row);
      if (group_.flows) {
        const FlowTotals flow = group_.flows->Whole(values);
        visit(KeyRow{text.Of(key), flow.meters, &flow, each.rank});
      } else {
        visit(KeyRow{key, values, nullptr, each.rank});
      }
    }
  }

  [[nodiscard]] std::size_t size() const { return rows_.size(); }

  std::vector<std::uint64_t> column_sums;  // over all keys
  std::uint64_t rank_sum = 0;

 private:
  struct Ranked {
    std::uint64_t rank;
    KeyTable::Row row;
  };
  [[nodiscard]] bool IsLarger(const Ranked& a, const Ranked& b) const;
  void Take(const Ranked& each, std::size_t top);

  const GroupCounters& group_;
  std::vector<Ranked> rows_;
};

// RealExporters gives a period's exporters by their real addresses.
std::vector<ExporterTable::Row> RealExporters(const Period& period, const StandIns& stand_ins);

// The sampling rate that was published for an exporter, or "".
std::string SamplingRate(const Report& report, const IpAddress& exporter);

// A key of a group as it is shown and written: with the real address of its exporter.
std::string KeyOf(const Report& report, const GroupCounters& group, std::string_view key);

// What all records add up to, to the last byte, and how much of it goes in one of the directions.
struct Traffic {
  std::uint64_t bytes = 0;
  std::uint64_t packets = 0;
  std::uint64_t directed_bytes = 0;
};
Traffic TrafficOf(const Report& report);

// How long a flow lasted, milliseconds.
std::int64_t FlowDuration(const FlowTotals& flow);

}  // namespace flow::host
