// SPDX-License-Identifier: Apache-2.0
#include "bench/checked_workload.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "flowhandlers/counter_groups.h"

namespace flow::bench {
namespace {

void Require(bool holds, const char* what, const Workload& workload) {
  if (holds) return;
  std::fprintf(stderr, "%.*s: %s\n", static_cast<int>(workload.name.size()), workload.name.data(),
               what);
  std::exit(1);
}

}  // namespace

CheckedWorkload::CheckedWorkload(test::Component meter, std::string_view name,
                                 std::string_view policy)
    : workload_(MakeWorkload(name)),
      host_(std::move(meter),
            {.policy = PolicySettings(policy) + std::string(workload_.settings)}) {
  NullEngine nobody;
  host_.CountAll(&nobody, workload_.templates);
  host_.LogSiteCalls(&log_);
  Count(&log_);
  host_.LogSiteCalls(nullptr);
  Check();
}

void CheckedWorkload::Check() {
  TallyEngine counted;
  TallyEngine played;
  Count(&counted);
  Floor(&played);
  Require(counted.Digest() == played.Digest(), "the log is not what the meter does", workload_);
  Require(counted.Records() == workload_.metered, "not every record has been metered", workload_);
  Require(workload_.metered == 0 || counted.Items() > workload_.metered,
          "the records do not differ enough", workload_);
  Require(counted.Sum(COUNTERID_AGGREGATES, kTotalBandwidth.text, totals::kBytes) ==
              workload_.metered_bytes,
          "the total is not that of the traffic", workload_);
}

}  // namespace flow::bench
