// SPDX-License-Identifier: Apache-2.0
#include "host/intake/channel_hub.h"

#include <algorithm>

namespace flow::host {
namespace {

template <class Boxes>
void PostToOthers(const Boxes& boxes, int sender_lane, const ChannelMessage& copy) {
  for (const auto& entry : boxes) {
    if (entry.lane != sender_lane) entry.mailbox->Post(copy);
  }
}

}  // namespace

void ChannelHub::Deliver(int sender_lane, const GUID& channel,
                         std::span<const std::uint8_t> message) {
  if (boxes_.size() < 2 && sender_lane != 0 && observers_.empty()) return;
  const ChannelMessage copy{
      channel, std::make_shared<std::vector<std::uint8_t>>(message.begin(), message.end()), {}};
  for (const Observer& observer : observers_) observer(sender_lane, channel, *copy.bytes);
  PostToOthers(boxes_, sender_lane, copy);
}

bool ChannelHub::HasRoom() const {
  return std::ranges::all_of(boxes_, [](const Entry& entry) { return entry.mailbox->HasRoom(); });
}

void ChannelHub::Teach(int sender_lane, const Endpoint& exporter,
                       std::span<const std::uint8_t> datagram) {
  const ChannelMessage copy{
      kDatagrams, std::make_shared<std::vector<std::uint8_t>>(datagram.begin(), datagram.end()),
      exporter};
  PostToOthers(boxes_, sender_lane, copy);
}

}  // namespace flow::host
