// SPDX-License-Identifier: Apache-2.0
// The mutator of the datagram targets: it keeps the input's frame whole, adds valid datagrams, and
// damages what is there, above all lengths, counts and ids.

#include <algorithm>
#include <cstring>
#include <utility>

#include "fuzz/grammar.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace flow::fuzz {
namespace {

constexpr std::size_t kMostDatagrams = 12;

void MutatePayload(Random& random, Input& input) {
  test::Bytes& payload = input.datagrams[random.Below(input.datagrams.size())].payload;
  const std::size_t size = payload.size();
  payload.resize(size + 64);
  payload.resize(LLVMFuzzerMutate(payload.data(), size, payload.size()));
}

// Sets a number of 1, 2 or 4 bytes, at a place where headers have one, to a value at a border.
void DamageNumber(Random& random, Input& input) {
  constexpr std::uint32_t kBorders[] = {0,     1,     2,     3,     4,          5,         7,
                                        8,     10,    16,    24,    255,        256,       257,
                                        32767, 32768, 65534, 65535, 0x7FFFFFFF, 0xFFFFFFFF};
  test::Bytes& payload = input.datagrams[random.Below(input.datagrams.size())].payload;
  const std::size_t width = std::size_t{1} << random.Below(3);
  if (payload.size() < width) return;
  std::size_t at = random.Below(payload.size() - width + 1);
  if (!random.OneIn(4)) at &= ~(width - 1);
  std::uint32_t value = kBorders[random.Below(std::size(kBorders))];
  if (random.OneIn(3)) value = static_cast<std::uint32_t>(payload.size()) - random.Below(8);
  for (std::size_t i = width; i > 0; --i, value >>= 8) {
    payload[at + i - 1] = static_cast<std::uint8_t>(value);
  }
}

void DamageHeaders(Random& random, Input& input) {
  input.datagrams[random.Below(input.datagrams.size())].exporter ^=
      static_cast<std::uint8_t>(1U << random.Below(7));
}

void CutPayload(Random& random, Input& input) {
  test::Bytes& payload = input.datagrams[random.Below(input.datagrams.size())].payload;
  payload.resize(random.Below(payload.size() + 1));
}

void Shuffle(Random& random, Input& input) {
  auto& datagrams = input.datagrams;
  const std::size_t one = random.Below(datagrams.size());
  const std::size_t other = random.Below(datagrams.size());
  if (random.OneIn(3)) {
    datagrams.erase(datagrams.begin() + static_cast<std::ptrdiff_t>(one));
  } else if (random.OneIn(2)) {
    datagrams.push_back(datagrams[one]);
  } else {
    std::swap(datagrams[one], datagrams[other]);
  }
}

void Mutate(Random& random, Input& input) {
  if (input.datagrams.empty() || random.OneIn(5)) {
    const std::size_t at = random.Below(input.datagrams.size() + 1);
    input.datagrams.insert(input.datagrams.begin() + static_cast<std::ptrdiff_t>(at),
                           MakeDatagram(random));
    return;
  }
  switch (random.Below(9)) {
    case 0:
      input.policy = static_cast<std::uint8_t>(random());
      return;
    case 8:
      return DamageHeaders(random, input);
    case 1:
      return Shuffle(random, input);
    case 2:
      return CutPayload(random, input);
    case 3:
    case 4:
    case 5:
      return DamageNumber(random, input);
    default:
      return MutatePayload(random, input);
  }
}

}  // namespace
}  // namespace flow::fuzz

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned int seed) {
  flow::fuzz::Random random(seed);
  flow::fuzz::Input input = flow::fuzz::Parse(data, size);
  for (std::uint32_t i = 0; i <= random.Below(3); ++i) flow::fuzz::Mutate(random, input);
  if (input.datagrams.size() > flow::fuzz::kMostDatagrams) {
    input.datagrams.resize(flow::fuzz::kMostDatagrams);
  }
  const flow::test::Bytes out = flow::fuzz::Serialize(input);
  const std::size_t kept = std::min(out.size(), max_size);
  std::memcpy(data, out.data(), kept);
  return kept;
}
