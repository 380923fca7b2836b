// SPDX-License-Identifier: Apache-2.0
// What all components do the same way: offer their interfaces, answer their identity, keep their
// site and hand out texts.
#pragma once

#include "flowhandlers/plugin_interfaces.h"
#include "plugin/arbo_object.h"

// NewText copies a text into a new[] array for the host, which frees it with delete[].
char* NewText(const char* text);

struct PluginIdentity {
  const char* name;
  const char* description;
};

// AnswerPluginID is GetPluginID for a component of that identity; vendor and version are the same
// for all.
Status AnswerPluginID(const PluginIdentity& identity, char** name, char** description,
                      char** vendor, unsigned int* versionMajor, unsigned int* versionMinor);

// The base of a component class T, which is IOmbrelPlugin first, then Interfaces, and its own class
// factory. The order is the object's layout. T::kIdentity tells who it is.
template <class T, class... Interfaces>
class CArboComponent : public CArboObjectRootEx<CArboSingleThreadModel>,
                       public IOmbrelPlugin,
                       public Interfaces...,
                       public IArboClassFactory {
 public:
  static const InterfaceMapEntry* GetInterfaceMap() {
    return InterfaceMapOf<T, IOmbrelPlugin, Interfaces..., IArboClassFactory>();
  }

  Status GetPluginID(char** name, char** description, char** vendor, unsigned int* versionMajor,
                     unsigned int* versionMinor) override {
    return AnswerPluginID(T::kIdentity, name, description, vendor, versionMajor, versionMinor);
  }
};

// The base of a component class that keeps its site: its AttachSite begins with KeepSite.
template <class T, class... Interfaces>
class CArboSitedComponent : public CArboComponent<T, Interfaces...> {
 public:
  Status DetachSite() override {
    site_ = nullptr;
    return kStatusOk;
  }

 protected:
  void KeepSite(IOmbrelContainer* site) {
    site_ = site;
    site_->AddRef();
  }

  IOmbrelContainer* site_ = nullptr;  // null while there is none
};

// ClaimDatagram is GenerateParse for a handler that looks at the length alone: datagrams shorter
// than 24 bytes, the size of a NetFlow v5 header, are left to others. *buffer_status receives the
// status with which the layer gave its bytes.
Status ClaimDatagram(IOmbrelProtData* data, DISPOSITION_CODE_T* disposition,
                     IOmbrelParseContext* context, Status* buffer_status);
