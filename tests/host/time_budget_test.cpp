// SPDX-License-Identifier: Apache-2.0
// Exporters whose datagrams keep a meter busy.
#include "host/intake/time_budget.h"

#include <gtest/gtest.h>

namespace flow::host {
namespace {

using namespace std::chrono_literals;

TEST(TimeBudget, HoldsBackForTwentyTimesWhatWasSpent) {
  const IpAddress dear = IpAddress::Ipv4(1);
  const IpAddress honest = IpAddress::Ipv4(2);
  const struct {
    TimeBudget::Clock::duration took;
    TimeBudget::Clock::duration held;
  } rows[] = {{99ms, 0s}, {100ms, 10s}, {3s, 60s}, {48s, 600s}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.took.count());
    TimeBudget budget;
    TimeBudget::Clock::time_point now{};
    EXPECT_EQ(budget.Spend(dear, row.took, now).has_value(), row.held > 0s);
    EXPECT_FALSE(budget.IsHeldBack(honest, now));
    EXPECT_EQ(budget.IsHeldBack(dear, now + row.held - 1ms), row.held > 0s);
    EXPECT_FALSE(budget.IsHeldBack(dear, now + row.held));
  }
}

}  // namespace
}  // namespace flow::host
