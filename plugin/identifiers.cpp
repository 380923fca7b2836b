// SPDX-License-Identifier: Apache-2.0
// Hosts that were built without the headers look identifiers up with dlsym. A constant that nothing
// points to would not be there.
#include "flowhandlers/identifiers.h"

namespace {

[[gnu::used]] constexpr const GUID* kExported[] = {
    &CLSID_PI_NETFLOWMETER,
    &CLSID_PI_NETFLOW,
    &CLSID_PI_NETFLOWGEN,
    &CLSID_PI_NETFLOWINTF,
    &CLSID_PI_SFLOWMETER,
    &CLSID_PI_SFLOW,
    &IID_IArboUnknown,
    &IID_IArboClassFactory,
    &IID_IOmbrelPlugin,
    &IID_IOmbrelSimpleCounter,
    &IID_IOmbrelChannelListener,
    &IID_IOmbrelProtHandler,
    &IID_IOmbrelAccessPointClient,
    &IID_IOmbrelCounterGroupHost,
    &IID_IOmbrelComponentPackage,
    &IID_IOmbrelContainer,
    &IID_IOmbrelStatsEngine,
    &IID_IOmbrelProtData,
    &IID_IOmbrelParseContext,
    &CATID_ZephCtr,
    &CATID_ZephPlugIn,
};

}  // namespace
