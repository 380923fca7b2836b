// What the two groups answer is seen from outside by the integration tests; here is how they answer
// when something is missing, and that their meters are those that the metering updates.

#include "metering/flow_counter_groups.h"

#include <gtest/gtest.h>

#include <string>

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

// The name of the meter at an index.
template <class Group>
std::string MeterName(int index) {
  ComponentOf<Group> group;
  unsigned short count = 0;
  VARDEFS_T* meters = nullptr;
  group->GetVariableDefs(&count, &meters);
  return index < count && meters[index].varId == index ? meters[index].name : "none";
}

TEST(CounterGroupMeters, AreThoseThatRecordsUpdate) {
  EXPECT_EQ(MeterName<CPICGNetflowGen>(exporters::kBytes), "Total");
  EXPECT_EQ(MeterName<CPICGNetflowGen>(exporters::kExportBytes), "Flow Volume");
  EXPECT_EQ(MeterName<CPICGNetflowGen>(exporters::kRecords), "Flow Records");
  EXPECT_EQ(MeterName<CPICGNetflowIntf>(interfaces::kBytes), "Total");
  EXPECT_EQ(MeterName<CPICGNetflowIntf>(interfaces::kReceived), "Recv");
  EXPECT_EQ(MeterName<CPICGNetflowIntf>(interfaces::kTransmitted), "Xmit");
  EXPECT_EQ(MeterName<CPICGNetflowIntf>(interfaces::kFlows), "Flows");
}

}  // namespace
}  // namespace flow::test
