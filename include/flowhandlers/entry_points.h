// SPDX-License-Identifier: Apache-2.0
// The entry points of the library, found with dlsym. The host calls them from one thread, while it
// loads and unloads the library.
#pragma once

#include "flowhandlers/plugin_interfaces.h"

#define FLOW_ENTRY extern "C" __attribute__((visibility("default")))

// SqPIInit makes the module, if there is none, and registers the six components. Returns 0. Called
// again, it registers a second set behind the first, which stays the one that is found.
FLOW_ENTRY int SqPIInit();

// SqPIGetPackage gives the module's table of components, with a reference for the caller. Returns
// 0, or 1 when there is no such interface. An empty table is filled first.
FLOW_ENTRY int SqPIGetPackage(IOmbrelComponentPackage** out);

// SqPIFini destroys the registered class factories and the module, whoever still holds references
// to them. Components that the host created and released before are not concerned.
FLOW_ENTRY void SqPIFini();
