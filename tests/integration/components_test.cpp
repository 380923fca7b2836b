// SPDX-License-Identifier: Apache-2.0
// The six components through their tables of operations.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/integration/loaded_library.h"

namespace foreign {
namespace {

using testing::ElementsAre;

constexpr Status kNotSupported = 0x80000001;
constexpr Status kIndexRange = 0x80000003;
constexpr Status kNullOutput = 0x80000004;

const char* const kNetflowProtocol = "CEF0774D-F1F3-40A6-8987-168BD69D9901";
const char* const kSFlowProtocol = "462919DD-EE84-497C-AC6F-05D1162BCC5B";
const char* const kUdpLayer = "14D7AB53-CC51-47E9-8814-9C06AAE60189";

// An output with room behind it, to show that no more than its own bytes are written.
template <class T>
struct Guarded {
  Guarded() { std::memset(block, 0xA5, sizeof block); }
  T* out() { return reinterpret_cast<T*>(block); }
  T Value() const { return Field<T>(block, 0); }
  bool OnlyItsOwn() const {
    for (std::size_t i = sizeof(T); i < sizeof block; ++i) {
      if (block[i] != 0xA5) return false;
    }
    return true;
  }
  alignas(16) unsigned char block[sizeof(T) + 16];
};

// Text asks an operation for a text, which is the caller's to free.
std::string Text(Object* object, int place) {
  char* text = nullptr;
  EXPECT_EQ(Call(object, place, &text), 0u);
  std::string copy = text == nullptr ? "null" : text;
  delete[] text;
  return copy;
}

template <class T>
T Number(Object* object, int place) {
  Guarded<T> number;
  EXPECT_EQ(Call(object, place, number.out()), 0u);
  EXPECT_TRUE(number.OnlyItsOwn());
  return number.Value();
}

Guid Identity(Object* object, int place) { return Number<Guid>(object, place); }

class Components : public testing::Test {
 protected:
  // Interface makes a component and gives one of its interfaces, released with the test.
  Object* As(Class component, Interface interface) {
    owned_.push_back(library_.NewAs(component, interface));
    return owned_.back();
  }

  void TearDown() override {
    for (Object* const object : owned_) EXPECT_EQ(Release(object), 0u);
  }

  Library library_;
  std::vector<Object*> owned_;
};

TEST_F(Components, ModuleListsSixInOrder) {
  Object* const package = library_.Package();
  EXPECT_EQ(Number<std::uint32_t>(package, at::GetComponentCount), 6u);
  for (unsigned int i = 0; i < 6; ++i) {
    SCOPED_TRACE(kClasses[i].name);
    Guarded<Guid> clsid;
    EXPECT_EQ(Call(package, at::GetComponentCLSID, i, clsid.out()), 0u);
    EXPECT_EQ(clsid.Value(), ParseGuid(kClasses[i].guid));
    EXPECT_TRUE(clsid.OnlyItsOwn());
  }
  EXPECT_EQ(Call(package, at::GetComponentCLSID, 6u, nullptr), kIndexRange);
  EXPECT_EQ(Call(package, at::GetComponentCLSID, 0u, nullptr), kNullOutput);
}

TEST_F(Components, InitialisedTwiceTheyStandTwiceInTheTable) {
  reinterpret_cast<int (*)()>(library_.Symbol("SqPIInit"))();
  Object* const package = library_.Package();
  EXPECT_EQ(Number<std::uint32_t>(package, at::GetComponentCount), 12u);
}

TEST_F(Components, StandInANewTableAfterTheEnd) {
  reinterpret_cast<void (*)()>(library_.Symbol("SqPIFini"))();
  Object* package = nullptr;
  EXPECT_EQ(reinterpret_cast<int (*)(Object**)>(library_.Symbol("SqPIGetPackage"))(&package), 0);
  EXPECT_EQ(Number<std::uint32_t>(package, at::GetComponentCount), 6u);
}

TEST_F(Components, OfferTheirInterfacesFromEveryPointer) {
  const std::set<Interface> handler = {kUnknown, kPlugin, kProtHandler, kAccessPointClient,
                                       kClassFactory};
  const std::set<Interface> group = {kUnknown, kPlugin, kCounterGroupHost, kClassFactory};
  const std::map<Class, std::set<Interface>> offered = {
      {kNetflowMeter, {kUnknown, kPlugin, kSimpleCounter, kChannelListener, kClassFactory}},
      {kNetflow, handler},
      {kNetflowGen, group},
      {kNetflowIntf, group},
      {kSFlowMeter, {kUnknown, kPlugin, kSimpleCounter, kClassFactory}},
      {kSFlow, handler},
  };
  for (const auto& [component, interfaces] : offered) {
    Object* const object = As(component, kUnknown);
    EXPECT_EQ(Query(object, kPlugin), object) << "the first interface is the primary one";
    Release(object);
    for (const Interface from : interfaces) {
      Object* const start = Query(object, from);
      ASSERT_NE(start, nullptr) << kInterfaces[from].name;
      for (int to = kUnknown; to <= kComponentPackage; ++to) {
        SCOPED_TRACE(std::string(kClasses[component].name) + " from " + kInterfaces[from].name +
                     " to " + kInterfaces[to].name);
        Object* const found = Query(start, static_cast<Interface>(to));
        EXPECT_EQ(found != nullptr, interfaces.contains(static_cast<Interface>(to)));
        if (found == nullptr) continue;
        Object* const direct = Query(object, static_cast<Interface>(to));
        EXPECT_EQ(found, direct);
        Release(direct);
        EXPECT_EQ(Release(found), 2u) << "one count for the whole object";
      }
      Release(start);
    }
  }
}

TEST_F(Components, AnswerTheirIdentity) {
  const struct {
    Class component;
    const char* name;
    const char* description;
  } identities[] = {
      {kNetflowMeter, "Netflowv5 Meter", "Accounting based on Netflowv5 record content"},
      {kNetflow, "NetFlow Protocol Handler",
       "Capable of dissection and handoff of the NetFlow protocol)"},
      {kNetflowGen, "Netflow Sources Group", "Meters Netflow Source"},
      {kNetflowIntf, "Netflow Interfaces Group", "Meters Netflow Interfaces"},
      {kSFlowMeter, "SFlow  Meter", "Accounting based on SFLOW version 2,4,5 records"},
      {kSFlow, "SFLOW Protocol Handler",
       "Capable of dissection and handoff of the SFLOW protocol)"},
  };
  for (const auto& identity : identities) {
    SCOPED_TRACE(identity.name);
    Object* const plugin = As(identity.component, kPlugin);
    char* texts[3] = {};
    Guarded<unsigned int> major;
    Guarded<unsigned int> minor;
    EXPECT_EQ(Call(plugin, at::GetPluginID, &texts[0], &texts[1], &texts[2], major.out(),
                   static_cast<unsigned int*>(nullptr)),
              kNullOutput);
    EXPECT_THAT(texts, ElementsAre(nullptr, nullptr, nullptr));
    ASSERT_EQ(
        Call(plugin, at::GetPluginID, &texts[0], &texts[1], &texts[2], major.out(), minor.out()),
        0u);
    EXPECT_STREQ(texts[0], identity.name);
    EXPECT_STREQ(texts[1], identity.description);
    EXPECT_STREQ(texts[2], "Harrow Networks Ombrel Standard Plugin");
    EXPECT_EQ(major.Value(), 1u);
    EXPECT_EQ(minor.Value(), 0u);
    EXPECT_TRUE(major.OnlyItsOwn() && minor.OnlyItsOwn());
    for (char* const text : texts) delete[] text;
  }
}

TEST_F(Components, HandlersNameTheirProtocolAndPorts) {
  const struct {
    Class component;
    const char* protocol;
    const char* name;
    std::vector<std::uint16_t> ports;
  } handlers[] = {
      {kNetflow, kNetflowProtocol, "Netflow", {2055, 2056, 2057, 4739, 9500, 9993}},
      {kSFlow, kSFlowProtocol, "SFlow", {6343}},
  };
  for (const auto& expected : handlers) {
    SCOPED_TRACE(expected.name);
    Object* const handler = As(expected.component, kProtHandler);
    Guarded<Guid> protocol;
    char* name = nullptr;
    EXPECT_EQ(Call(handler, at::GetProtID, protocol.out(), &name), 0u);
    EXPECT_EQ(protocol.Value(), ParseGuid(expected.protocol));
    EXPECT_STREQ(name, expected.name);
    delete[] name;

    Object* const client = As(expected.component, kAccessPointClient);
    EXPECT_EQ(Identity(client, at::GetAPClientProtID), ParseGuid(expected.protocol));
    EXPECT_EQ(Call(client, at::SetupFreeAP, nullptr, nullptr), kNotSupported);

    // Entries of 16 bytes: the host's own field, port, padding, identifier of the carrying layer.
    Guarded<std::uint16_t> count;
    const char* table = nullptr;
    ASSERT_EQ(Call(client, at::GetPrefAPHosts, count.out(), &table), 0u);
    EXPECT_TRUE(count.OnlyItsOwn());
    std::vector<std::uint16_t> ports;
    for (const char* entry = table; entry < table + std::size_t{16} * count.Value(); entry += 16) {
      EXPECT_EQ(Field<std::uint32_t>(entry, 0), 0u);
      EXPECT_EQ(Field<std::uint16_t>(entry, 6), 0u);
      EXPECT_EQ(*Field<const Guid*>(entry, 8), ParseGuid(kUdpLayer));
      ports.push_back(Field<std::uint16_t>(entry, 4));
    }
    EXPECT_EQ(ports, expected.ports);
  }
}

TEST_F(Components, MetersNameTheirProtocol) {
  EXPECT_EQ(Identity(As(kNetflowMeter, kSimpleCounter), at::GetAttachmentProtID),
            ParseGuid(kNetflowProtocol));
  EXPECT_EQ(Identity(As(kSFlowMeter, kSimpleCounter), at::GetAttachmentProtID),
            ParseGuid(kSFlowProtocol));
  EXPECT_TRUE(Number<bool>(As(kNetflowMeter, kSimpleCounter), at::IsFlowCounter));
  EXPECT_TRUE(Number<bool>(As(kSFlowMeter, kSimpleCounter), at::IsFlowCounter));
  Object* const listener = As(kNetflowMeter, kChannelListener);
  EXPECT_EQ(Call(listener, at::FlushDeferredMessages), kNotSupported);
  EXPECT_EQ(Call(listener, at::SetDeferredMode, true), kNotSupported);
}

// Meter definitions of 40 bytes: index, type, parameter, units, name, other units.
std::vector<std::string> Meters(Object* group) {
  Guarded<std::uint16_t> count;
  const char* table = nullptr;
  EXPECT_EQ(Call(group, at::GetVariableDefs, count.out(), &table), 0u);
  EXPECT_TRUE(count.OnlyItsOwn());
  std::vector<std::string> meters;
  for (const char* entry = table; entry < table + std::size_t{40} * count.Value(); entry += 40) {
    meters.push_back(std::to_string(Field<std::int32_t>(entry, 0)) + " " +
                     std::to_string(Field<std::int32_t>(entry, 4)) + " " +
                     std::to_string(Field<std::int64_t>(entry, 8)) + " " +
                     Field<const char*>(entry, 16) + " " + Field<const char*>(entry, 24) + " " +
                     Field<const char*>(entry, 32));
  }
  return meters;
}

TEST_F(Components, GroupsDescribeThemselves) {
  const struct {
    Class component;
    const char* guid;
    const char* name;
    const char* description;
    std::uint16_t top;
    std::vector<std::string> meters;
  } groups[] = {
      {kNetflowGen,
       "2314BB8E-2BCC-4B86-8AA2-677E5554C0FE",
       "FlowGens",
       "Flow generator traffic",
       20,
       {"0 4 50 Bps Total Bps", "1 4 50 Bps Flow Volume Bps", "2 4 50 Rps Flow Records Rps"}},
      {kNetflowIntf,
       "C0B04CA7-95FA-44EF-8475-3835F3314761",
       "FlowIntfs",
       "Flow interface traffic",
       50,
       {"0 4 100 Bps Total Bps", "1 4 100 Bps Recv Bps", "2 4 100 Bps Xmit Bps",
        "3 2 100 Flw Flows Flw"}},
  };
  for (const auto& expected : groups) {
    SCOPED_TRACE(expected.name);
    Object* const group = As(expected.component, kCounterGroupHost);
    EXPECT_EQ(Identity(group, at::get_GUID), ParseGuid(expected.guid));
    EXPECT_EQ(Text(group, at::get_Name), expected.name);
    EXPECT_EQ(Text(group, at::get_Description), expected.description);
    EXPECT_TRUE(Number<bool>(group, at::get_EnableTopN));
    EXPECT_EQ(Number<std::uint16_t>(group, at::get_TopNCount), expected.top);
    EXPECT_EQ(Number<std::uint32_t>(group, at::get_BucketSizeMS), 60000u);
    EXPECT_EQ(Number<std::uint32_t>(group, at::get_TrackHiWater), 500u);
    EXPECT_EQ(Number<std::uint32_t>(group, at::get_TrackLoWater), 100u);
    EXPECT_EQ(Meters(group), expected.meters);
    EXPECT_EQ(Identity(group, at::get_ResolverGUID), Guid{});
    EXPECT_EQ(Call(group, at::LoadInitialData, nullptr), kNotSupported);
    char* untouched = nullptr;
    EXPECT_EQ(Call(group, at::get_TrafTableName, &untouched), kNotSupported);
    EXPECT_EQ(untouched, nullptr);
  }
}

// Every identifier is an exported constant of 16 bytes.
TEST_F(Components, IdentifiersAreExported) {
  std::vector<Identifier> identifiers(std::begin(kClasses), std::end(kClasses));
  identifiers.insert(identifiers.end(), std::begin(kInterfaces), std::end(kInterfaces));
  identifiers.insert(identifiers.end(),
                     {{"IID_IOmbrelContainer", "3BA137E7-125E-48D0-8AC9-A7E3AD2F60FD"},
                      {"IID_IOmbrelStatsEngine", "88822AAA-125E-48D0-8AC9-A7E3AD2F60FD"},
                      {"IID_IOmbrelProtData", "334237E7-125E-48D0-8AC9-A7E3AD2F60FD"},
                      {"IID_IOmbrelParseContext", "998937E7-125E-48D0-8AC9-A7E3AD2F60FD"},
                      {"CATID_ZephCtr", "4480F65A-D478-4D20-8497-FB720DC9AB22"},
                      {"CATID_ZephPlugIn", "8846F3B3-A61B-45AD-88D2-89F5BCF65873"}});
  for (const Identifier& identifier : identifiers) {
    SCOPED_TRACE(identifier.name);
    const void* const symbol = library_.Symbol(identifier.name);
    ASSERT_NE(symbol, nullptr);
    EXPECT_EQ(Field<Guid>(symbol, 0), ParseGuid(identifier.guid));
  }
}

}  // namespace
}  // namespace foreign
