// SPDX-License-Identifier: Apache-2.0
#include "host/intake/mailbox.h"

#include <algorithm>
#include <utility>

#include "host/base/memory_budget.h"

namespace flow::host {

void Mailbox::Post(ChannelMessage message) {
  {
    const std::lock_guard lock(mutex_);
    constexpr std::size_t kOverhead = 128;
    const std::size_t bytes = message.bytes->size() + kOverhead;
    if (bytes > Shares().mailbox - std::min(bytes_, Shares().mailbox)) {
      has_lost_.store(true, std::memory_order_relaxed);
      return NoteLetGo(LetGo::kMessages, 1);
    }
    bytes_ += bytes;
    messages_.push_back(std::move(message));
    has_mail_.store(true, std::memory_order_release);
  }
  if (on_post_) on_post_();
}

bool Mailbox::HasRoom() {
  const std::lock_guard lock(mutex_);
  return bytes_ < Shares().mailbox / 2;
}

std::vector<ChannelMessage> Mailbox::TakeAll() {
  const std::lock_guard lock(mutex_);
  has_mail_.store(false, std::memory_order_release);
  bytes_ = 0;
  return std::exchange(messages_, {});
}

}  // namespace flow::host
