#include "netflow/exact_times.h"

#include <algorithm>

#include "util/bytes.h"

namespace flow {
namespace {

enum class Form { kSeconds, kMilliseconds, kNtp };

// From 150 on, in pairs of start and end.
constexpr Form kForms[] = {Form::kSeconds, Form::kMilliseconds, Form::kNtp, Form::kNtp};

constexpr std::int64_t kNtpEpoch = 2'208'988'800;  // seconds from 1900 to 1970

std::int64_t FromNtp(std::uint64_t time) noexcept {
  const auto seconds = static_cast<std::int64_t>(time >> 32);
  const auto fraction = static_cast<std::int64_t>((time & 0xFFFFFFFF) * 1000 >> 32);
  return (seconds - kNtpEpoch) * 1000 + fraction;
}

std::int64_t Milliseconds(Form form, const std::uint8_t* value, std::size_t length) noexcept {
  if (form == Form::kSeconds) return static_cast<std::int64_t>(GetVarInt(length, value) * 1000);
  if (length != 8) return 0;
  const std::uint64_t number = LoadBe64(value);
  if (number == 0) return 0;
  return form == Form::kNtp ? FromNtp(number) : static_cast<std::int64_t>(number);
}

TimePair PairOf(std::int64_t milliseconds) noexcept {
  return {milliseconds / 1000, milliseconds % 1000};
}

}  // namespace

void ExactTimes::Take(std::uint32_t element, const std::uint8_t* value,
                      std::size_t length) noexcept {
  const std::uint32_t index = element - 150;
  const std::int64_t time = Milliseconds(kForms[index / 2], value, length);
  if (time <= 0) return;
  (index % 2 == 0 ? start_ : end_) = time;
}

void ExactTimes::Tell(RecordAddenda* out) const noexcept {
  if (start_ == 0 && end_ == 0) return;
  const std::int64_t start = start_ == 0 ? end_ : start_;
  const std::int64_t end = end_ == 0 ? start_ : end_;
  out->has_times = true;
  out->start = PairOf(std::min(start, end));
  out->end = PairOf(std::max(start, end));
}

}  // namespace flow
