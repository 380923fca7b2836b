// SPDX-License-Identifier: Apache-2.0
// The counters of a store or a server, for reading.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/ask/answer.h"
#include "host/ask/counter_source.h"
#include "host/ask/times.h"
#include "host/store/schema.h"

namespace flow::host {

// A group of counters as the store describes it.
struct StoredGroup {
  struct Column {
    std::string name;
    std::string title;
    ValueKind kind = ValueKind::kCount;
  };

  std::string id;
  std::string title;
  std::string key_title;
  std::string key_kind;
  std::vector<Column> columns;  // bytes first
};

// Neighbouring buckets of one tier.
struct TierPart {
  std::size_t tier = 0;  // in kTiers
  TimeSpan span;
};

// What the store has of a span.
struct Cover {
  TimeSpan span;  // in whole buckets
  std::vector<TierPart> parts;
  std::vector<AnswerGap> gaps;
  std::int64_t bytes = 0;
  std::int64_t packets = 0;
  std::int64_t flows = 0;
  std::int64_t flows_not_kept = 0;
  bool is_widened = false;  // to buckets longer than what was asked for

  // "the hours' totals"
  [[nodiscard]] std::string Source() const;
};

class StoredCounters {
 public:
  explicit StoredCounters(std::unique_ptr<CounterSource> source) : source_(std::move(source)) {}
  // Of a store. HostError where there is none, or none that can be read.
  explicit StoredCounters(const std::string& directory);

  // Names of groups are those of the store and those that people use: "as", "interfaces".
  // UsageError names all that there are.
  [[nodiscard]] std::vector<StoredGroup> Groups(const std::string& name);

  // All that the store has, in their order.
  [[nodiscard]] std::vector<StoredGroup> AllGroups();

  // In buckets as long as they fit, but not longer than `most_seconds`, as they are wanted for a
  // line of steps.
  Cover CoverOf(const TimeSpan& span, std::int64_t most_seconds = kDaySeconds);

  // From the first minute that is kept to the end of the last.
  TimeSpan Whole();

  // What was lost in a span.
  std::vector<AnswerLoss> LossesOf(const Cover& cover);

  std::unique_ptr<SourceRows> Ask(const std::string& sql, const SourceValues& values = {}) {
    return source_->Ask(sql, values);
  }
  // As the source has them.
  std::string Table(const std::string& name, const TimeSpan& span) {
    return source_->Table(name, span);
  }
  std::string GroupTable(const StoredGroup& group, const TierPart& part) {
    return source_->GroupTable(group, kTiers[part.tier], part.span);
  }
  bool HasColumn(const std::string& table, const std::string& column) {
    return source_->HasColumn(table, column);
  }
  [[nodiscard]] bool AddsUp() const { return source_->AddsUp(); }
  FlowSource& flows() { return source_->Flows(); }

 private:
  struct Bucket {
    std::int64_t ran = 0;
    std::int64_t bytes = 0;
    std::int64_t packets = 0;
    std::int64_t flows = 0;
    std::int64_t flows_not_kept = 0;
  };
  using Buckets = std::map<std::int64_t, Bucket>;

  [[nodiscard]] std::vector<std::string> GroupIds();
  StoredGroup Describe(const std::string& id);
  Buckets BucketsOf(std::size_t tier, const TimeSpan& span);
  std::vector<AnswerGap> GapsOf(const TimeSpan& span);
  // Whether a bucket is all that is left of its time.
  bool IsAllThatIsLeft(std::size_t tier, std::int64_t bucket);

  std::unique_ptr<CounterSource> source_;
};

}  // namespace flow::host
