// SPDX-License-Identifier: Apache-2.0
// The module's table of components.

#include "plugin/module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "tests/plugin/probe.h"

namespace flow::test {
namespace {

using testing::ElementsAre;

constexpr CLSID Class(std::uint32_t number) { return {number, 0, 0, {}}; }

// Offers no class factory.
struct Plain : IArboUnknown {
  std::uint32_t AddRef() override { return 2; }
  std::uint32_t Release() override { return 1; }
  Status QueryInterface(const IID& /*iid*/, void** out) override {
    *out = nullptr;
    return kStatusNoInterface;
  }
};

class ModuleTable : public testing::Test {
 protected:
  void SetUp() override {
    Probe::Reset();
    CArboObject<COmbrelModule>* module = nullptr;
    CArboObject<COmbrelModule>::CreateInstance(&module);
    module_.reset(module);
  }

  void TearDown() override { EXPECT_EQ(Probe::living, 0) << "a factory was left over"; }

  // Register enters a new probe, which then belongs to the table alone, and gives its pointer.
  IArboUnknown* Register(const CLSID& clsid) {
    IArboUnknown* const probe = NewProbe();
    EXPECT_EQ(module_->RegisterModule(clsid, probe), kStatusOk);
    EXPECT_EQ(probe->Release(), 1u) << "the table holds one reference";
    return probe;
  }

  std::vector<std::uint32_t> Listed() {
    unsigned int count = 0;
    EXPECT_EQ(module_->GetComponentCount(&count), kStatusOk);
    std::vector<std::uint32_t> classes;
    for (unsigned int i = 0; i < count; ++i) {
      CLSID clsid{};
      EXPECT_EQ(module_->GetComponentCLSID(i, &clsid), kStatusOk);
      classes.push_back(clsid.Data1);
    }
    return classes;
  }

  // Factory gives the factory of a class as its object's unknown interface; null when there is
  // none.
  IArboUnknown* Factory(const CLSID& clsid) {
    IArboClassFactory* factory = reinterpret_cast<IArboClassFactory*>(this);
    EXPECT_EQ(module_->GetClassFactory(clsid, &factory), kStatusOk);
    if (factory == nullptr) return nullptr;
    void* unknown = nullptr;
    EXPECT_EQ(factory->QueryInterface(IID_IArboUnknown, &unknown), kStatusOk);
    factory->Release();
    EXPECT_EQ(factory->Release(), 1u) << "the caller gets one reference";
    return static_cast<IArboUnknown*>(unknown);
  }

  std::unique_ptr<CArboObject<COmbrelModule>> module_;
};

TEST_F(ModuleTable, ListsInOrderOfRegistrationAndKeepsItWhenOneGoes) {
  EXPECT_THAT(Listed(), ElementsAre());
  for (const std::uint32_t number : {5u, 1u, 3u, 2u, 4u, 6u}) Register(Class(number));
  EXPECT_THAT(Listed(), ElementsAre(5, 1, 3, 2, 4, 6));

  EXPECT_EQ(module_->UnregisterModule(Class(3)), kStatusOk);
  EXPECT_EQ(Probe::destroyed, 1);
  EXPECT_EQ(module_->UnregisterModule(Class(3)), kStatusOk) << "an unknown class is a success";
  EXPECT_THAT(Listed(), ElementsAre(5, 1, 2, 4, 6));
  module_->UnregisterAll();
}

TEST_F(ModuleTable, FirstOfTwoWithOneClassIsFoundAndRemoved) {
  IArboUnknown* const first = Register(Class(1));
  Register(Class(2));
  IArboUnknown* const second = Register(Class(1));
  EXPECT_EQ(Factory(Class(1)), first);
  module_->UnregisterModule(Class(1));
  EXPECT_EQ(Factory(Class(1)), second);
  EXPECT_THAT(Listed(), ElementsAre(2, 1));
  module_->UnregisterAll();
}

TEST_F(ModuleTable, UnknownClassIsASuccessWithoutFactory) {
  Register(Class(1));
  EXPECT_EQ(Factory(CLSID{1, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}}), nullptr);
  EXPECT_EQ(Factory(CLSID{}), nullptr);
  module_->UnregisterAll();
}

TEST_F(ModuleTable, IndexIsTestedBeforeTheOutput) {
  Register(Class(1));
  CLSID clsid = Class(77);
  EXPECT_EQ(module_->GetComponentCLSID(1, &clsid), kStatusIndexRange);
  EXPECT_EQ(clsid.Data1, 77u);
  EXPECT_EQ(module_->GetComponentCLSID(1, nullptr), kStatusIndexRange);
  EXPECT_EQ(module_->GetComponentCLSID(0, nullptr), kStatusNullOutput);
  EXPECT_EQ(module_->GetClassFactory(Class(1), nullptr), kStatusNullOutput);
  module_->UnregisterAll();
}

TEST_F(ModuleTable, RefusesWhatIsNoFactory) {
  Plain plain;
  EXPECT_EQ(module_->RegisterModule(Class(1), &plain), kStatusNoInterface);
  EXPECT_THAT(Listed(), ElementsAre());
}

TEST_F(ModuleTable, UnregisterAllDestroysFactoriesWhoeverHoldsThem) {
  Register(Class(1));
  IArboUnknown* const held = Register(Class(2));
  held->AddRef();
  EXPECT_EQ(module_->UnregisterAll(), kStatusOk);
  EXPECT_EQ(Probe::destroyed, 2);
  EXPECT_THAT(Listed(), ElementsAre(1, 2)) << "the entries stay until the module goes";
}

TEST_F(ModuleTable, NewInstanceIsAnEmptyModule) {
  Register(Class(1));
  IArboUnknown* unknown = nullptr;
  ASSERT_EQ(module_->NewInstance(&unknown), kStatusOk);
  void* package = nullptr;
  ASSERT_EQ(unknown->QueryInterface(IID_IOmbrelComponentPackage, &package), kStatusOk);
  unsigned int count = 77;
  static_cast<IOmbrelComponentPackage*>(package)->GetComponentCount(&count);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(unknown->Release(), 1u);
  EXPECT_EQ(unknown->Release(), 0u);
  module_->UnregisterAll();
}

}  // namespace
}  // namespace flow::test
