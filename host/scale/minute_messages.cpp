// SPDX-License-Identifier: Apache-2.0
#include "host/scale/minute_messages.h"

#include <utility>
#include <vector>

#include "host/store/exporter_rows.h"

namespace flow::host {
namespace {

// As flowhost.proto has them.
namespace field {

constexpr MessageField kKind{"kind", 1};
constexpr MessageField kCollector{"collector", 2};
constexpr MessageField kRun{"run", 3};
constexpr MessageField kNumber{"number", 4};
constexpr MessageField kTier{"tier", 5};
constexpr MessageField kBucket{"bucket", 6};
// Of counters.
constexpr MessageField kGroup{"group", 7};
constexpr MessageField kKey{"key", 8};
constexpr MessageField kKeys{"keys", 9};
constexpr MessageField kBound{"bound", 10};
constexpr MessageField kColumns{"columns", 11};
// Of health.
constexpr MessageField kSamplerAddress{"sampler_address", 7};
constexpr MessageField kPort{"port", 8};
constexpr MessageField kVersion{"version", 9};
constexpr MessageField kLostUnit{"lost_unit", 10};
constexpr MessageField kPlace{"place", 12};
constexpr MessageField kReason{"reason", 13};
constexpr MessageField kCount{"count", 14};
constexpr MessageField kUnit{"unit", 15};
constexpr MessageField kStream{"stream", 16};
constexpr MessageField kSegment{"segment", 17};
constexpr MessageField kFirst{"first", 18};
constexpr MessageField kNext{"next", 19};
constexpr MessageField kCame{"came", 20};
constexpr MessageField kPart{"part", 21};

}  // namespace field
}  // namespace

void MinuteMessages::Put(StoredMinute minute) {
  const std::int64_t bucket = minute.bucket;
  for (const std::size_t tier : {kHour, kDay}) {
    const std::int64_t start = bucket / kTiers[tier].seconds * kTiers[tier].seconds;
    if (running_[tier].bucket != start) EndSpan(tier);
    running_[tier].bucket = start;
  }
  const TierSpan span = TierSpan::OfMinute(std::move(minute));
  PutSpan(kMinute, span);
  running_[kHour].Add(span);
}

void MinuteMessages::End() {
  EndSpan(kHour);
  EndSpan(kDay);
}

void MinuteMessages::EndSpan(std::size_t tier) {
  TierSpan ended = std::exchange(running_[tier], {});
  if (ended.bucket == 0) return;
  PutSpan(tier, ended);
  if (tier == kHour) running_[kDay].Add(ended);
}

void MinuteMessages::PutSpan(std::size_t tier, const TierSpan& span) {
  part_ = parts_.Begin(tier, span.bucket);
  if (sink_.Wants(Topic::kCounters)) PutCounters(tier, span);
  if (sink_.Wants(Topic::kHealth)) PutHealth(tier, span);
  sink_.Flush();
}

MessageRow& MinuteMessages::Begin(std::string_view kind, std::size_t tier, const TierSpan& span) {
  MessageRow& row = sink_.row();
  row.Begin();
  row.Add(field::kKind, kind);
  row.Add(field::kCollector, collector_);
  row.Add(field::kRun, run_);
  row.Add(field::kNumber, ++number_);
  row.Add(field::kTier, kTiers[tier].name);
  row.Add(field::kBucket, static_cast<std::uint64_t>(span.bucket));
  row.Add(field::kPart, part_);
  return row;
}

// A group's keys are whole, but for what was let go for want of memory, which has a row (others).
void MinuteMessages::PutCounters(std::size_t tier, const TierSpan& span) {
  for (const auto& sums : span.counts.groups()) {
    const std::string& group = sums->info().id;
    const std::vector<ValueColumn>& columns = sums->columns();
    const auto put = [&](std::string_view key, std::uint64_t keys, std::uint64_t bound,
                         const std::uint64_t* values) {
      MessageRow& row = Begin("counter", tier, span);
      row.Add(field::kGroup, group);
      row.Add(field::kKey, key);
      row.Add(field::kKeys, keys);
      row.Add(field::kBound, bound);
      for (std::size_t i = 0; i < columns.size(); ++i) {
        row.AddNamed(field::kColumns, columns[i].name, values[i]);
      }
      sink_.Put(Topic::kCounters, group, row.End());
    };
    if (sums->other_keys() > 0) put(kOthersKey, sums->other_keys(), 0, sums->others().data());
    sums->ForEach([&](std::string_view key, const std::uint64_t* values, std::uint64_t bound) {
      put(key, 1, bound, values);
    });
  }
}

MessageRow& MinuteMessages::BeginOf(std::string_view kind, std::size_t tier, const TierSpan& span,
                                    const TierSpan::Source& source) {
  const auto& [exporter, port, version] = source;
  MessageRow& row = Begin(kind, tier, span);
  row.Add(field::kSamplerAddress, exporter);
  row.Add(field::kPort, port);
  row.Add(field::kVersion, version);
  return row;
}

void MinuteMessages::PutHealth(std::size_t tier, const TierSpan& span) {
  const BucketSums& sums = span.sums;
  const std::pair<std::string_view, std::uint64_t> columns[] = {
      {"ran_seconds", sums.ran},
      {"datagrams", sums.datagrams},
      {"records", sums.records},
      {"bytes", sums.bytes},
      {"packets", sums.packets},
      {"flows", sums.flows},
      {"flows_not_kept", sums.flows_not_kept},
  };
  MessageRow& bucket = Begin("bucket", tier, span);
  for (const auto& [name, value] : columns) bucket.AddNamed(field::kColumns, name, value);
  sink_.Put(Topic::kHealth, "", bucket.End());
  for (const auto& [source, health] : span.health) {
    MessageRow& row = BeginOf("exporter", tier, span, source);
    row.Add(field::kLostUnit, health.lost_unit);
    for (std::size_t i = 0; i < health.values.size(); ++i) {
      row.AddNamed(field::kColumns, HealthColumns()[i].name, health.values[i]);
    }
    sink_.Put(Topic::kHealth, std::get<0>(source), row.End());
  }
  for (const auto& [key, count] : span.losses) {
    MessageRow& row = BeginOf("loss", tier, span, key.source);
    row.Add(field::kPlace, key.place);
    row.Add(field::kReason, key.reason);
    row.Add(field::kCount, count);
    row.Add(field::kUnit, key.unit);
    sink_.Put(Topic::kHealth, std::get<0>(key.source), row.End());
  }
  for (const StreamNumbers& numbers : span.numbers) {
    const std::string exporter = numbers.exporter.address.Text();
    MessageRow& row =
        BeginOf("stream", tier, span, {exporter, numbers.exporter.port, numbers.version.Text()});
    row.Add(field::kUnit, numbers.Unit());
    row.Add(field::kStream, numbers.stream);
    row.Add(field::kSegment, numbers.run);
    row.Add(field::kFirst, numbers.first);
    row.Add(field::kNext, numbers.next);
    row.Add(field::kCame, numbers.came);
    sink_.Put(Topic::kHealth, exporter, row.End());
  }
}

}  // namespace flow::host
