// SPDX-License-Identifier: Apache-2.0
#include "netflow/exact_times.h"

#include <algorithm>

#include "util/bytes.h"

namespace flow {
namespace {

// Of the elements from 150 on, in pairs of start and end. The last two are times of NTP.
enum class Form { kSeconds, kMilliseconds, kMicroseconds, kNanoseconds };

constexpr std::int64_t kNtpEpoch = 2'208'988'800;  // seconds from 1900 to 1970

std::int64_t FromNtp(std::uint64_t time) noexcept {
  if (time == 0) return 0;
  const auto seconds = static_cast<std::int64_t>(time >> 32);
  const auto fraction = static_cast<std::int64_t>((time & 0xFFFFFFFF) * 1000 >> 32);
  return (seconds - kNtpEpoch) * 1000 + fraction;
}

std::int64_t Milliseconds(Form form, const std::uint8_t* value, std::size_t length) noexcept {
  if (form == Form::kSeconds) return static_cast<std::int64_t>(GetVarInt(length, value) * 1000);
  if (length != 8) return 0;
  const std::uint64_t number = LoadBe64(value);
  return form == Form::kMilliseconds ? static_cast<std::int64_t>(number) : FromNtp(number);
}

TimePair PairOf(std::int64_t milliseconds) noexcept {
  const auto time = static_cast<std::uint64_t>(milliseconds);  // divided in fewer steps
  return {static_cast<std::int64_t>(time / 1000), static_cast<std::int64_t>(time % 1000)};
}

}  // namespace

void ExactTimes::Take(std::uint32_t element, const std::uint8_t* value,
                      std::size_t length) noexcept {
  const std::uint32_t index = element - 150;
  const std::int64_t time = Milliseconds(static_cast<Form>(index / 2), value, length);
  if (time > 0) times_[index % 2] = time;
}

void ExactTimes::Tell(FlowRecord* out) const noexcept {
  const std::int64_t start = times_[kStart] != 0 ? times_[kStart] : times_[kEnd];
  const std::int64_t end = times_[kEnd] != 0 ? times_[kEnd] : times_[kStart];
  out->has_times = start != 0;
  if (!out->has_times) return;
  out->start = PairOf(std::min(start, end));
  out->end = PairOf(std::max(start, end));
}

}  // namespace flow
