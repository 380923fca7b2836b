// SPDX-License-Identifier: Apache-2.0
// The host that the datagram targets share, and the promises that hold after every datagram.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tests/support/recording_host.h"

namespace flow::fuzz {

// ChoosePolicy gives the shared host one of a few policies, from the defaults to everything on, and
// returns the host. It checks keys and meters of every call, but keeps no lines.
test::RecordingHost& ChoosePolicy(std::uint8_t number);

// Watches one step of a target: a datagram of so many bytes may make the library call the host and
// keep memory in proportion to its size, and no more. A broken promise ends the program.
class StepWatch {
 public:
  explicit StepWatch(const test::RecordingHost& host, std::size_t datagram_size);
  ~StepWatch();
  StepWatch(const StepWatch&) = delete;
  StepWatch& operator=(const StepWatch&) = delete;

 private:
  const test::RecordingHost& host_;
  std::size_t size_;
  std::uint64_t calls_;
  std::size_t memory_;
};

}  // namespace flow::fuzz
