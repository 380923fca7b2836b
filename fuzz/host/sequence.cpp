// SPDX-License-Identifier: Apache-2.0
// A run with datagrams, messages, edited policies and a clock that is set, through two hosts: one
// with a single lane that nothing happens to, and one with two lanes that learn from each other,
// whose meters are replaced, and which hand out what they have counted again and again. Both have
// counted the same in the end.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz/host/same_counts.h"
#include "fuzz/host/sequence.h"
#include "fuzz/host/world.h"
#include "util/bytes.h"

namespace flow::fuzz {
namespace {

constexpr std::size_t kMostSteps = 8;
constexpr std::uint8_t kFlowsInParts = 0x40;  // of the policy's byte

class Run {
 public:
  explicit Run(const Input& input) : has_sflow_(std::ranges::any_of(input.datagrams, IsSFlow)) {
    if ((input.policy & kFlowsInParts) != 0) busy_.HandOutFlows(2);
  }

  void Take(const Datagram& entry) {
    constexpr host::Timestamp kBetween = 1000;
    now_ += kBetween;
    if (IsStep(entry)) return TakeStep(static_cast<Step>(entry.exporter % kSteps), entry.payload);
    quiet_.Take(entry, now_);
    busy_.Take(entry, now_);
  }

  std::string End() {
    quiet_.Harvest();
    busy_.Harvest();
    return Difference(quiet_.counted(), busy_.counted(),
                      [this](std::string_view flow) { return busy_.HaveSeveralLanesMet(flow); });
  }

 private:
  void TakeStep(Step step, std::span<const std::uint8_t> payload) {
    switch (step) {
      case Step::kMessage:
      case Step::kDomainMessage:
        quiet_.Deliver(step == Step::kDomainMessage, payload);
        busy_.Deliver(step == Step::kDomainMessage, payload);
        return;
      case Step::kClock:
        return SetClock(payload);
      case Step::kReload:
        EditPolicy(payload.empty() ? 0 : payload[0]);
        quiet_.Reload(now_);
        busy_.Reload(now_);
        return;
      case Step::kHarvest:
        return busy_.Harvest();
      case Step::kReplaceMeters:
        return busy_.ReplaceMeters(now_);
    }
  }

  // From the first day of 1970 to somewhen in 2096.
  void SetClock(std::span<const std::uint8_t> payload) {
    std::int64_t seconds = 0;
    for (const std::uint8_t byte : payload.first(std::min<std::size_t>(payload.size(), 4))) {
      seconds = seconds << 8 | byte;
    }
    const auto step = static_cast<std::int32_t>(seconds);
    constexpr std::int64_t kMost = 4'000'000'000;
    now_ = std::clamp<std::int64_t>(now_ / host::kMicrosPerSecond + step, 1, kMost) *
           host::kMicrosPerSecond;
  }

  host::Timestamp now_ = 1'700'000'000 * host::kMicrosPerSecond;
  bool has_sflow_;
  World quiet_{1, has_sflow_, now_};
  World busy_{2, has_sflow_, now_};
};

}  // namespace
}  // namespace flow::fuzz

// Each run makes objects and frees them by the thousand: of freed ones little is kept, and of each
// where it came from no more than is told with a finding.
extern "C" const char* __asan_default_options() {
  return "quarantine_size_mb=4:malloc_context_size=2";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const flow::fuzz::Input input = flow::fuzz::Parse(data, size);
  flow::fuzz::UsePolicy(input.policy);
  flow::fuzz::Run run(input);
  const std::size_t steps = std::min(input.datagrams.size(), flow::fuzz::kMostSteps);
  for (std::size_t i = 0; i < steps; ++i) run.Take(input.datagrams[i]);
  const std::string difference = run.End();
  if (difference.empty()) return 0;
  std::fprintf(stderr, "broke a promise: both hosts have counted the same: %s\n",
               difference.c_str());
  std::abort();
}
