// SPDX-License-Identifier: Apache-2.0
// Compressed captures: gzip and zstd, decompressed as they are read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>

namespace flow::host {

class Decompressor {
 public:
  virtual ~Decompressor() = default;

  // Read gives at least one byte; 0 at the end. HostError at damage.
  virtual std::size_t Read(std::span<std::uint8_t> out) = 0;
};

// DecompressorOf tells by a file's first bytes, which it leaves unread, whether it is compressed;
// null when it is not. The file outlives the decompressor.
std::unique_ptr<Decompressor> DecompressorOf(std::FILE* file);

}  // namespace flow::host
