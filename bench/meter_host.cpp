// SPDX-License-Identifier: Apache-2.0
#include "bench/meter_host.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "bench/call_log.h"

namespace flow::bench {
namespace {

[[noreturn]] void Stop(const char* text) {
  std::fprintf(stderr, "%s\n", text);
  std::exit(1);
}

template <class Function>
Function EntryPoint(void* library, const char* name) {
  void* const symbol = dlsym(library, name);
  if (symbol == nullptr) Stop(dlerror());
  return reinterpret_cast<Function>(symbol);
}

IOmbrelComponentPackage* LoadLibrary() {
  const char* const chosen = std::getenv("FLOW_LIBRARY");
  void* const library = dlopen(chosen != nullptr ? chosen : FLOW_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) Stop(dlerror());
  EntryPoint<int (*)()>(library, "SqPIInit")();
  IOmbrelComponentPackage* package = nullptr;
  EntryPoint<int (*)(IOmbrelComponentPackage**)>(library, "SqPIGetPackage")(&package);
  if (package == nullptr) Stop("the library has no package");
  return package;
}

char* NewText(const std::string& text) {
  char* const copy = new char[text.size() + 1];
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

// The objects are lent to the meter; it keeps none but the site, which outlives it.
template <class Interface>
class Lent : public Interface {
 public:
  std::uint32_t AddRef() override { return 1; }
  std::uint32_t Release() override { return 1; }
  Status QueryInterface(const IID&, void** out) override {
    *out = nullptr;
    return kStatusNoInterface;
  }
};

}  // namespace

test::Component NewMeterOfLibrary(MeterKind kind) {
  static IOmbrelComponentPackage* const package = LoadLibrary();
  IArboClassFactory* factory = nullptr;
  package->GetClassFactory(
      kind == MeterKind::kNetflow ? CLSID_PI_NETFLOWMETER : CLSID_PI_SFLOWMETER, &factory);
  IArboUnknown* meter = nullptr;
  if (factory == nullptr || factory->NewInstance(&meter) != kStatusOk) Stop("no such meter");
  factory->Release();
  return test::Component(meter);
}

class MeterHost::HostSite final : public Lent<IOmbrelContainer> {
 public:
  std::string policy_path;
  std::uint32_t more_networks = 0;
  CallLog* log = nullptr;

  Status Log(int, const char*) override { return kStatusOk; }
  Status GetDataDirectory(char** path) override { return None(path); }
  Status GetWorkDirectory(char** path) override { return None(path); }
  Status GetInstanceNumber(long* number) override {
    *number = 1;
    return kStatusOk;
  }
  Status PreparePluginConfigFile(const IID&, const char*, char** path) override {
    *path = NewText(policy_path);
    return kStatusOk;
  }
  Status IsHomeAddress(std::uint32_t address, bool* result) override {
    if (log != nullptr) log->AddHomeQuestion(address);
    *result = address >> 24 == 10;
    return kStatusOk;
  }
  Status GetHomeNetworks(int* count, std::uint32_t** addresses, std::uint32_t** masks) override {
    const std::uint32_t all = more_networks + 1;
    *count = static_cast<int>(all);
    *addresses = new std::uint32_t[all];
    *masks = new std::uint32_t[all];
    (*addresses)[0] = 0x0A000000;
    (*masks)[0] = 0xFF000000;
    for (std::uint32_t i = 1; i < all; ++i) {  // every other /24 from 172.16.0.0
      (*addresses)[i] = 0xAC100000 + 512 * i;
      (*masks)[i] = 0xFFFFFF00;
    }
    return kStatusOk;
  }

 private:
  static Status None(char** path) {
    *path = nullptr;
    return kStatusOk;
  }
};

class MeterHost::Layer final : public Lent<IOmbrelProtData> {
 public:
  std::span<const std::uint8_t> bytes;
  IOmbrelParseContext* context = nullptr;

  Status GetBuffer(const std::uint8_t** data, std::uint32_t* length) override {
    *data = bytes.data();
    *length = static_cast<std::uint32_t>(bytes.size());
    return kStatusOk;
  }
  Status GetParseContext(IOmbrelParseContext** out) override {
    *out = context;
    return kStatusOk;
  }
};

class MeterHost::Context final : public Lent<IOmbrelParseContext> {
 public:
  IOmbrelProtData* ip = nullptr;

  Status GetProtData(const IID&, IOmbrelProtData** data) override {
    *data = ip;
    return kStatusOk;
  }
  Status SetParsedLength(std::uint32_t) override { return kStatusOk; }
};

struct MeterHost::Parts {
  HostSite site;
  Context context;
  Layer ip;
  Layer payload;
};

MeterHost::MeterHost(test::Component meter, const MeterSettings& settings)
    : policy_(settings.policy),
      parts_(std::make_unique<Parts>()),
      meter_(std::move(meter)),
      counter_(meter_.As<IOmbrelSimpleCounter>()) {
  parts_->context.ip = &parts_->ip;
  parts_->payload.context = &parts_->context;
  parts_->site.policy_path = policy_.Path();
  parts_->site.more_networks = settings.home_networks;
  if (meter_.As<IOmbrelPlugin>()->AttachSite(&parts_->site) != kStatusOk) {
    Stop("the meter does not take its site");
  }
}

MeterHost::~MeterHost() = default;

Status MeterHost::Count(IOmbrelStatsEngine* engine, std::span<const std::uint8_t> headers,
                        std::span<const std::uint8_t> payload) {
  parts_->ip.bytes = headers;
  parts_->payload.bytes = payload;
  return counter_->Count(engine, &parts_->payload);
}

void MeterHost::CountAll(IOmbrelStatsEngine* engine, std::span<const Datagram> datagrams) {
  for (const Datagram& datagram : datagrams) Count(engine, datagram.headers, datagram.payload);
}

IOmbrelContainer* MeterHost::Site() { return &parts_->site; }

void MeterHost::LogSiteCalls(CallLog* log) { parts_->site.log = log; }

}  // namespace flow::bench
