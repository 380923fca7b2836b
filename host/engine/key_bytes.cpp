// SPDX-License-Identifier: Apache-2.0
#include "host/engine/key_bytes.h"

#include <random>

namespace flow::host::internal {
namespace {

std::uint64_t RandomSeed() {
  std::random_device device;
  return std::uint64_t{device()} << 32 | device();
}

}  // namespace

const std::uint64_t kHashSeed = RandomSeed();

}  // namespace flow::host::internal
