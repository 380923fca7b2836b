#include "netflow/netflow_handler.h"

#include <iterator>

#include "plugin/component.h"
#include "plugin/site_log.h"

namespace {

constexpr PluginIdentity kIdentity = {"NetFlow Protocol Handler",
                                      "Capable of dissection and handoff of the NetFlow protocol)"};

ACCPT_T g_access_points[] = {
    {0, 2055, 0, &UPID_UDP}, {0, 2056, 0, &UPID_UDP}, {0, 2057, 0, &UPID_UDP},
    {0, 4739, 0, &UPID_UDP}, {0, 9500, 0, &UPID_UDP}, {0, 9993, 0, &UPID_UDP},
};

}  // namespace

const InterfaceMapEntry* CPINetflow::GetInterfaceMap() {
  static const InterfaceMapEntry map[] = {
      {&IID_IOmbrelPlugin, InterfaceDistance<CPINetflow, IOmbrelPlugin>()},
      {&IID_IOmbrelProtHandler, InterfaceDistance<CPINetflow, IOmbrelProtHandler>()},
      {&IID_IOmbrelAccessPointClient, InterfaceDistance<CPINetflow, IOmbrelAccessPointClient>()},
      {&IID_IArboClassFactory, InterfaceDistance<CPINetflow, IArboClassFactory>()},
      {nullptr, 0}};
  return map;
}

Status CPINetflow::AttachSite(IOmbrelContainer* site) {
  site_ = site;
  site_->AddRef();
  flow::Log(site_, kLogInformation, "Attached site to NetFlow Protocol Plugin");
  return kStatusOk;
}

Status CPINetflow::DetachSite() {
  site_ = nullptr;
  return kStatusOk;
}

Status CPINetflow::GetPluginID(char** name, char** description, char** vendor,
                               unsigned int* versionMajor, unsigned int* versionMinor) {
  return AnswerPluginID(kIdentity, name, description, vendor, versionMajor, versionMinor);
}

Status CPINetflow::GetProtID(IID* protocol, char** name) {
  *protocol = flow::kNetflowProtocol;
  *name = NewText("Netflow");
  return kStatusOk;
}

Status CPINetflow::GenerateParse(IOmbrelProtData* data, DISPOSITION_CODE_T* disposition,
                                 IOmbrelParseContext* context) {
  Status buffer_status = kStatusOk;
  const Status claimed = ClaimDatagram(data, disposition, context, &buffer_status);
  return claimed == kStatusOk ? buffer_status : claimed;
}

Status CPINetflow::GetPrefAPHosts(unsigned short* count, ACCPT_T** table) {
  *count = std::size(g_access_points);
  *table = g_access_points;
  return kStatusOk;
}

Status CPINetflow::GetAPClientProtID(IID* protocol) {
  *protocol = flow::kNetflowProtocol;
  return kStatusOk;
}

Status CPINetflow::SetupFreeAP(IOmbrelProtData*, bool*) { return kStatusNotSupported; }
