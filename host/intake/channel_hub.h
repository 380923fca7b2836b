// SPDX-License-Identifier: Apache-2.0
// The message channels between the meters of all lanes.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "host/intake/mailbox.h"

namespace flow::host {

class ChannelHub {
 public:
  // A mailbox belongs to a lane. All lanes are there before the first message.
  void Add(int lane, Mailbox& mailbox) { boxes_.push_back({lane, &mailbox}); }

  // Observers are told of every message, in the sender's thread; several may be at once.
  using Observer = std::function<void(int sender_lane, const GUID& channel,
                                      const std::vector<std::uint8_t>& message)>;
  void Observe(Observer observer) { observers_.push_back(std::move(observer)); }

  // Deliver puts a copy of the message into the mailboxes of all lanes but the sender's; 0 is the
  // host itself.
  void Deliver(int sender_lane, const GUID& channel, std::span<const std::uint8_t> message);

  // HasRoom says whether all mailboxes are half empty.
  [[nodiscard]] bool HasRoom() const;

  // Teach has all lanes but the sender's learn from a datagram that it met; 0 is another collector.
  void Teach(int sender_lane, const Endpoint& exporter, std::span<const std::uint8_t> datagram);

 private:
  struct Entry {
    int lane;
    Mailbox* mailbox;
  };

  std::vector<Entry> boxes_;
  std::vector<Observer> observers_;
};

}  // namespace flow::host
