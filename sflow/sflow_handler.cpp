#include "sflow/sflow_handler.h"

#include <iterator>

#include "plugin/component.h"

namespace {

constexpr PluginIdentity kIdentity = {"SFLOW Protocol Handler",
                                      "Capable of dissection and handoff of the SFLOW protocol)"};

ACCPT_T g_access_points[] = {{0, 6343, 0, &UPID_UDP}};

}  // namespace

const InterfaceMapEntry* CPISFlow::GetInterfaceMap() {
  static const InterfaceMapEntry map[] = {
      {&IID_IOmbrelPlugin, InterfaceDistance<CPISFlow, IOmbrelPlugin>()},
      {&IID_IOmbrelProtHandler, InterfaceDistance<CPISFlow, IOmbrelProtHandler>()},
      {&IID_IOmbrelAccessPointClient, InterfaceDistance<CPISFlow, IOmbrelAccessPointClient>()},
      {&IID_IArboClassFactory, InterfaceDistance<CPISFlow, IArboClassFactory>()},
      {nullptr, 0}};
  return map;
}

Status CPISFlow::AttachSite(IOmbrelContainer* site) {
  site_ = site;
  site_->AddRef();
  site_->Log(kLogInformation, "Attached site to SFlow Protocol Plugin");
  return kStatusOk;
}

Status CPISFlow::DetachSite() {
  site_ = nullptr;
  return kStatusOk;
}

Status CPISFlow::GetPluginID(char** name, char** description, char** vendor,
                             unsigned int* versionMajor, unsigned int* versionMinor) {
  return AnswerPluginID(kIdentity, name, description, vendor, versionMajor, versionMinor);
}

Status CPISFlow::GetProtID(IID* protocol, char** name) {
  *protocol = kProtocolSFlow;
  *name = NewText("SFlow");
  return kStatusOk;
}

Status CPISFlow::GenerateParse(IOmbrelProtData* data, DISPOSITION_CODE_T* disposition,
                               IOmbrelParseContext* context) {
  Status buffer_status = kStatusOk;  // a datagram of the right size is claimed whatever it says
  return ClaimDatagram(data, disposition, context, &buffer_status);
}

Status CPISFlow::GetPrefAPHosts(unsigned short* count, ACCPT_T** table) {
  *count = static_cast<unsigned short>(std::size(g_access_points));
  *table = g_access_points;
  return kStatusOk;
}

Status CPISFlow::GetAPClientProtID(IID* protocol) {
  *protocol = kProtocolSFlow;
  return kStatusOk;
}

Status CPISFlow::SetupFreeAP(IOmbrelProtData* /*data*/, bool* /*result*/) {
  return kStatusNotSupported;
}
