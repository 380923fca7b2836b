// SPDX-License-Identifier: Apache-2.0
// A folder whose files lie in memory where the system has room for that, since files are made and
// synced with every input.
#pragma once

#include <string>
#include <string_view>

namespace flow::fuzz {

class MemoryFolder {
 public:
  MemoryFolder();
  ~MemoryFolder();
  MemoryFolder(const MemoryFolder&) = delete;
  MemoryFolder& operator=(const MemoryFolder&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  void Write(const std::string& name, std::string_view content) const;

 private:
  std::string path_;
};

}  // namespace flow::fuzz
