// SPDX-License-Identifier: Apache-2.0
// Flow times that exporters give as such (RFC 5102's flowStart and flowEnd elements, 150 to 157):
// seconds and milliseconds since 1970, micro- and nanoseconds in the form of NTP (RFC 7011, 6.1).
#pragma once

#include <cstddef>
#include <cstdint>

#include "metering/flow_record.h"

namespace flow {

[[nodiscard]] constexpr bool IsExactTime(std::uint32_t element) noexcept {
  return element >= 150 && element <= 157;
}

class ExactTimes {
 public:
  void Clear() noexcept { times_[kStart] = times_[kEnd] = 0; }

  // Take looks at a field with such a time. A time of 0, or of another length, is none.
  void Take(std::uint32_t element, const std::uint8_t* value, std::size_t length) noexcept;

  // Tell puts the times into *out, if there are any; a single one is both.
  void Tell(FlowRecord* out) const noexcept;

 private:
  enum { kStart, kEnd };  // as the elements follow each other

  std::int64_t times_[2] = {};  // milliseconds since 1970, never below 0; 0: none
};

}  // namespace flow
