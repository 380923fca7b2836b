// The message channels between the meters of all lanes.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "plugin/plugin_interfaces.h"

namespace flow::host {

class CallTrace;

class ChannelHub {
 public:
  // trace may be null.
  explicit ChannelHub(CallTrace* trace) : trace_(trace) {}

  // A listener belongs to a lane; it must be removed before it goes.
  void Add(int lane, IOmbrelChannelListener& listener);
  void Remove(IOmbrelChannelListener& listener);

  // Deliver hands a message to the listeners of all lanes but the sender's.
  void Deliver(int sender_lane, const GUID& channel, std::span<std::uint8_t> message);

 private:
  struct Entry {
    int lane;
    IOmbrelChannelListener* listener;
  };

  CallTrace* trace_;
  std::vector<Entry> listeners_;
};

}  // namespace flow::host
