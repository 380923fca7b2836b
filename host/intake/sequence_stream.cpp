// SPDX-License-Identifier: Apache-2.0
#include "host/intake/sequence_stream.h"

#include <utility>

namespace flow::host {
namespace {

// In datagrams: what may be missing in front of a number without a doubt, what a network delays at
// most, and what may be missing when the numbers behind the gap bear it out.
constexpr std::uint32_t kNear = 128;
constexpr std::uint32_t kLongestDelay = 1024;
constexpr std::uint32_t kPlausible = 1024;
// Beyond: that much faster than so far, or this part of what has come so far.
constexpr double kFaster = 64;
constexpr std::uint64_t kPart = 8;
constexpr std::uint32_t kLargestGap = 1U << 30;

// So many numbers make a run, more where they may be the same again, and with so many others in
// between it is forgotten.
constexpr std::uint8_t kHitsOfARun = 4;
constexpr std::uint8_t kHitsAgain = 16;
constexpr std::uint32_t kForgotten = 256;

bool IsEmpty(const NumberSpan& span) { return span.Length() == 0 && !span.open_back; }

template <class Gaps>  // of a stream or of its other run
void Miss(std::uint32_t units, Gaps* gaps) {
  gaps->missing += units;
  gaps->gaps += units > 0 ? 1 : 0;
}

}  // namespace

void SequenceGaps::Add(const SequenceGaps& other) {
  missing += other.missing;
  came += other.came;
  here += other.here;
  gaps += other.gaps;
  late += other.late;
  restarts += other.restarts;
  jumps += other.jumps;
}

NumberSpan SequenceStream::SpanOf(const Numbered& numbered) const {
  const std::uint32_t number = numbered.number;
  if (counting_ == Counting::kMessages) return {number, number + 1};
  const std::uint32_t units = numbered.units.value_or(0);
  const bool is_unsure = !numbered.units;
  if (counting_ == Counting::kBefore) return {number, number + units, false, is_unsure};
  return {number + 1 - units, number + 1, is_unsure, false};
}

std::optional<std::uint32_t> SequenceStream::Expected(Counting counting,
                                                      std::optional<std::uint32_t> units) const {
  if (counting == Counting::kMessages) return last_ + 1;
  const std::optional<std::uint32_t> step = counting == Counting::kBefore ? last_units_ : units;
  if (!step) return std::nullopt;
  return last_ + *step;
}

auto SequenceStream::Explanation(const Numbered& numbered) const -> std::optional<Counting> {
  for (const Counting counting : {Counting::kBefore, Counting::kIncluded, Counting::kMessages}) {
    if (counting == counting_) continue;
    if (Expected(counting, numbered.units) == numbered.number) return counting;
  }
  return std::nullopt;
}

void SequenceStream::Take(const Numbered& numbered, SequenceGaps* gaps) {
  ++taken_;
  const NumberSpan span = SpanOf(numbered);
  if (!is_started_) {
    is_started_ = true;
    first_time_ = numbered.time;
    Run().Start(span);
  } else if (span.first == Run().next()) {
    // As long as all have as many units, the first two countings are alike.
    const bool is_telling = numbered.units != last_units_ || counting_ == Counting::kMessages;
    if (!is_confirmed_ && is_telling) is_confirmed_ = !Explanation(numbered);
    candidate_.reset();
    if (aside_ != Aside::kNothing) EndAside(gaps);
    Run().Advance(span);
  } else if (!TakeUnexpected(numbered, span, gaps)) {
    return;
  }
  NoteTaken(numbered, span);
}

void SequenceStream::NoteTaken(const Numbered& numbered, const NumberSpan& span) {
  last_ = numbered.number;
  last_units_ = numbered.units;
  step_ = std::max(step_ - step_ / 8, span.Length());
  units_ += span.Length();
  last_time_ = numbered.time;
}

bool SequenceStream::TakeUnexpected(const Numbered& numbered, const NumberSpan& span,
                                    SequenceGaps* gaps) {
  const auto other = Explanation(numbered);
  // Twice is no coincidence, and there was no gap.
  if (other && (candidate_ == other || !is_confirmed_)) {
    ChangeCounting(*other, numbered, gaps);
    return true;
  }
  candidate_ = other;
  candidate_gap_ = {};
  const bool is_near = span.first - Run().next() <= Datagrams(kNear);
  if (other && !is_near) return true;
  return Place(numbered, span, gaps);
}

void SequenceStream::ChangeCounting(Counting counting, const Numbered& numbered,
                                    SequenceGaps* gaps) {
  gaps->came += Run().Fill(candidate_gap_, 0xFFFFFFFF);
  candidate_gap_ = {};
  candidate_.reset();
  counting_ = counting;
  aside_ = Aside::kNothing;
  other_hits_ = 0;
  ++moves_;
  Run().Start(SpanOf(numbered));
}

bool SequenceStream::Place(const Numbered& numbered, const NumberSpan& span, SequenceGaps* gaps) {
  const bool follows = FollowsAside(span);
  const std::uint32_t expected = Run().next();
  if (!follows && span.first - expected <= Datagrams(kNear)) {
    EndAside(gaps);
    const std::uint32_t missing = Run().Skip(span);
    candidate_gap_ = {span.first - missing, span.first};
    Miss(missing, gaps);
    return true;
  }
  const bool is_late = expected - span.first <= Datagrams(kLongestDelay);
  if (!is_late || (follows && aside_ != Aside::kAgain)) {
    return TakeAside(Aside::kElsewhere, numbered, span, gaps);
  }
  ++gaps->late;
  const std::uint32_t came = Run().Fill(span, Datagrams(kLongestDelay));
  gaps->came += came;
  // It comes again, or the exporter has started anew not far behind. Where it has perhaps started
  // anew elsewhere, it comes again.
  if (!follows && (came > 0 || (aside_ == Aside::kElsewhere && HasOtherRun()))) return false;
  return TakeAside(Aside::kAgain, numbered, span, gaps);
}

bool SequenceStream::HasOtherRun() const {
  return other_hits_ > 0 && taken_ - other_taken_ <= kForgotten;
}

// Whether a number is the other run's: the expected one there, or nearer where both are runs.
bool SequenceStream::FollowsAside(const NumberSpan& span) {
  if (!HasOtherRun() || IsEmpty(span)) return false;
  const std::uint32_t ahead = span.first - OtherRun().next();
  if (ahead == 0 || aside_ != Aside::kNothing) return ahead == 0;
  return ahead <= Datagrams(kNear) && ahead < span.first - Run().next();
}

bool SequenceStream::TakeAside(Aside kind, const Numbered& numbered, const NumberSpan& span,
                               SequenceGaps* gaps) {
  const bool is_far = kind == Aside::kElsewhere && aside_ == kind;
  const std::uint32_t most = is_far ? LargestGap(numbered.time) : Datagrams(kNear);
  if (!HasOtherRun() || !ContinueAside(span, most)) {
    EndAside(gaps);
    aside_ = kind;
    other_hits_ = 1;
    other_gaps_ = {};
    OtherRun().Start(span);
  }
  other_taken_ = taken_;
  if (other_hits_ < (aside_ == Aside::kAgain ? kHitsAgain : kHitsOfARun)) return false;
  ChangeRun(numbered.time, gaps);
  return true;
}

// Takes what goes on in the other run, with at most so many missing in between, or comes late in
// it.
bool SequenceStream::ContinueAside(const NumberSpan& span, std::uint32_t most_missing) {
  SequenceRun& run = OtherRun();
  const std::uint32_t reach = Datagrams(kLongestDelay);
  if (span.first - run.next() <= most_missing) {
    Miss(run.Skip(span), &other_gaps_);
    if (!IsEmpty(span)) ++other_hits_;
    return true;
  }
  if (run.next() - span.first > reach) return false;
  if (const std::uint32_t ahead = run.start() - span.first; ahead > 0 && ahead <= reach) {
    Miss(run.Precede(span), &other_gaps_);
  } else {
    other_gaps_.came += run.Fill(span, reach);
  }
  return true;
}

// The run at hand goes on, so what stands aside is none of it.
void SequenceStream::EndAside(SequenceGaps* gaps) {
  if (aside_ == Aside::kElsewhere) ++gaps->jumps;
  if (aside_ == Aside::kAgain) other_hits_ = 0;
  aside_ = Aside::kNothing;
}

// The other run has proved to be one. Where nothing has come since of the run at hand, the stream
// has moved; otherwise it has two that come in turns.
void SequenceStream::ChangeRun(Timestamp time, SequenceGaps* gaps) {
  gaps->missing += other_gaps_.missing;
  gaps->came += other_gaps_.came;
  gaps->gaps += other_gaps_.gaps;
  other_gaps_ = {};
  SequenceRun& other = OtherRun();
  const Aside aside = std::exchange(aside_, Aside::kNothing);
  if (aside == Aside::kElsewhere && other.start() - Run().next() <= LargestGap(time)) {
    Miss(Run().Append(other), gaps);
    other_hits_ = 0;
    return;
  }
  if (aside != Aside::kNothing) {
    const bool is_anew = aside == Aside::kAgain || other.start() < Run().next();
    ++(is_anew ? gaps->restarts : gaps->jumps);
  }
  // One more there, and the stream is back where it was; but it does not fall back once more.
  const bool is_overtaken =
      aside == Aside::kNothing && other.next() - Run().next() <= Datagrams(kLongestDelay);
  other_hits_ = is_overtaken ? 0 : kHitsOfARun - 1;
  current_ ^= 1U;
  ++moves_;
  other_taken_ = taken_;
}

// The units of so many datagrams.
std::uint32_t SequenceStream::Datagrams(std::uint32_t count) const {
  return std::min(count * std::min(step_, 1U << 16), kLargestGap);
}

std::uint32_t SequenceStream::LargestGap(Timestamp time) const {
  double largest = static_cast<double>(Datagrams(kPlausible)) + static_cast<double>(units_ / kPart);
  if (last_time_ > first_time_ && time > last_time_) {
    const double rate = static_cast<double>(units_) / static_cast<double>(last_time_ - first_time_);
    largest += kFaster * rate * static_cast<double>(time - last_time_);
  }
  return static_cast<std::uint32_t>(std::min(largest, static_cast<double>(kLargestGap)));
}

}  // namespace flow::host
