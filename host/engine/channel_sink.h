// SPDX-License-Identifier: Apache-2.0
// Where the messages go that a component posts on a channel.
#pragma once

#include <cstdint>
#include <span>

#include "flowhandlers/guid.h"

namespace flow::host {

class ChannelSink {
 public:
  virtual ~ChannelSink() = default;

  // Post takes a message of the component sender; it is valid during the call alone.
  virtual void Post(const GUID& channel, const CLSID& sender, std::span<std::uint8_t> message) = 0;
};

}  // namespace flow::host
