// The NetFlow protocol handler: tells the host on which UDP ports NetFlow and IPFIX arrive, and
// claims their datagrams.
#pragma once

#include "plugin/arbo_object.h"
#include "plugin/plugin_interfaces.h"

namespace flow {

// Names NetFlow and IPFIX among the host's protocols.
inline constexpr IID kNetflowProtocol = MakeGuid("CEF0774D-F1F3-40A6-8987-168BD69D9901");

}  // namespace flow

class CPINetflow : public CArboObjectRootEx<CArboSingleThreadModel>,
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
