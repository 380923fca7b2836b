// SPDX-License-Identifier: Apache-2.0
// What stands around a question: the store, the span, the names, where the answer goes.
#pragma once

#include <memory>
#include <optional>
#include <utility>

#include "host/ask/answer.h"
#include "host/ask/key_names.h"
#include "host/ask/stored_counters.h"
#include "host/command/ask_options.h"
#include "host/command/capture_store.h"

namespace flow::host {

class AskSetup {
 public:
  // HostError without a store, UsageError where the options cannot be right.
  // usual_seconds: the span, where none is said.
  AskSetup(const AskOptions& options, std::int64_t usual_seconds);

  [[nodiscard]] StoredCounters* counters() { return &counters_; }
  [[nodiscard]] const TimeSpan& span() const { return span_; }
  [[nodiscard]] const KeyNames& names() const { return names_; }
  [[nodiscard]] const AnswerView& view() const { return view_; }
  [[nodiscard]] std::int64_t now() const { return now_; }

  // Give puts the answer together with how it is to be shown.
  [[nodiscard]] Answered Give(Answer answer) const { return {std::move(answer), view_}; }

 private:
  std::unique_ptr<CounterSource> OpenSource(const AskOptions& options);
  TimeSpan SpanFor(const AskOptions& options, std::int64_t usual_seconds);

  AnswerView view_;
  std::int64_t now_;
  KeyNames names_;
  std::optional<CaptureStore> captures_;
  StoredCounters counters_;
  TimeSpan span_;
};

}  // namespace flow::host
