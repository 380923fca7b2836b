// The protocol handler of sFlow: claims the datagrams of its UDP port.
#pragma once

#include "plugin/arbo_object.h"
#include "plugin/plugin_interfaces.h"

// The identifier of the sFlow protocol, by which the host brings handler and meter together.
inline constexpr IID kProtocolSFlow = MakeGuid("462919DD-EE84-497C-AC6F-05D1162BCC5B");

class CPISFlow : public CArboObjectRootEx<CArboSingleThreadModel>,
                 public IOmbrelPlugin,
                 public IOmbrelProtHandler,
                 public IOmbrelAccessPointClient,
                 public IArboClassFactory {
 public:
  static const InterfaceMapEntry* GetInterfaceMap();

  // IOmbrelPlugin
  Status AttachSite(IOmbrelContainer* site) override;
  Status DetachSite() override;
  Status GetPluginID(char** name, char** description, char** vendor, unsigned int* versionMajor,
                     unsigned int* versionMinor) override;

  // IOmbrelProtHandler
  Status GetProtID(IID* protocol, char** name) override;
  Status GenerateParse(IOmbrelProtData* data, DISPOSITION_CODE_T* disposition,
                       IOmbrelParseContext* context) override;

  // IOmbrelAccessPointClient
  Status GetPrefAPHosts(unsigned short* count, ACCPT_T** table) override;
  Status GetAPClientProtID(IID* protocol) override;
  Status SetupFreeAP(IOmbrelProtData* data, bool* result) override;

 private:
  IOmbrelContainer* site_ = nullptr;
};
