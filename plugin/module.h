// SPDX-License-Identifier: Apache-2.0
// The module: the table of the components that the library offers.
#pragma once

#include <vector>

#include "flowhandlers/plugin_interfaces.h"
#include "plugin/arbo_object.h"

class COmbrelModule : public CArboObjectRootEx<CArboSingleThreadModel>,
                      public IOmbrelComponentPackage {
 public:
  struct COMPTABLE_T {
    GUID clsid;
    IArboClassFactory* factory;  // the table holds one reference
  };

  static const InterfaceMapEntry* GetInterfaceMap() {
    return InterfaceMapOf<COmbrelModule, IOmbrelComponentPackage>();
  }

  Status GetComponentCount(unsigned int* count) override;
  Status GetComponentCLSID(unsigned int index, IID* clsid) override;
  Status GetClassFactory(const IID& clsid, IArboClassFactory** factory) override;

  // RegisterModule appends the object's class factory under clsid. An object that is no factory is
  // refused with kStatusNoInterface.
  Status RegisterModule(const IID& clsid, IArboUnknown* object);

  // UnregisterModule gives the first factory of that class back and closes the gap. An unknown
  // class is a success.
  Status UnregisterModule(const IID& clsid);

  // UnregisterAll destroys every factory, whoever still holds references. The entries stay,
  // unusable, until the module goes.
  Status UnregisterAll();

 private:
  std::vector<COMPTABLE_T>::iterator Find(const IID& clsid);

  std::vector<COMPTABLE_T> table_;
};
