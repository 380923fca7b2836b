// SPDX-License-Identifier: Apache-2.0
#include "fuzz/host/memory_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace flow::fuzz {
namespace {

std::filesystem::path Place() {
  constexpr char kInMemory[] = "/dev/shm";
  if (access(kInMemory, W_OK) == 0) return kInMemory;
  return std::filesystem::temp_directory_path();
}

}  // namespace

MemoryFolder::MemoryFolder() : path_(Place() / "flow-fuzz-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) std::abort();
}

MemoryFolder::~MemoryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void MemoryFolder::Write(const std::string& name, std::string_view content) const {
  constexpr mode_t kMode = 0644;
  const std::string path = path_ + "/" + name;
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode);
  const bool is_written = file >= 0 && write(file, content.data(), content.size()) ==
                                           static_cast<ssize_t>(content.size());
  if (!is_written) std::abort();
  close(file);
}

}  // namespace flow::fuzz
