// SPDX-License-Identifier: Apache-2.0
// Texts from outside (the wire, the plug-in, file names) made safe for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace flow::host {

// Printable writes every byte that is not a printable ASCII character as \xNN, so that nothing an
// exporter sends can steer the terminal.
std::string Printable(std::string_view text);

// Utf8 keeps what is valid UTF-8, and writes other bytes and control characters as \xNN: for files
// that programs read.
std::string Utf8(std::string_view text);

}  // namespace flow::host
