// SPDX-License-Identifier: Apache-2.0
// The database of counters, while it is written: minutes as they come, and from their full counts
// the hours and days.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/store/database.h"
#include "host/store/exporter_rows.h"
#include "host/store/note_rows.h"
#include "host/store/retention.h"
#include "host/store/store_options.h"
#include "host/store/tier_counts.h"
#include "host/store/tier_rows.h"

namespace flow::host {

class FlowCounts;

// All that a minute leaves behind but its flows.
struct StoredMinute {
  std::int64_t bucket = 0;
  std::int64_t from = 0;  // of it, seconds since 1970: from when to when the collector ran
  std::int64_t to = 0;
  TierCounts counts;
  std::vector<ExporterHealth> exporters;
  std::vector<StreamNumbers> numbers;  // of these exporters, where somebody wants them
  Losses losses;
  std::vector<KeyNote> notes;
  std::uint64_t flows = 0;
  std::uint64_t flows_not_kept = 0;
  std::int64_t flow_rows = -1;  // that its hour's file has with them; -1 for no file
};

class Counters {
 public:
  // Opens or makes the database. HostError when it cannot.
  Counters(const StoreOptions& options, std::span<const GroupInfo> groups);

  // Write takes the next minute: all of it is there afterwards, or HostError and nothing is.
  void Write(const StoredMinute& minute);
  // NoteUnwritten tells of minutes that could not be written.
  void NoteUnwritten(std::int64_t from, std::int64_t to);
  // The files of flows: one that is opened, with the rows that it has; one that is closed; one that
  // is gone; and what they had, by hour, when the last minute was written to those still open.
  void NoteOpened(std::int64_t hour, const std::string& path, std::int64_t rows);
  void NoteClosed(std::int64_t hour, const std::string& path);
  void ForgetFlowFile(std::int64_t hour);
  std::vector<std::pair<std::int64_t, std::int64_t>> OpenFlowFiles();

  [[nodiscard]] bool WasMoved() const { return database_.WasMoved(); }

  // DropOld deletes what is older than it is kept, by the time of a minute.
  void DropOld(std::int64_t now);
  [[nodiscard]] Retention& retention() { return retention_; }

  // What is to be told, once.
  std::vector<std::string> TakeNotices();

  // End writes what the running hour and day have, and ends the run. In haste it leaves the rows of
  // hour and day to the next start.
  void End();
  void EndInHaste();

 private:
  // A running hour or day.
  struct Span {
    std::int64_t bucket = 0;  // 0 while there is none
    TierCounts counts;
    bool rebuilt = false;
    bool is_folded = false;  // an hour that is part of its day already
  };
  static constexpr std::size_t kMinute = 0;
  static constexpr std::size_t kHour = 1;
  static constexpr std::size_t kDay = 2;

  void BeginRun(std::int64_t now);
  void WriteBetween(const StoredMinute& minute);
  void WriteKeys(const StoredMinute& minute);
  void WriteBucket(const StoredMinute& minute);
  [[nodiscard]] bool HasBucket(std::size_t tier, std::int64_t bucket);
  Span Open(std::size_t tier, std::int64_t bucket, std::int64_t running_hour, bool may_load);
  [[nodiscard]] bool HasAllUntil(std::size_t tier, const Span& span, std::int64_t end);
  void AddRows(const Tier& tier, std::int64_t bucket, FlowCounts* flows, Span* span);
  void FoldHour();
  void SaveSpans();
  void EndRun();
  void WriteSpan(std::size_t tier);
  [[nodiscard]] TierCounts EmptyCounts() const;
  void InTransaction(const std::function<void()>& write);

  // What a running span has counted, in a file that is read when the collector starts again.
  void SaveHour();
  void RemoveSaved();
  void Save(std::size_t tier, std::int64_t through);
  bool Load(std::size_t tier, Span* span, std::int64_t* through) const;
  [[nodiscard]] std::string SpanPath(std::size_t tier) const;

  StoreOptions options_;
  std::vector<GroupInfo> groups_;
  Database database_;
  Retention retention_;
  TierRows rows_;
  ExporterRows exporters_;
  NoteRows notes_;
  Statement put_bucket_;
  Statement put_empty_;
  Statement put_alive_;
  Statement put_rows_;
  std::array<Span, std::size(kTiers)> spans_;  // the minute's is not used
  std::string last_run_;                       // what is to be told of it
  std::int64_t run_ = 0;
  std::int64_t run_start_ = 0;
  std::int64_t last_minute_ = 0;
  std::int64_t last_end_ = 0;  // until when it ran, in this run
  std::int64_t saved_ms_ = 0;  // how long the last save took
  std::int64_t saved_at_ = 0;  // by the time of minutes
};

}  // namespace flow::host
