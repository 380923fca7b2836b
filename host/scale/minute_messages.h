// SPDX-License-Identifier: Apache-2.0
// Counters and exporters' health as messages: of minutes, and of the hours and days that they add
// up to.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/base/printable.h"
#include "host/scale/flow_blocks.h"
#include "host/scale/message.h"
#include "host/scale/span_parts.h"
#include "host/scale/tier_span.h"
#include "host/store/schema.h"

namespace flow::host {

class MinuteMessages {
 public:
  // The sink outlives it.
  MinuteMessages(const Sending& sending, MessageSink& sink)
      : run_(sending.run), collector_(Utf8(sending.collector)), sink_(sink) {}

  void Put(StoredMinute minute);
  // End puts what the running hour and day have.
  void End();

 private:
  static constexpr std::size_t kMinute = 0;
  static constexpr std::size_t kHour = 1;
  static constexpr std::size_t kDay = 2;

  void EndSpan(std::size_t tier);
  void PutSpan(std::size_t tier, const TierSpan& span);
  void PutCounters(std::size_t tier, const TierSpan& span);
  void PutHealth(std::size_t tier, const TierSpan& span);
  MessageRow& Begin(std::string_view kind, std::size_t tier, const TierSpan& span);
  MessageRow& BeginOf(std::string_view kind, std::size_t tier, const TierSpan& span,
                      const TierSpan::Source& source);

  std::uint64_t run_;
  std::string collector_;
  MessageSink& sink_;
  SpanParts parts_;
  std::uint32_t part_ = 0;                           // of the span that is being put
  std::uint64_t number_ = 0;                         // of a message of the run, from 1
  std::array<TierSpan, std::size(kTiers)> running_;  // the minute's is not used
};

}  // namespace flow::host
