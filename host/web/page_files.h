// SPDX-License-Identifier: Apache-2.0
// The files of the page, which are part of the program.
#pragma once

#include <span>
#include <string_view>

namespace flow::host {

struct PageFile {
  std::string_view name;  // "index.html"
  std::string_view bytes;
};

std::span<const PageFile> PageFiles();

}  // namespace flow::host
