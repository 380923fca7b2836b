// SPDX-License-Identifier: Apache-2.0
// Which build this program is.
#pragma once

namespace flow::host {

// BuildText gives version and revision.
const char* BuildText();

}  // namespace flow::host
