// SPDX-License-Identifier: Apache-2.0
#include "host/base/build_text.h"

#include "flow_revision.h"
#include "flowhandlers/version.h"

namespace flow::host {

const char* BuildText() { return FLOWHANDLERS_VERSION " " FLOW_REVISION; }

}  // namespace flow::host
