// SPDX-License-Identifier: Apache-2.0
// When a long run's time buckets and reporting intervals end.
#pragma once

#include <algorithm>

#include "host/base/timestamp.h"

namespace flow::host {

class Schedule {
 public:
  // In microseconds; interval 0 for none.
  Schedule(Timestamp bucket, Timestamp interval) : bucket_(bucket), interval_(interval) {}

  // IsSetBack tells whether the clock was set back by more than what is awaited.
  [[nodiscard]] bool IsSetBack(Timestamp now) const { return next_ != 0 && now < from_ - bucket_; }

  // IsDue tells whether something ended before now; the first time it is asked, the clock starts.
  // A clock that was set back by more than what is awaited starts anew.
  bool IsDue(Timestamp now) {
    if (next_ == 0 || IsSetBack(now)) Start(now);
    return now >= next_;
  }

  // Take gives what has ended, where it is due, and awaits the next.
  struct Span {
    Timestamp from;
    Timestamp to;
    bool ends_interval;
  };
  Span Take(Timestamp now) {
    const Span span{from_, next_, next_ == interval_end_};
    Start(now);
    from_ = span.to;
    return span;
  }

  // From is when the bucket at hand began, To when it ends.
  [[nodiscard]] Timestamp To() const { return next_; }
  [[nodiscard]] Timestamp From() const { return from_; }

 private:
  void Start(Timestamp now) {
    const auto after = [now](Timestamp step) { return (now / step + 1) * step; };
    from_ = now;
    interval_end_ = interval_ == 0 ? 0 : after(interval_);
    next_ = interval_ == 0 ? after(bucket_) : std::min(after(bucket_), interval_end_);
  }

  Timestamp bucket_;
  Timestamp interval_;
  Timestamp from_ = 0;
  Timestamp next_ = 0;
  Timestamp interval_end_ = 0;
};

}  // namespace flow::host
