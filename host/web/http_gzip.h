// SPDX-License-Identifier: Apache-2.0
// Bodies made small.
#pragma once

#include <string>
#include <string_view>

namespace flow::host {

// Gzip gives the text in gzip's form; level from 1, fast, to 9, small.
std::string Gzip(std::string_view text, int level);

}  // namespace flow::host
