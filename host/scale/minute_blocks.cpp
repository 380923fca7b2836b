// SPDX-License-Identifier: Apache-2.0
#include "host/scale/minute_blocks.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/base/printable.h"

namespace flow::host {
namespace {

std::uint32_t Seconds(std::int64_t time) { return static_cast<std::uint32_t>(time); }

std::int64_t StartOf(std::size_t tier, std::int64_t time) {
  return time / kTiers[tier].seconds * kTiers[tier].seconds;
}

constexpr std::string_view kNoteKinds[] = {"label", "property", "name"};

}  // namespace

// Goes on with another block where one is full; what is left goes at the end.
class MinuteBlocks::Rows {
 public:
  Rows(const MinuteBlocks& blocks, std::string table, std::int64_t bucket) : blocks_(blocks) {
    block_.table = std::move(table);
    block_.collector = blocks.sending_.collector;
    block_.run = blocks.sending_.run;
    block_.bucket = bucket;
  }
  ~Rows() { Flush(); }
  Rows(const Rows&) = delete;
  Rows& operator=(const Rows&) = delete;

  RowBinary Row() {
    if (block_.rows == kMostBlockRows) Flush();
    if (block_.rows++ == 0) block_.number = blocks_.next_();
    return RowBinary(&block_.body);
  }
  [[nodiscard]] std::uint32_t number() const { return block_.number; }

 private:
  void Flush() {
    if (block_.rows == 0) return;
    Block full = block_;
    full.body = std::exchange(block_.body, {});
    block_.rows = 0;
    blocks_.take_(std::move(full));
  }

  const MinuteBlocks& blocks_;
  Block block_;
};

MinuteBlocks::MinuteBlocks(const Sending& sending, std::span<const GroupInfo> groups,
                           std::string program, FlowBlocks::NextNumber next, FlowBlocks::Take take)
    : sending_(sending),
      groups_(groups),
      program_(std::move(program)),
      next_(std::move(next)),
      take_(std::move(take)) {}

void MinuteBlocks::Write(StoredMinute minute) {
  if (started_ == 0) {
    started_ = minute.from;
    WriteGroups(minute.to);
  }
  alive_ = std::max(alive_, minute.to);
  WriteNotes(minute);
  const std::int64_t bucket = minute.bucket;
  if (hour_.bucket != StartOf(kHour, bucket)) EndHour();
  if (day_.bucket != StartOf(kDay, bucket)) EndDay();
  hour_.bucket = StartOf(kHour, bucket);
  day_.bucket = StartOf(kDay, bucket);
  WriteBetween(bucket);
  const TierSpan span = TierSpan::OfMinute(std::move(minute));
  WriteSpan(kMinute, span);
  hour_.Add(span);
  last_minute_ = bucket;
  WriteRun(false);
}

// Minutes in which nothing came have rows, too: a captured one and a collector's own.
void MinuteBlocks::WriteBetween(std::int64_t bucket) {
  constexpr std::int64_t kLongest = 2 * kDaySeconds;
  if (last_minute_ == 0) return;
  std::int64_t at = std::max(last_minute_ + kMinuteSeconds, bucket - kLongest);
  Rows rows(*this, "raw_buckets", at);
  for (; at < bucket; at += kMinuteSeconds) {
    const BucketSums empty{.ran = kMinuteSeconds};
    WriteBucket(kMinute, at, empty, parts_.Begin(kMinute, at), &rows);
    if (hour_.bucket == StartOf(kHour, at)) hour_.sums.Add(empty);
  }
}

void MinuteBlocks::EndHour() {
  if (hour_.bucket == 0) return;
  WriteSpan(kHour, hour_);
  day_.Add(hour_);
  hour_ = {};
}

void MinuteBlocks::EndDay() {
  if (day_.bucket == 0) return;
  WriteSpan(kDay, day_);
  day_ = {};
}

void MinuteBlocks::WriteSpan(std::size_t tier, const TierSpan& span) {
  const std::uint32_t part = parts_.Begin(tier, span.bucket);
  WriteCounters(tier, span, part);
  WriteHealth(tier, span, part);
  WriteNumbers(span, part);
  Rows rows(*this, "raw_buckets", span.bucket);
  WriteBucket(tier, span.bucket, span.sums, part, &rows);
}

void MinuteBlocks::WriteCounters(std::size_t tier, const TierSpan& span, std::uint32_t part) {
  Rows rows(*this, TierTable("raw_counters", kTiers[tier]), span.bucket);
  for (const auto& sums : span.counts.groups()) {
    const std::vector<ValueColumn>& columns = sums->columns();
    const auto write = [&](std::string_view key, std::uint64_t keys, std::uint64_t bound,
                           const std::uint64_t* values) {
      RowBinary row = rows.Row();
      row.Text(sums->info().id).Put(Seconds(span.bucket)).Text(sending_.collector);
      row.Put(sending_.run).Put(part).Text(key).Put(keys).Put(bound);
      row.Put(values[0]).Put(values[1]).Length(columns.size() - 2);
      for (std::size_t i = 2; i < columns.size(); ++i) row.Put(values[i]);
      row.Put(rows.number());
    };
    if (sums->other_keys() > 0) write(kOthersKey, sums->other_keys(), 0, sums->others().data());
    sums->ForEach([&](std::string_view key, const std::uint64_t* values, std::uint64_t bound) {
      write(key, 1, bound, values);
    });
  }
}

void MinuteBlocks::WriteHealth(std::size_t tier, const TierSpan& span, std::uint32_t part) {
  const auto begin = [&](RowBinary* row, const TierSpan::Source& source) -> RowBinary& {
    const auto& [exporter, port, version] = source;
    row->Text(kTiers[tier].name).Put(Seconds(span.bucket)).Text(sending_.collector);
    return row->Put(sending_.run).Put(part).Text(exporter).Put(port).Text(version);
  };
  Rows health(*this, "raw_health", span.bucket);
  for (const auto& [source, sent] : span.health) {
    RowBinary row = health.Row();
    begin(&row, source).Text(sent.lost_unit).Nullable(sent.clock_offset_ms);
    for (const std::uint64_t value : sent.values) row.Put(value);
  }
  Rows losses(*this, "raw_losses", span.bucket);
  for (const auto& [key, count] : span.losses) {
    RowBinary row = losses.Row();
    begin(&row, key.source).Text(key.place).Text(key.reason).Put(count).Text(key.unit);
  }
}

void MinuteBlocks::WriteNumbers(const TierSpan& minute, std::uint32_t part) {
  Rows rows(*this, "raw_streams", minute.bucket);
  for (const StreamNumbers& numbers : minute.numbers) {
    rows.Row()
        .Put(Seconds(minute.bucket))
        .Text(sending_.collector)
        .Put(sending_.run)
        .Put(part)
        .Text(numbers.exporter.address.Text())
        .Put(numbers.exporter.port)
        .Text(numbers.version.Text())
        .Text(numbers.Unit())
        .Put(numbers.stream)
        .Put(numbers.run)
        .Put(numbers.first)
        .Put(numbers.next)
        .Put(numbers.came);
  }
}

void MinuteBlocks::WriteBucket(std::size_t tier, std::int64_t bucket, const BucketSums& sums,
                               std::uint32_t part, Rows* rows) {
  const auto length = static_cast<std::uint64_t>(kTiers[tier].seconds);
  rows->Row()
      .Text(kTiers[tier].name)
      .Put(Seconds(bucket))
      .Text(sending_.collector)
      .Put(sending_.run)
      .Put(part)
      .Put(static_cast<std::uint32_t>(length))
      .Put(static_cast<std::uint32_t>(std::min(sums.ran, length)))
      .Put(sums.datagrams)
      .Put(sums.records)
      .Put(sums.bytes)
      .Put(sums.packets)
      .Put(sums.flows)
      .Put(sums.flows_not_kept);
}

void MinuteBlocks::WriteNotes(const StoredMinute& minute) {
  Rows rows(*this, "raw_notes", minute.bucket);
  for (const KeyNote& note : minute.notes) {
    rows.Row()
        .Text(kNoteKinds[static_cast<std::size_t>(note.kind)])
        .Text(note.group_id)
        .Text(note.key)
        .Text(Utf8(note.name))
        .Text(Utf8(note.value))
        .Text(Utf8(note.description))
        .Put(Seconds(minute.to));
  }
}

// Groups and those of their meters that have columns, with bytes first.
void MinuteBlocks::WriteGroups(std::int64_t now) {
  Rows groups(*this, "raw_groups", now);
  Rows meters(*this, "raw_meters", now);
  std::uint32_t place = 0;
  for (const GroupInfo& group : groups_) {
    if (!HasTiers(group)) continue;
    groups.Row()
        .Text(group.id)
        .Put(++place)
        .Text(group.title)
        .Text(group.key_title)
        .Text(KeyKindName(group.key_kind))
        .Put(Seconds(now));
    std::uint32_t meter_place = 0;
    const std::vector<ValueColumn> columns = ValueColumns(group);
    for (const MeterInfo& meter : group.meters) {
      ++meter_place;
      if (std::ranges::find(columns, meter.id, &ValueColumn::name) == columns.end()) continue;
      meters.Row()
          .Text(group.id)
          .Put(meter_place)
          .Text(meter.id)
          .Text(meter.title)
          .Text(UnitName(meter.unit))
          .Put(Seconds(now));
    }
  }
}

void MinuteBlocks::WriteRun(bool has_ended) {
  Rows rows(*this, "raw_runs", alive_);
  rows.Row()
      .Text(sending_.collector)
      .Put(sending_.run)
      .Put(Seconds(started_))
      .Put(Seconds(alive_))
      .Put(has_ended ? Seconds(alive_) : 0U)
      .Text(has_ended ? "end" : "")
      .Text(program_)
      .Put(++written_);
}

void MinuteBlocks::WriteGap(std::int64_t from, std::int64_t to, std::string_view reason) {
  Rows rows(*this, "raw_gaps", from);
  rows.Row().Text(sending_.collector).Put(Seconds(from)).Put(Seconds(to)).Text(reason);
}

void MinuteBlocks::End() {
  if (started_ == 0) return;
  EndHour();
  EndDay();
  WriteRun(true);
}

}  // namespace flow::host
