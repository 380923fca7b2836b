#include "host/intake/mailbox.h"

#include <utility>

namespace flow::host {

void Mailbox::Post(ChannelMessage message) {
  {
    const std::lock_guard lock(mutex_);
    messages_.push_back(std::move(message));
    has_mail_.store(true, std::memory_order_release);
  }
  if (on_post_) on_post_();
}

std::vector<ChannelMessage> Mailbox::TakeAll() {
  const std::lock_guard lock(mutex_);
  has_mail_.store(false, std::memory_order_release);
  return std::exchange(messages_, {});
}

}  // namespace flow::host
