// SPDX-License-Identifier: Apache-2.0
// A file in memory that has a path, for code that reads files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace flow::fuzz {

class MemoryFile {
 public:
  MemoryFile();
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  void Write(const std::uint8_t* data, std::size_t size) const;
  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  int descriptor_;
  std::string path_;
};

}  // namespace flow::fuzz
