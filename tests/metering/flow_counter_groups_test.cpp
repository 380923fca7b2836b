// SPDX-License-Identifier: Apache-2.0
// What the two groups answer is seen from outside by the integration tests; here is how they answer
// when something is missing.

#include "metering/flow_counter_groups.h"

#include <gtest/gtest.h>

#include "tests/support/component.h"

namespace flow::test {
namespace {

template <class Group>
class CounterGroups : public testing::Test {};
using Groups = testing::Types<CPICGNetflowGen, CPICGNetflowIntf>;
TYPED_TEST_SUITE(CounterGroups, Groups);

TYPED_TEST(CounterGroups, RefuseNullOutputs) {
  ComponentOf<TypeParam> group;
  EXPECT_EQ(group->get_GUID(nullptr), kStatusNullOutput);
  EXPECT_EQ(group->get_Name(nullptr), kStatusNullOutput);
  EXPECT_EQ(group->get_Description(nullptr), kStatusNullOutput);
  EXPECT_EQ(group->get_EnableTopN(nullptr), kStatusNullOutput);
  EXPECT_EQ(group->get_TopNCount(nullptr), kStatusNullOutput);
  EXPECT_EQ(group->get_BucketSizeMS(nullptr), kStatusNullOutput);
  EXPECT_EQ(group->get_TrackHiWater(nullptr), kStatusNullOutput);
  EXPECT_EQ(group->get_TrackLoWater(nullptr), kStatusNullOutput);
  unsigned short count = 77;
  VARDEFS_T* meters = nullptr;
  EXPECT_EQ(group->GetVariableDefs(nullptr, &meters), kStatusNullOutput);
  EXPECT_EQ(group->GetVariableDefs(&count, nullptr), kStatusNullOutput);
  EXPECT_EQ(count, 77);
  EXPECT_EQ(meters, nullptr);
}

}  // namespace
}  // namespace flow::test
