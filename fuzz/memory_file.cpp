// SPDX-License-Identifier: Apache-2.0
#include "fuzz/memory_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace flow::fuzz {

MemoryFile::MemoryFile()
    : descriptor_(memfd_create("input", 0)), path_("/proc/self/fd/" + std::to_string(descriptor_)) {
  if (descriptor_ < 0) std::abort();
}

MemoryFile::~MemoryFile() { close(descriptor_); }

void MemoryFile::Write(const std::uint8_t* data, std::size_t size) const {
  if (ftruncate(descriptor_, 0) != 0 ||
      pwrite(descriptor_, data, size, 0) != static_cast<ssize_t>(size)) {
    std::abort();
  }
}

}  // namespace flow::fuzz
