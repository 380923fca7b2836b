// SPDX-License-Identifier: Apache-2.0
// Minutes as blocks, and the hours and days that they add up to.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "host/engine/group_info.h"
#include "host/scale/flow_blocks.h"
#include "host/scale/row_binary.h"
#include "host/scale/span_parts.h"
#include "host/scale/tier_span.h"
#include "host/store/schema.h"

namespace flow::host {

class MinuteBlocks {
 public:
  // All but the program's name outlive it.
  MinuteBlocks(const Sending& sending, std::span<const GroupInfo> groups, std::string program,
               FlowBlocks::NextNumber next, FlowBlocks::Take take);

  void Write(StoredMinute minute);
  // A stretch that could not be kept.
  void WriteGap(std::int64_t from, std::int64_t to, std::string_view reason);
  // End writes the running hour and day, and that the run has ended.
  void End();

 private:
  // A block that is being written; Row begins a row.
  class Rows;

  static constexpr std::size_t kMinute = 0;
  static constexpr std::size_t kHour = 1;
  static constexpr std::size_t kDay = 2;

  void WriteSpan(std::size_t tier, const TierSpan& span);
  void WriteCounters(std::size_t tier, const TierSpan& span, std::uint32_t part);
  void WriteHealth(std::size_t tier, const TierSpan& span, std::uint32_t part);
  void WriteNumbers(const TierSpan& minute, std::uint32_t part);
  void WriteBucket(std::size_t tier, std::int64_t bucket, const BucketSums& sums,
                   std::uint32_t part, Rows* rows);
  void WriteBetween(std::int64_t bucket);
  void WriteNotes(const StoredMinute& minute);
  void WriteGroups(std::int64_t now);
  void WriteRun(bool has_ended);
  void EndHour();
  void EndDay();

  const Sending& sending_;
  std::span<const GroupInfo> groups_;
  std::string program_;
  FlowBlocks::NextNumber next_;
  FlowBlocks::Take take_;
  SpanParts parts_;
  TierSpan hour_;
  TierSpan day_;
  std::int64_t started_ = 0;
  std::int64_t alive_ = 0;
  std::int64_t last_minute_ = 0;
  std::uint64_t written_ = 0;
};

}  // namespace flow::host
