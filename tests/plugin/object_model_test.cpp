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

// Every interface pointer of an object leads to every other, under one reference count.
TEST_F(ObjectModel, AnyInterfaceLeadsToAnyOther) {
  ProbeObject* object = nullptr;
  ASSERT_EQ(ProbeObject::CreateInstance(&object), kStatusOk);
  const struct {
    const char* name;
    const IID& iid;
    IArboUnknown* pointer;
  } interfaces[] = {
      {"IArboUnknown", IID_IArboUnknown, static_cast<IOmbrelPlugin*>(object)},
      {"IOmbrelPlugin", IID_IOmbrelPlugin, static_cast<IOmbrelPlugin*>(object)},
      {"IOmbrelSimpleCounter", IID_IOmbrelSimpleCounter,
       static_cast<IOmbrelSimpleCounter*>(object)},
      {"IArboClassFactory", IID_IArboClassFactory, static_cast<IArboClassFactory*>(object)},
  };
  object->AddRef();
  for (const auto& from : interfaces) {
    for (const auto& to : interfaces) {
      SCOPED_TRACE(std::string(from.name) + " -> " + to.name);
      void* found = nullptr;
      ASSERT_EQ(from.pointer->QueryInterface(to.iid, &found), kStatusOk);
      EXPECT_EQ(found, to.pointer);
      EXPECT_EQ(to.pointer->Release(), 1u) << "the query adds one reference to the shared count";
    }
  }
  object->Release();
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

TEST_F(ObjectModel, FactoryMakesIndependentObjectsOfCountOne) {
  IArboUnknown* const maker = NewProbe();
  void* found = nullptr;
  ASSERT_EQ(maker->QueryInterface(IID_IArboClassFactory, &found), kStatusOk);
  auto* const factory = static_cast<IArboClassFactory*>(found);
  EXPECT_EQ(factory->NewInstance(nullptr), kStatusNullOutput);

  IArboUnknown* first = nullptr;
  IArboUnknown* second = nullptr;
  ASSERT_EQ(factory->NewInstance(&first), kStatusOk);
  ASSERT_EQ(factory->NewInstance(&second), kStatusOk);
  EXPECT_NE(first, second);
  EXPECT_NE(first, maker);

  factory->Release();
  EXPECT_EQ(maker->Release(), 0u) << "its products hold no reference on a factory";
  EXPECT_EQ(Probe::living, 2);
  EXPECT_EQ(first->Release(), 0u);
  EXPECT_EQ(second->Release(), 0u);
  EXPECT_EQ(Probe::destroyed, 3);
}

}  // namespace
}  // namespace flow::test
