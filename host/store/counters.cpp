// SPDX-License-Identifier: Apache-2.0
#include "host/store/counters.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <utility>

#include "host/base/files.h"
#include "host/base/printable.h"
#include "host/store/flow_counts.h"
#include "host/store/last_run.h"
#include "host/store/store_files.h"

namespace flow::host {
namespace {

std::int64_t StartOf(std::size_t tier, std::int64_t time) {
  return time / kTiers[tier].seconds * kTiers[tier].seconds;
}

std::int64_t SteadyMs() {
  using std::chrono::duration_cast;
  return duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

Database OpenCounters(const StoreOptions& options, std::span<const GroupInfo> groups) {
  MakeDirectories(options.directory);
  const std::string path = CountersPath(options.directory);
  MakeFile(path);
  Database database = Database::ToWrite(path, options.sync());
  CreateCounters(&database, groups);
  return database;
}

constexpr std::uint64_t kSpanFormat = 0x31'4E41'5053'5346;

}  // namespace

Counters::Counters(const StoreOptions& options, std::span<const GroupInfo> groups)
    : options_(options),
      groups_(groups.begin(), groups.end()),
      database_(OpenCounters(options, groups_)),
      retention_(&database_, options_),
      rows_(&database_),
      exporters_(&database_),
      notes_(&database_),
      put_bucket_(database_.Prepare(
          "INSERT INTO buckets VALUES (?, ?, ?, ?, 0, ?, ?, ?, ?, ?, ?) ON CONFLICT DO UPDATE SET "
          "ran = min(seconds, ran + excluded.ran), datagrams = datagrams + excluded.datagrams, "
          "records = records + excluded.records, bytes = bytes + excluded.bytes, packets = packets "
          "+ excluded.packets, flows = flows + excluded.flows, flows_not_kept = flows_not_kept + "
          "excluded.flows_not_kept")),
      put_empty_(database_.Prepare(
          "INSERT OR IGNORE INTO buckets VALUES ('minute', ?, 60, ?, 0, 0, 0, 0, 0, 0, 0)")),
      put_alive_(database_.Prepare("UPDATE runs SET alive = max(alive, ?) WHERE run = ?")),
      put_rows_(database_.Prepare("UPDATE flow_files SET rows = ?1 WHERE hour = ?2 AND ?1 >= 0")) {
  rows_.KnowGroups(groups_);
  PutMeta(&database_, "keep_flows_seconds", options_.keep_flows_seconds);
  PutMeta(&database_, "most_flow_bytes", static_cast<std::int64_t>(options_.most_flow_bytes));
  Statement tier =
      database_.Prepare("UPDATE tiers SET keep_seconds = ?, kept_keys = ? WHERE tier = ?");
  for (std::size_t i = 0; i < std::size(kTiers); ++i) {
    tier.Bind(1, options_.keep_seconds[i])
        .Bind(2, std::uint64_t{options_.kept_keys[i]})
        .Bind(3, kTiers[i].name)
        .Run();
  }
  const std::int64_t now = std::time(nullptr);
  retention_.SetAside(StartOf(kHour, now) + 2 * kHourSeconds);
  if (!options_.waits) last_run_ = LastRunNotice(&database_, now);
  last_minute_ = database_.Ask("SELECT max(bucket) FROM buckets WHERE tier = 'minute'").value_or(0);
  // What was under way when the last run ended, however it did.
  if (last_minute_ == 0) return;
  const std::int64_t hour = StartOf(kHour, last_minute_);
  spans_[kHour] = Open(kHour, hour, 0, true);
  spans_[kDay] = Open(kDay, StartOf(kDay, hour), hour, true);
}

TierCounts Counters::EmptyCounts() const {
  TierCounts counts;
  for (const GroupInfo& group : groups_) {
    if (HasTiers(group)) counts.Of(group);
  }
  return counts;
}

void Counters::InTransaction(const std::function<void()>& write) {
  database_.Begin();
  try {
    write();
    database_.Commit();
  } catch (...) {
    database_.Rollback();
    throw;
  }
}

void Counters::Write(const StoredMinute& minute) {
  const std::int64_t hour = StartOf(kHour, minute.bucket);
  const std::int64_t day = StartOf(kDay, minute.bucket);
  const bool new_hour = spans_[kHour].bucket != hour;
  const bool new_day = spans_[kDay].bucket != day;
  const bool goes_back = new_hour && HasBucket(kHour, hour);
  if (new_hour) FoldHour();
  // Nothing here changes before all is written.
  Span next_hour;
  Span next_day;
  InTransaction([&] {
    if (run_ == 0) BeginRun(minute.from);
    // What is over has its rows together with the first minute behind it.
    if (new_hour) WriteSpan(kHour);
    if (new_day) WriteSpan(kDay);
    if (new_hour) next_hour = Open(kHour, hour, 0, false);
    if (new_day || goes_back) next_day = Open(kDay, day, hour, false);
    WriteBetween(minute);
    WriteKeys(minute);
    WriteBucket(minute);
    exporters_.Write(minute.bucket, minute.exporters, minute.losses);
    notes_.Write(minute.notes);
    retention_.Next(last_minute_, minute.bucket);
    put_alive_.Bind(1, minute.to).Bind(2, run_).Run();
    put_rows_.Bind(1, minute.flow_rows).Bind(2, hour).Run();
  });
  if (new_day || goes_back) spans_[kDay] = std::move(next_day);
  if (new_hour) {
    if (!new_day && !options_.waits) Save(kDay, hour);
    spans_[kHour] = std::move(next_hour);
  }
  spans_[kHour].counts.Add(minute.counts);
  spans_[kHour].counts.Prune();
  last_minute_ = std::max(last_minute_, minute.bucket);
  last_end_ = minute.to;
  SaveHour();
}

void Counters::WriteKeys(const StoredMinute& minute) {
  const Tier& tier = kTiers[kMinute];
  if (minute.bucket > last_minute_ || !HasBucket(kMinute, minute.bucket))
    return rows_.Write(tier, minute.bucket, minute.counts, options_.kept_keys[kMinute]);
  // The collector has ended, and begun again, in the middle of the minute.
  TierCounts both = EmptyCounts();
  rows_.Read(tier, minute.bucket, &both);
  both.Add(minute.counts);
  rows_.Write(tier, minute.bucket, both, options_.kept_keys[kMinute]);
}

bool Counters::HasBucket(std::size_t tier, std::int64_t bucket) {
  Statement find =
      database_.Prepare("SELECT 1 FROM buckets WHERE tier = ? AND bucket = ? AND records > 0");
  return find.Bind(1, kTiers[tier].name).Bind(2, bucket).Step();
}

// Rarely enough that it costs little of the time that the minutes took.
void Counters::SaveHour() {
  constexpr std::int64_t kShare = 20;
  if (options_.waits || std::abs(last_end_ - saved_at_) * 1000 < kShare * saved_ms_) return;
  const std::int64_t began = SteadyMs();
  Save(kHour, last_minute_ + kMinuteSeconds);
  saved_at_ = last_end_;
  saved_ms_ = SteadyMs() - began;
}

// The running hour becomes part of its day, once.
void Counters::FoldHour() {
  Span& hour = spans_[kHour];
  if (hour.bucket == 0 || std::exchange(hour.is_folded, true)) return;
  spans_[kDay].counts.Add(hour.counts);
  spans_[kDay].counts.Prune();
  spans_[kDay].rebuilt |= hour.rebuilt;
}

// The minutes since the last one: nothing came, or nobody listened.
void Counters::WriteBetween(const StoredMinute& minute) {
  if (last_minute_ == 0) return;
  const std::int64_t longest =
      options_.keep_seconds[kMinute] == 0 ? 7 * kDaySeconds : options_.keep_seconds[kMinute];
  std::int64_t at = std::max(last_minute_ + kMinuteSeconds, minute.bucket - longest);
  for (; at < minute.bucket; at += kMinuteSeconds) {
    const std::int64_t ran =
        last_end_ == 0 ? std::max<std::int64_t>(0, at + kMinuteSeconds - std::max(at, run_start_))
                       : kMinuteSeconds;
    put_empty_.Bind(1, at).Bind(2, ran).Run();
  }
}

void Counters::WriteBucket(const StoredMinute& minute) {
  std::uint64_t datagrams = 0;
  std::uint64_t records = 0;
  for (const ExporterHealth& health : minute.exporters) {
    datagrams += health.row.counts.datagrams;
    records += health.row.counts.books.metered;
  }
  const auto [bytes, packets] = minute.counts.AllTraffic();
  put_bucket_.Bind(1, kTiers[kMinute].name)
      .Bind(2, minute.bucket)
      .Bind(3, kMinuteSeconds)
      .Bind(4, std::clamp<std::int64_t>(minute.to - std::max(minute.from, minute.bucket), 0,
                                        kMinuteSeconds))
      .Bind(5, datagrams)
      .Bind(6, records)
      .Bind(7, bytes)
      .Bind(8, packets)
      .Bind(9, minute.flows)
      .Bind(10, minute.flows_not_kept)
      .Run();
}

void Counters::BeginRun(std::int64_t now) {
  run_start_ = now;
  // Captures may go back to hours that a saved one knows in part.
  if (options_.waits) RemoveSaved();
  const std::int64_t before = database_.Ask("SELECT max(alive) FROM runs").value_or(0);
  const bool was_killed =
      database_.Ask("SELECT count(*) FROM runs WHERE ended IS NULL").value_or(0) > 0;
  database_.Execute("UPDATE runs SET ended = alive, how = 'killed' WHERE ended IS NULL");
  if (before != 0 && before < now) {
    database_.Prepare("INSERT OR REPLACE INTO gaps VALUES (?, ?, ?)")
        .Bind(1, before)
        .Bind(2, now)
        .Bind(3, was_killed ? "killed" : "not running")
        .Run();
  }
  database_.Prepare("INSERT INTO runs (started, alive, program) VALUES (?, ?, ?)")
      .Bind(1, now)
      .Bind(2, now)
      .Bind(3, options_.program)
      .Run();
  run_ = database_.Ask("SELECT last_insert_rowid()").value_or(0);
}

void Counters::NoteUnwritten(std::int64_t from, std::int64_t to) {
  database_.Prepare("INSERT OR REPLACE INTO gaps VALUES (?, ?, 'not written')")
      .Bind(1, from)
      .Bind(2, to)
      .Run();
}

void Counters::NoteOpened(std::int64_t hour, const std::string& path, std::int64_t rows) {
  database_
      .Prepare("INSERT INTO flow_files VALUES (?, ?, ?, 0, 0) ON CONFLICT DO UPDATE SET whole = 0")
      .Bind(1, hour)
      .Bind(2, std::filesystem::path(path).filename().string())
      .Bind(3, rows)
      .Run();
}

void Counters::NoteClosed(std::int64_t hour, const std::string& path) {
  std::error_code missing;
  const std::uintmax_t bytes = std::filesystem::file_size(path, missing);
  database_.Prepare("UPDATE flow_files SET whole = 1, bytes = ? WHERE hour = ?")
      .Bind(1, missing ? std::uint64_t{0} : std::uint64_t{bytes})
      .Bind(2, hour)
      .Run();
}

std::vector<std::pair<std::int64_t, std::int64_t>> Counters::OpenFlowFiles() {
  std::vector<std::pair<std::int64_t, std::int64_t>> files;
  Statement open = database_.Prepare("SELECT hour, rows FROM flow_files WHERE whole = 0");
  while (open.Step()) files.emplace_back(open.Integer(0), open.Integer(1));
  return files;
}

void Counters::ForgetFlowFile(std::int64_t hour) {
  database_.Prepare("DELETE FROM flow_files WHERE hour = ?").Bind(1, hour).Run();
}

// A span that begins has what is known of it already: by a run before, or by captures that were
// read out of order. The hour that runs comes to its day when it ends.
Counters::Span Counters::Open(std::size_t tier, std::int64_t bucket, std::int64_t running_hour,
                              bool may_load) {
  Span span{bucket, EmptyCounts()};
  std::int64_t from = bucket;
  if (!may_load || !Load(tier, &span, &from) || !HasAllUntil(tier, span, from)) {
    span = {bucket, EmptyCounts()};
    from = bucket;
  }
  const Tier& below = kTiers[tier - 1];
  Statement known = database_.Prepare(
      "SELECT bucket FROM buckets WHERE tier = ? AND bucket >= ? AND bucket < ? AND bucket != ? "
      "AND "
      "records > 0");
  known.Bind(1, below.name).Bind(2, from).Bind(3, bucket + kTiers[tier].seconds);
  known.Bind(4, running_hour);
  FlowCounts flows(options_, &database_);
  while (known.Step()) AddRows(below, known.Integer(0), &flows, &span);
  if (span.counts.Keys() > 0 || from != bucket || tier == kDay) return span;
  // The minutes may be gone.
  AddRows(kTiers[tier], bucket, &flows, &span);
  return span;
}

// Not so where a minute that was saved had a second part, of a run that was killed.
bool Counters::HasAllUntil(std::size_t tier, const Span& span, std::int64_t end) {
  Statement sum = database_.Prepare(
      "SELECT sum(bytes), sum(packets) FROM buckets WHERE tier = ? AND bucket >= ? AND bucket < ?");
  sum.Bind(1, kTiers[tier - 1].name).Bind(2, span.bucket).Bind(3, end).Run();
  const auto [bytes, packets] = span.counts.AllTraffic();
  return static_cast<std::uint64_t>(sum.Integer(0)) == bytes &&
         static_cast<std::uint64_t>(sum.Integer(1)) == packets;
}

// What the rows of a bucket lack its flows may have.
void Counters::AddRows(const Tier& tier, std::int64_t bucket, FlowCounts* flows, Span* span) {
  TierCounts rows = EmptyCounts();
  rows_.Read(tier, bucket, &rows);
  span->rebuilt |= !flows->Complete(bucket, tier.seconds, &rows);
  span->counts.Add(rows);
  span->counts.Prune();
}

void Counters::WriteSpan(std::size_t tier) {
  const Span& span = spans_[tier];
  if (span.bucket == 0) return;
  rows_.Write(kTiers[tier], span.bucket, span.counts, options_.kept_keys[tier]);
  exporters_.AddUp(tier, span.bucket);
  database_
      .Prepare(
          "INSERT OR REPLACE INTO buckets SELECT ?1, ?2, ?3, min(?3, sum(ran)), ?5, "
          "sum(datagrams), sum(records), sum(bytes), sum(packets), sum(flows), "
          "sum(flows_not_kept) FROM buckets WHERE tier = ?4 AND bucket >= ?2 AND bucket < ?2 "
          "+ ?3 HAVING count(*) > 0")
      .Bind(1, kTiers[tier].name)
      .Bind(2, span.bucket)
      .Bind(3, kTiers[tier].seconds)
      .Bind(4, kTiers[tier - 1].name)
      .Bind(5, std::int64_t{span.rebuilt})
      .Run();
}

void Counters::DropOld(std::int64_t now) {
  InTransaction([&] {
    for (std::size_t i = 0; i < std::size(kTiers); ++i) {
      const std::int64_t before = StartOf(i, retention_.Before(i, now + kMinuteSeconds));
      if (before <= 0) continue;
      rows_.DropBefore(kTiers[i], before);
      exporters_.DropBefore(kTiers[i], before);
      database_.Execute(fmt::format("DELETE FROM buckets WHERE tier = '{}' AND bucket < {}",
                                    kTiers[i].name, before));
    }
    exporters_.DropSilentSince(StartOf(kDay, retention_.Before(kDay, now + kMinuteSeconds)));
    notes_.DropUnused(groups_);
  });
}

std::vector<std::string> Counters::TakeNotices() {
  std::vector<std::string> notices;
  for (std::string notice : {std::exchange(last_run_, ""), retention_.TakeNotice()}) {
    if (!notice.empty()) notices.push_back(std::move(notice));
  }
  return notices;
}

void Counters::End() {
  if (run_ != 0) {
    SaveSpans();
    FoldHour();
    InTransaction([this] {
      WriteSpan(kHour);
      WriteSpan(kDay);
      EndRun();
    });
  }
  database_.CloseWritten();
}

void Counters::EndInHaste() {
  if (run_ != 0) {
    SaveSpans();
    InTransaction([this] { EndRun(); });
  }
  LeaveAsItIs(&database_);
}

void Counters::SaveSpans() {
  if (spans_[kHour].bucket != 0) Save(kHour, last_minute_ + kMinuteSeconds);
  if (!spans_[kHour].is_folded) Save(kDay, spans_[kHour].bucket);
}

void Counters::EndRun() {
  database_.Prepare("UPDATE runs SET ended = alive, how = 'end' WHERE run = ?").Bind(1, run_).Run();
}

std::string Counters::SpanPath(std::size_t tier) const {
  return fmt::format("{}/running-{}", options_.directory, kTiers[tier].name);
}

// Written aside and renamed: it is whole or it is the one before. Where it cannot be written, the
// span is had from the tier below.
void Counters::Save(std::size_t tier, std::int64_t through) {
  const std::string path = SpanPath(tier);
  const std::string draft = path + ".new";
  const Span& span = spans_[tier];
  const int file = CreateAnew(draft, S_IRUSR | S_IWUSR | S_IRGRP);  // nothing that stood there
  if (file < 0) return;
  close(file);
  std::ofstream out(draft, std::ios::binary | std::ios::trunc);
  for (const std::uint64_t value :
       {kSpanFormat, static_cast<std::uint64_t>(span.bucket), static_cast<std::uint64_t>(through),
        std::uint64_t{span.rebuilt}}) {
    out.write(reinterpret_cast<const char*>(&value), sizeof(value));
  }
  span.counts.Save(out);
  out.write(reinterpret_cast<const char*>(&kSpanFormat), sizeof(kSpanFormat));
  out.close();
  if (!out) return;
  std::error_code ignored;
  std::filesystem::rename(draft, path, ignored);
}

void Counters::RemoveSaved() {
  std::error_code ignored;
  for (const std::size_t tier : {kHour, kDay}) std::filesystem::remove(SpanPath(tier), ignored);
}

bool Counters::Load(std::size_t tier, Span* span, std::int64_t* through) const {
  if (!IsPlainOrNone(SpanPath(tier))) return false;
  std::ifstream in(SpanPath(tier), std::ios::binary);
  std::uint64_t head[4]{};
  in.read(reinterpret_cast<char*>(head), sizeof(head));
  if (!in || head[0] != kSpanFormat || head[1] != static_cast<std::uint64_t>(span->bucket)) {
    return false;
  }
  std::uint64_t end = 0;
  if (!span->counts.Load(in)) return false;
  in.read(reinterpret_cast<char*>(&end), sizeof(end));
  *through = static_cast<std::int64_t>(head[2]);
  span->rebuilt = head[3] != 0;
  return in && end == kSpanFormat;
}

}  // namespace flow::host
