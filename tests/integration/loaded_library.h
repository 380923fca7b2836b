// SPDX-License-Identifier: Apache-2.0
// The built library, loaded as a host loads it.
#pragma once

#include <string>

#include "tests/integration/foreign_abi.h"

namespace foreign {

struct Identifier {
  const char* name;
  const char* guid;
};

// Component classes in the order of the module's table.
inline constexpr Identifier kClasses[] = {
    {"CLSID_PI_NETFLOWMETER", "7CA09636-02D4-45E7-AA00-BE0D49B94E26"},
    {"CLSID_PI_NETFLOW", "CED041A0-EB30-4D8F-87A0-E82CFD85B7F1"},
    {"CLSID_PI_NETFLOWGEN", "86E049AD-0347-41C5-9B56-CCFAFCD59723"},
    {"CLSID_PI_NETFLOWINTF", "06F3B907-7E02-420E-853F-89A8F55C0F29"},
    {"CLSID_PI_SFLOWMETER", "819CEF8E-B6DB-431B-97D0-7DB2A5EA5392"},
    {"CLSID_PI_SFLOW", "90019992-EB30-4D8F-87A0-E82CFD85B7F1"},
};
enum Class { kNetflowMeter, kNetflow, kNetflowGen, kNetflowIntf, kSFlowMeter, kSFlow };

// Interfaces of the library.
inline constexpr Identifier kInterfaces[] = {
    {"IID_IArboUnknown", "ABA137E7-125E-48D0-8AC9-A7E3AD2F60FD"},
    {"IID_IArboClassFactory", "877789A9-125E-48D0-8AC9-A7E3AD2F60FD"},
    {"IID_IOmbrelPlugin", "5BA137E7-125E-48D0-8AC9-A7E3AD2F60FD"},
    {"IID_IOmbrelSimpleCounter", "CABBABA9-125E-48D0-8AC9-A7E3AD2F60FD"},
    {"IID_IOmbrelChannelListener", "CAA01100-7720-8389-01BB-81B0C1E098FF"},
    {"IID_IOmbrelProtHandler", "774737E7-125E-48D0-8AC9-A7E3AD2F60FD"},
    {"IID_IOmbrelAccessPointClient", "C8383837-125E-48D0-8AC9-A7E3AD2F60FD"},
    {"IID_IOmbrelCounterGroupHost", "343137E7-125E-48D0-8AC9-A7E3AD2F60FD"},
    {"IID_IOmbrelComponentPackage", "2BA137E7-125E-48D0-8AC9-A7E3AD2F60FD"},
};
enum Interface {
  kUnknown,
  kClassFactory,
  kPlugin,
  kSimpleCounter,
  kChannelListener,
  kProtHandler,
  kAccessPointClient,
  kCounterGroupHost,
  kComponentPackage
};

Guid GuidOf(Class component);
Guid GuidOf(Interface interface);

// Query gives an interface of the object, which then holds one reference more; null when it has not
// got it. A status that does not go with the pointer ends the program.
Object* Query(Object* object, Interface interface);

std::uint32_t Release(Object* object);

class Library {
 public:
  // Each step that fails ends the program with its own text.
  Library();
  // Finalises and unloads, unless Close has.
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  void* Symbol(const char* name) const;  // null when it is not exported

  // New makes a component through its factory: its unknown interface, reference count 1.
  Object* New(Class component);
  // NewAs is New for another of its interfaces, the only reference.
  Object* NewAs(Class component, Interface interface);

  // The table of components. The one reference on it is never given back: the module has no other,
  // and finalising destroys it whatever its count.
  Object* Package() const { return package_; }

  void Close();

  // Loaded tells whether the library is in the process at all.
  static bool Loaded();

 private:
  void* handle_;
  Object* package_ = nullptr;
};

}  // namespace foreign
