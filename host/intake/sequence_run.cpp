// SPDX-License-Identifier: Apache-2.0
#include "host/intake/sequence_run.h"

#include <algorithm>

namespace flow::host {

std::uint32_t SequenceRun::Skip(const NumberSpan& span) {
  const bool is_unsure = is_open_ || span.open_front;
  const Gap gap{next_, is_unsure ? 0 : span.first - next_};
  Advance(span);
  Open(gap);
  return gap.length;
}

std::uint32_t SequenceRun::Fill(const NumberSpan& span, std::uint32_t reach) {
  const bool is_unsure = span.open_front || span.open_back;
  const std::uint32_t length = is_unsure ? std::max(span.Length(), 1U) : span.Length();
  if (length == 0) return 0;
  std::uint32_t came = 0;
  for (std::size_t i = gap_count_; i-- > 0;) {
    if (next_ - (gaps_[i].first + gaps_[i].length) <= reach) came += FillGap(i, span.first, length);
  }
  return came;
}

// Takes the numbers from first on out of a gap; what is left on either side stays open.
std::uint32_t SequenceRun::FillGap(std::size_t index, std::uint32_t first, std::uint32_t length) {
  Gap& gap = gaps_[index];
  const std::uint32_t inside = first - gap.first;
  if (inside >= gap.length) {
    const std::uint32_t outside = gap.first - first;
    if (outside >= length) return 0;
    const std::uint32_t came = std::min(length - outside, gap.length);
    gap = {gap.first + came, gap.length - came};
    if (gap.length == 0) Close(index);
    return came;
  }
  const std::uint32_t came = std::min(length, gap.length - inside);
  const Gap behind{first + came, gap.length - inside - came};
  gap.length = inside;
  if (inside == 0) {
    gap = behind;
    if (behind.length == 0) Close(index);
  } else {
    Open(behind);
  }
  return came;
}

std::uint32_t SequenceRun::Precede(const NumberSpan& span) {
  const Gap gap{span.next, span.open_back ? 0 : start_ - span.next};
  start_ = span.first;
  Open(gap);
  return gap.length;
}

std::uint32_t SequenceRun::Append(const SequenceRun& other) {
  const std::uint32_t missing = Skip({other.start_, other.next_, false, other.is_open_});
  for (std::size_t i = 0; i < other.gap_count_; ++i) Open(other.gaps_[i]);
  return missing;
}

// Gaps side by side, as datagrams without a number of their own leave them, are one.
void SequenceRun::Open(Gap gap) {
  if (gap.length == 0) return;
  if (gap_count_ > 0) {
    Gap& newest = gaps_[gap_count_ - 1U];
    if (newest.first + newest.length == gap.first) {
      newest.length += gap.length;
      return;
    }
  }
  if (gap_count_ == kMostGaps) Close(0);
  gaps_[gap_count_++] = gap;
}

void SequenceRun::Close(std::size_t index) {
  std::copy(gaps_.begin() + static_cast<std::ptrdiff_t>(index) + 1, gaps_.begin() + gap_count_,
            gaps_.begin() + static_cast<std::ptrdiff_t>(index));
  --gap_count_;
}

}  // namespace flow::host
