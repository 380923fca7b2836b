// SPDX-License-Identifier: Apache-2.0
// A plug-in small enough to know by heart: one protocol, one meter, one counter group. What the
// meter does is chosen by the first letter of a datagram.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "plugin/component.h"
#include "plugin/module.h"

namespace {

constexpr IID kProtocol = MakeGuid("11111111-0000-0000-0000-000000000001");
constexpr CLSID kHandlerClass = MakeGuid("11111111-0000-0000-0000-000000000002");
constexpr CLSID kMeterClass = MakeGuid("11111111-0000-0000-0000-000000000003");
constexpr CLSID kGroupClass = MakeGuid("11111111-0000-0000-0000-000000000004");
constexpr GUID kGroup = MakeGuid("11111111-0000-0000-0000-000000000005");
constexpr GUID kHosts = MakeGuid("4CD742B1-C1CA-4708-BE78-0FCA2EB01A86");
constexpr GUID kFlows = MakeGuid("99A78737-4B41-4387-8F31-8077DB917336");
constexpr char kOtherFlow[] =
    "06C:0A.00.00.03:p-C738_0A.00.00.02:p-0050_00.00.00.00_00000000_00000000";
constexpr char kFlow[] = "06C:0A.00.00.01:p-C738_0A.00.00.02:p-0050_00.00.00.00_00000000_00000000";

class FakeHandler : public CArboObjectRootEx<CArboSingleThreadModel>,
                    public IOmbrelPlugin,
                    public IOmbrelProtHandler,
                    public IOmbrelAccessPointClient,
                    public IArboClassFactory {
 public:
  static const InterfaceMapEntry* GetInterfaceMap() {
    static const InterfaceMapEntry map[] = {
        {&IID_IOmbrelPlugin, InterfaceDistance<FakeHandler, IOmbrelPlugin>()},
        {&IID_IOmbrelProtHandler, InterfaceDistance<FakeHandler, IOmbrelProtHandler>()},
        {&IID_IOmbrelAccessPointClient, InterfaceDistance<FakeHandler, IOmbrelAccessPointClient>()},
        {&IID_IArboClassFactory, InterfaceDistance<FakeHandler, IArboClassFactory>()},
        {nullptr, 0}};
    return map;
  }
  Status AttachSite(IOmbrelContainer*) override { return kStatusOk; }
  Status DetachSite() override { return kStatusOk; }
  Status GetPluginID(char** name, char** description, char** vendor, unsigned int* major,
                     unsigned int* minor) override {
    return AnswerPluginID({"Fake Handler", "Claims"}, name, description, vendor, major, minor);
  }
  Status GetProtID(IID* protocol, char** name) override {
    *protocol = kProtocol;
    *name = NewText("Fake");
    return kStatusOk;
  }
  Status GenerateParse(IOmbrelProtData* data, DISPOSITION_CODE_T* disposition,
                       IOmbrelParseContext* context) override {
    Status buffer_status = kStatusOk;
    return ClaimDatagram(data, disposition, context, &buffer_status);
  }
  Status GetPrefAPHosts(unsigned short* count, ACCPT_T** table) override {
    static ACCPT_T ports[] = {{0, 7777, 0, &UPID_UDP}};
    *count = 1;
    *table = ports;
    return kStatusOk;
  }
  Status GetAPClientProtID(IID* protocol) override {
    *protocol = kProtocol;
    return kStatusOk;
  }
  Status SetupFreeAP(IOmbrelProtData*, bool*) override { return kStatusNotSupported; }
};

class FakeMeter : public CArboObjectRootEx<CArboSingleThreadModel>,
                  public IOmbrelPlugin,
                  public IOmbrelSimpleCounter,
                  public IOmbrelChannelListener,
                  public IArboClassFactory {
 public:
  static const InterfaceMapEntry* GetInterfaceMap() {
    static const InterfaceMapEntry map[] = {
        {&IID_IOmbrelPlugin, InterfaceDistance<FakeMeter, IOmbrelPlugin>()},
        {&IID_IOmbrelSimpleCounter, InterfaceDistance<FakeMeter, IOmbrelSimpleCounter>()},
        {&IID_IOmbrelChannelListener, InterfaceDistance<FakeMeter, IOmbrelChannelListener>()},
        {&IID_IArboClassFactory, InterfaceDistance<FakeMeter, IArboClassFactory>()},
        {nullptr, 0}};
    return map;
  }

  // The policy must be there; a policy of the text "refuse" makes the meter refuse.
  Status AttachSite(IOmbrelContainer* site) override {
    site_ = site;
    char* path = nullptr;
    if (site->PreparePluginConfigFile(kMeterClass, "NetflowCounterPolicy.xml", &path) !=
        kStatusOk) {
      return kStatusFailed;
    }
    char text[8] = "";
    FILE* const file = std::fopen(path, "r");
    delete[] path;
    if (file == nullptr) return kStatusFailed;
    const bool refuse =
        std::fgets(text, sizeof(text), file) != nullptr && std::strncmp(text, "refuse", 6) == 0;
    std::fclose(file);
    if (refuse) site->Log(kLogError, "the policy says no");
    return refuse ? kStatusFailed : kStatusOk;
  }
  Status DetachSite() override { return kStatusOk; }
  Status GetPluginID(char** name, char** description, char** vendor, unsigned int* major,
                     unsigned int* minor) override {
    return AnswerPluginID({"Fake Meter", "Counts"}, name, description, vendor, major, minor);
  }
  Status GetAttachmentProtID(IID* protocol) override {
    *protocol = kProtocol;
    return kStatusOk;
  }
  Status IsFlowCounter(bool* isFlow) override {
    *isFlow = true;
    return kStatusOk;
  }
  Status OnChannelMessage(const IID&, unsigned int, void*) override {
    site_->Log(kLogWarning, "a neighbour has spoken");
    return kStatusOk;
  }
  Status FlushDeferredMessages() override { return kStatusNotSupported; }
  Status SetDeferredMode(bool) override { return kStatusNotSupported; }

  Status Count(IOmbrelStatsEngine* engine, IOmbrelProtData* data) override {
    const std::uint8_t* bytes = nullptr;
    std::uint32_t length = 0;
    data->GetBuffer(&bytes, &length);
    switch (bytes[length - 1]) {
      case 'E':  // later
        WaitForGate();
        [[fallthrough]];
      case 'B':  // a policy that cannot be read any more
        std::puts("XML Parsing error");
        std::exit(255);
      case 'P': {
        char message[30] = {};
        engine->PostChannelMessage(CHANNELID_NETFLOW_TEMPLATES, kMeterClass, sizeof(message),
                                   message);
        return kStatusOk;
      }
      case 'F':
        engine->UpdateFlowCounter(kFlows, kOtherFlow, 0, length);
        CountOne(engine, length);
        return kStatusOk;
      case 'L':
        engine->SetKeyAttributes(kHosts, "0A.00.00.01", "say \"hello\"", "");
        CountOne(engine, length);
        return kStatusOk;
      case 'R':
        return kStatusFailed;
      case 'G':
        std::ofstream{std::getenv("FAKE_PLUGIN_GATE")};
        CountOne(engine, length);
        return kStatusOk;
      case 'W':
        WaitForGate();
        CountOne(engine, length);
        return kStatusOk;
      default:
        CountOne(engine, length);
        return kStatusOk;
    }
  }

 private:
  static void WaitForGate() {
    const char* const gate = std::getenv("FAKE_PLUGIN_GATE");
    while (gate != nullptr && !std::filesystem::exists(gate)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  static void CountOne(IOmbrelStatsEngine* engine, std::uint64_t bytes) {
    engine->MarkRecord();
    engine->UpdateCounter2(kHosts, 11, "0A.00.00.01", 0, bytes, 3, 1);
    engine->UpdateCounter(kGroup, "a\x1b[31mb", 0, 1);
    engine->UpdateFlowCounter(kFlows, kFlow, 0, bytes);
    engine->UpdateFlowVolume(kFlow, bytes, 0, 1, 0);
  }

  IOmbrelContainer* site_ = nullptr;
};

class FakeGroup : public CArboObjectRootEx<CArboSingleThreadModel>,
                  public IOmbrelPlugin,
                  public IOmbrelCounterGroupHost,
                  public IArboClassFactory {
 public:
  static const InterfaceMapEntry* GetInterfaceMap() {
    static const InterfaceMapEntry map[] = {
        {&IID_IOmbrelPlugin, InterfaceDistance<FakeGroup, IOmbrelPlugin>()},
        {&IID_IOmbrelCounterGroupHost, InterfaceDistance<FakeGroup, IOmbrelCounterGroupHost>()},
        {&IID_IArboClassFactory, InterfaceDistance<FakeGroup, IArboClassFactory>()},
        {nullptr, 0}};
    return map;
  }
  Status AttachSite(IOmbrelContainer*) override { return kStatusNotSupported; }
  Status DetachSite() override { return kStatusNotSupported; }
  Status GetPluginID(char** name, char** description, char** vendor, unsigned int* major,
                     unsigned int* minor) override {
    return AnswerPluginID({"Fake Group", "Describes"}, name, description, vendor, major, minor);
  }
  Status get_GUID(IID* out) override { return Give(out, kGroup); }
  Status get_Name(char** out) override { return Give(out, NewText("Fakes")); }
  Status get_Description(char** out) override { return Give(out, NewText("Things made up")); }
  Status get_EnableTopN(bool* out) override { return Give(out, true); }
  Status get_TopNCount(unsigned short* out) override {
    return Give(out, static_cast<unsigned short>(7));
  }
  Status get_BucketSizeMS(unsigned int* out) override { return Give(out, 60000U); }
  Status get_TrackHiWater(unsigned int* out) override { return Give(out, 500U); }
  Status get_TrackLoWater(unsigned int* out) override { return Give(out, 100U); }
  Status GetVariableDefs(unsigned short* count, VARDEFS_T** definitions) override {
    static VARDEFS_T meters[] = {{0, 4, 50, "Ups", "Made Up", "Ups"}};
    *count = 1;
    return Give(definitions, meters);
  }
  Status LoadInitialData(IOmbrelContainer*) override { return kStatusNotSupported; }
  Status get_TrafTableName(char**) override { return kStatusNotSupported; }

 private:
  template <class To, class From>
  static Status Give(To* out, From value) {
    *out = value;
    return kStatusOk;
  }
};

CArboObject<COmbrelModule>* g_module = nullptr;

template <class Component>
void Register(const CLSID& clsid) {
  CArboObject<Component>* object = nullptr;
  CArboObject<Component>::CreateInstance(&object);
  void* unknown = nullptr;
  object->QueryInterface(IID_IArboUnknown, &unknown);
  auto* const component = static_cast<IArboUnknown*>(unknown);
  g_module->RegisterModule(clsid, component);
  component->Release();
}

}  // namespace

extern "C" FLOW_EXPORT int SqPIInit() {
  CArboObject<COmbrelModule>::CreateInstance(&g_module);
  Register<FakeHandler>(kHandlerClass);
  Register<FakeMeter>(kMeterClass);
  Register<FakeGroup>(kGroupClass);
  return 0;
}

extern "C" FLOW_EXPORT int SqPIGetPackage(IOmbrelComponentPackage** out) {
  void* package = nullptr;
  g_module->QueryInterface(IID_IOmbrelComponentPackage, &package);
  *out = static_cast<IOmbrelComponentPackage*>(package);
  return 0;
}

extern "C" FLOW_EXPORT void SqPIFini() {
  g_module->UnregisterAll();
  delete g_module;
}
