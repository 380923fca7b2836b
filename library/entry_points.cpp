// SPDX-License-Identifier: Apache-2.0
// The three entry points through which the host reaches the library, and the list of the components
// that it finds there.

#include "flowhandlers/entry_points.h"

#include "metering/flow_counter_groups.h"
#include "netflow/netflow_handler.h"
#include "netflow/netflow_meter.h"
#include "plugin/module.h"
#include "sflow/sflow_handler.h"
#include "sflow/sflow_meter.h"

namespace {

CArboObject<COmbrelModule>* g_module = nullptr;

template <class Component>
void Register(const CLSID& clsid) {
  CArboObject<Component>* object = nullptr;
  if (CArboObject<Component>::CreateInstance(&object) != kStatusOk) return;
  void* unknown = nullptr;
  if (object->QueryInterface(IID_IArboUnknown, &unknown) != kStatusOk) return;
  auto* const component = static_cast<IArboUnknown*>(unknown);
  g_module->RegisterModule(clsid, component);  // the table's own reference keeps the object
  component->Release();
}

struct Registration {
  const CLSID& clsid;
  void (*enlist)(const CLSID&);
};

// The index of a component in the host's view is its place here.
constexpr Registration kComponents[] = {
    {CLSID_PI_NETFLOWMETER, Register<CPINetflowMeter>},
    {CLSID_PI_NETFLOW, Register<CPINetflow>},
    {CLSID_PI_NETFLOWGEN, Register<CPICGNetflowGen>},
    {CLSID_PI_NETFLOWINTF, Register<CPICGNetflowIntf>},
    {CLSID_PI_SFLOWMETER, Register<CPISFlowMeter>},
    {CLSID_PI_SFLOW, Register<CPISFlow>},
};

}  // namespace

int SqPIInit() {
  if (g_module == nullptr) CArboObject<COmbrelModule>::CreateInstance(&g_module);
  for (const Registration& component : kComponents) component.enlist(component.clsid);
  return 0;
}

int SqPIGetPackage(IOmbrelComponentPackage** out) {
  if (out == nullptr) return 1;
  unsigned int count = 0;
  if (g_module != nullptr) g_module->GetComponentCount(&count);
  if (count == 0) SqPIInit();
  void* package = nullptr;
  const Status status = g_module->QueryInterface(IID_IOmbrelComponentPackage, &package);
  *out = static_cast<IOmbrelComponentPackage*>(package);
  return status == kStatusOk ? 0 : 1;
}

void SqPIFini() {
  if (g_module == nullptr) return;
  g_module->UnregisterAll();
  delete g_module;
  g_module = nullptr;
}
