// SPDX-License-Identifier: Apache-2.0
// Channel messages that wait for a lane, and what others tell of exporters. Any thread may post;
// the lane takes them between datagrams.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "flowhandlers/guid.h"
#include "host/base/endpoint.h"

namespace flow::host {

// A message has many readers and no writer; the meters' interface asks for bytes that could be
// written, and leaves them alone.
struct ChannelMessage {
  GUID channel{};
  std::shared_ptr<std::vector<std::uint8_t>> bytes;
  // Where the channel is kDatagrams: who sends such a datagram, which is to be learnt from alone.
  Endpoint exporter{};
};
inline constexpr GUID kDatagrams{};

class Mailbox {
 public:
  // on_post runs after each message, in the thread that posted it; it wakes a lane that sleeps.
  void OnPost(std::function<void()> on_post) { on_post_ = std::move(on_post); }

  // A full box takes none.
  void Post(ChannelMessage message);

  // HasLost tells whether a full box has ever let a message go.
  [[nodiscard]] bool HasLost() const { return has_lost_.load(std::memory_order_relaxed); }

  // HasRoom is for those who can wait until lanes have taken what there is.
  [[nodiscard]] bool HasRoom();

  // HasMail is cheap, for every datagram.
  [[nodiscard]] bool HasMail() const { return has_mail_.load(std::memory_order_acquire); }

  // TakeAll empties the box.
  std::vector<ChannelMessage> TakeAll();

 private:
  std::function<void()> on_post_;
  std::mutex mutex_;
  std::vector<ChannelMessage> messages_;
  std::size_t bytes_ = 0;  // of them
  std::atomic<bool> has_mail_ = false;
  std::atomic<bool> has_lost_ = false;
};

}  // namespace flow::host
