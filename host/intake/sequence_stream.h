// SPDX-License-Identifier: Apache-2.0
// One numbered stream: an exporter's datagrams of one domain, or an agent's samples of one source.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

#include "host/base/timestamp.h"
#include "host/intake/sequence_run.h"

namespace flow::host {

// What a numbered stream shows.
struct SequenceGaps {
  std::uint64_t missing = 0;   // units that numbers were left out for
  std::uint64_t came = 0;      // of these, those that came late
  std::uint64_t here = 0;      // of these, those that this host lost, about
  std::uint64_t gaps = 0;      // how often numbers were left out
  std::uint64_t late = 0;      // datagrams or samples that came behind later ones, or twice
  std::uint64_t restarts = 0;  // numbers that began anew, and went on from there
  std::uint64_t jumps = 0;     // numbers further ahead or behind than the stream can have gone

  // Lost on the way.
  [[nodiscard]] std::uint64_t Lost() const { return missing - std::min(missing, came + here); }
  void Add(const SequenceGaps& other);
};

// A number as it came.
struct Numbered {
  std::uint32_t number = 0;
  std::optional<std::uint32_t> units;  // that go with it, where that is known
  Timestamp time = 0;
};

// The numbers should count the units that went before; some exporters count those that go with the
// number as well, and some count messages. The first of these that explains a number is taken for
// granted; once it was the only one to do so, until another explains two in a row.
//
// A number that is not near the others begins a run of its own beside theirs. Only when some more
// follow it there the stream has moved: the exporter has started anew, or very much was lost. A
// stranger who makes up a number moves nothing, and the numbers go on where they were.
class SequenceStream {
 public:
  void Take(const Numbered& numbered, SequenceGaps* gaps);

  [[nodiscard]] bool is_started() const { return is_started_; }
  // The numbers of the run that the stream is in, and how often it has changed to another one, or
  // to another way of counting.
  [[nodiscard]] std::uint32_t start() const { return runs_[current_].start(); }
  [[nodiscard]] std::uint32_t next() const { return runs_[current_].next(); }
  [[nodiscard]] std::uint32_t moves() const { return moves_; }

  // Where it is noted: the user's own.
  struct Mark {
    std::uint32_t turn = 0;
    std::uint32_t index = 0;
  };
  Mark& mark() { return mark_; }

 private:
  enum class Counting : std::uint8_t { kBefore, kIncluded, kMessages };
  // What has come since the last number of the run at hand.
  enum class Aside : std::uint8_t { kNothing, kAgain, kElsewhere };

  // The run that the stream is in, and beside it the one that it was in before or may be in now.
  [[nodiscard]] SequenceRun& Run() { return runs_[current_]; }
  [[nodiscard]] SequenceRun& OtherRun() { return runs_[current_ ^ 1U]; }

  [[nodiscard]] NumberSpan SpanOf(const Numbered& numbered) const;
  [[nodiscard]] std::optional<std::uint32_t> Expected(Counting counting,
                                                      std::optional<std::uint32_t> units) const;
  // Another counting than the one at hand that explains the number.
  [[nodiscard]] std::optional<Counting> Explanation(const Numbered& numbered) const;
  void ChangeCounting(Counting counting, const Numbered& numbered, SequenceGaps* gaps);

  // These take a number that is not the expected one; true when the stream goes on behind it.
  bool TakeUnexpected(const Numbered& numbered, const NumberSpan& span, SequenceGaps* gaps);
  bool Place(const Numbered& numbered, const NumberSpan& span, SequenceGaps* gaps);
  bool TakeAside(Aside kind, const Numbered& numbered, const NumberSpan& span, SequenceGaps* gaps);

  [[nodiscard]] bool HasOtherRun() const;
  bool FollowsAside(const NumberSpan& span);
  bool ContinueAside(const NumberSpan& span, std::uint32_t most_missing);
  void EndAside(SequenceGaps* gaps);
  void ChangeRun(Timestamp time, SequenceGaps* gaps);
  void NoteTaken(const Numbered& numbered, const NumberSpan& span);

  [[nodiscard]] std::uint32_t Datagrams(std::uint32_t count) const;
  [[nodiscard]] std::uint32_t LargestGap(Timestamp time) const;

  // What every number needs.
  bool is_started_ = false;
  bool is_confirmed_ = false;  // no other explains what counting_ has explained
  Counting counting_ = Counting::kBefore;
  Aside aside_ = Aside::kNothing;
  std::uint8_t current_ = 0;
  std::uint8_t other_hits_ = 0;        // numbers that went on in the other run; 0: there is none
  std::optional<Counting> candidate_;  // explains the last number, where counting_ does not
  std::uint32_t last_ = 0;
  std::optional<std::uint32_t> last_units_;
  std::uint32_t step_ = 1;   // units that go with a number, about the most
  std::uint32_t taken_ = 0;  // numbers, modulo 2^32
  std::uint32_t moves_ = 0;
  Mark mark_;
  std::uint64_t units_ = 0;  // that came
  Timestamp first_time_ = 0;
  Timestamp last_time_ = 0;
  std::array<SequenceRun, 2> runs_;

  // What only odd ones need.
  NumberSpan candidate_gap_;       // what counting_ made of it
  std::uint32_t other_taken_ = 0;  // when the other run was last gone on with
  struct {
    std::uint32_t missing = 0;
    std::uint32_t came = 0;
    std::uint32_t gaps = 0;
  } other_gaps_;  // which count when the stream moves there
};

}  // namespace flow::host
