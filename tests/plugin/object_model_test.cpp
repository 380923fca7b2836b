// SPDX-License-Identifier: Apache-2.0
// Reference counts, interface queries and factories of CArboObject<T>.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "tests/plugin/probe.h"

namespace flow::test {
namespace {

using testing::Each;

class ObjectModel : public testing::Test {
 protected:
  void SetUp() override { Probe::Reset(); }
  void TearDown() override { EXPECT_EQ(Probe::living, 0) << "an object was left over"; }
};

TEST_F(ObjectModel, CreateInstanceStartsAtCountZeroInZeroedStorage) {
  EXPECT_EQ(ProbeObject::CreateInstance(nullptr), kStatusNullOutput);

  ProbeObject* object = nullptr;
  ASSERT_EQ(ProbeObject::CreateInstance(&object), kStatusOk);
  EXPECT_THAT(object->never_set, Each(0u));
  EXPECT_EQ(object->set_by_constructor, 7);
  EXPECT_EQ(object->AddRef(), 1u);
  EXPECT_EQ(object->AddRef(), 2u);
  EXPECT_EQ(object->Release(), 1u);
  EXPECT_EQ(Probe::destroyed, 0);
  EXPECT_EQ(object->Release(), 0u);
  EXPECT_EQ(Probe::destroyed, 1);
}

// A member that takes and gives back a reference on its way out must not bring the count to 0
// again.
TEST_F(ObjectModel, CountIsOutOfReachDuringDestruction) {
  NewProbe()->Release();
  EXPECT_EQ(Probe::count_at_end, -500000);
}

TEST_F(ObjectModel, FailedAllocationLeavesNothing) {
  ProbeObject* object = nullptr;
  Probe::out_of_memory = true;
  EXPECT_THROW(ProbeObject::CreateInstance(&object), std::bad_alloc);
  EXPECT_EQ(object, nullptr);
}

TEST_F(ObjectModel, QueryForWhatIsNotOfferedGivesNull) {
  IArboUnknown* const object = NewProbe();
  EXPECT_EQ(object->QueryInterface(IID_IOmbrelPlugin, nullptr), kStatusNullOutput);

  int rubbish = 0;
  void* found = &rubbish;
  EXPECT_EQ(object->QueryInterface(IID_IOmbrelChannelListener, &found), kStatusNoInterface);
  EXPECT_EQ(found, nullptr);
  for (std::size_t byte = 0; byte < sizeof(IID); ++byte) {
    SCOPED_TRACE("identifier that differs in byte " + std::to_string(byte));
    unsigned char bytes[sizeof(IID)];
    std::memcpy(bytes, &IID_IOmbrelPlugin, sizeof bytes);
    bytes[byte] ^= 1;
    IID other;
    std::memcpy(&other, bytes, sizeof bytes);
    found = &rubbish;
    EXPECT_EQ(object->QueryInterface(other, &found), kStatusNoInterface);
    EXPECT_EQ(found, nullptr);
  }
  EXPECT_EQ(object->Release(), 0u) << "failed queries take no reference";
}

}  // namespace
}  // namespace flow::test
