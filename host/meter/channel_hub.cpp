#include "host/meter/channel_hub.h"

#include <fmt/format.h>

#include "host/component/call_trace.h"

namespace flow::host {

void ChannelHub::Add(int lane, IOmbrelChannelListener& listener) {
  listeners_.push_back({lane, &listener});
}

void ChannelHub::Remove(IOmbrelChannelListener& listener) {
  std::erase_if(listeners_, [&](const Entry& entry) { return entry.listener == &listener; });
}

void ChannelHub::Deliver(int sender_lane, const GUID& channel, std::span<std::uint8_t> message) {
  for (const Entry& entry : listeners_) {
    if (entry.lane == sender_lane) continue;
    if (trace_ != nullptr) {
      trace_->Enter(fmt::format("lane {} OnChannelMessage {} {} bytes", entry.lane,
                                trace_->Name(channel), message.size()));
    }
    const Status status = entry.listener->OnChannelMessage(
        channel, static_cast<unsigned>(message.size()), message.data());
    if (trace_ != nullptr) trace_->Leave(status);
  }
}

}  // namespace flow::host
