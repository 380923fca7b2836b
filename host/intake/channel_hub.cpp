// SPDX-License-Identifier: Apache-2.0
#include "host/intake/channel_hub.h"

namespace flow::host {

void ChannelHub::Deliver(int sender_lane, const GUID& channel,
                         std::span<const std::uint8_t> message) {
  if (boxes_.size() < 2 && sender_lane != 0 && !observer_) return;
  const ChannelMessage copy{
      channel, std::make_shared<std::vector<std::uint8_t>>(message.begin(), message.end())};
  if (observer_) observer_(channel, *copy.bytes);
  for (const Entry& entry : boxes_) {
    if (entry.lane != sender_lane) entry.mailbox->Post(copy);
  }
}

}  // namespace flow::host
