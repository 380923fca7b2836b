// SPDX-License-Identifier: Apache-2.0
// What programs behind a collector are told, and where it goes.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "host/scale/message_row.h"

namespace flow::host {

enum class Topic : std::uint8_t { kFlows, kCounters, kHealth, kTemplates };
inline constexpr std::string_view kTopicNames[] = {"flows", "counters", "health", "templates"};

// Used by one thread at a time, but for the last.
class MessageSink {
 public:
  // Messages have the form that the row gives them.
  explicit MessageSink(std::unique_ptr<MessageRow> row) : row_(std::move(row)) {}
  MessageSink(const MessageSink&) = delete;
  MessageSink& operator=(const MessageSink&) = delete;
  virtual ~MessageSink() = default;

  // The message that is to be put next is written here.
  [[nodiscard]] MessageRow& row() { return *row_; }

  [[nodiscard]] virtual bool Wants(Topic topic) const = 0;

  // Put takes a message; those of one key keep their order. It may wait, until GiveUp. False when
  // it cannot be taken.
  virtual bool Put(Topic topic, std::string_view key, std::string_view message) = 0;

  // Flush has all that was put go on its way. End waits until it has arrived, or never will; both
  // until GiveUp.
  virtual void Flush() = 0;
  virtual void End() = 0;

  // How many of those that were put never arrived, as far as is known.
  [[nodiscard]] virtual std::uint64_t Lost() const = 0;

  // GiveUp ends all waiting; any thread.
  virtual void GiveUp() = 0;

 private:
  std::unique_ptr<MessageRow> row_;
};

}  // namespace flow::host
