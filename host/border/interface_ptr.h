// SPDX-License-Identifier: Apache-2.0
// References to the plug-in's objects and texts, given back when they go out of scope.
#pragma once

#include "flowhandlers/kit/interface_ptr.h"

namespace flow::host {

using kit::InterfacePtr;
using kit::Query;
using kit::TakeText;

}  // namespace flow::host
