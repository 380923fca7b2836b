// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <cstring>

#include "bench/engines.h"
#include "flowhandlers/counter_groups.h"

namespace flow::bench {
namespace {

constexpr int kVolume = 4;
constexpr int kStart = 8;
constexpr int kEnd = 9;
constexpr int kClosed = 10;
constexpr int kTagged = 11;

std::uint64_t Load64(const char* p) {
  std::uint64_t word = 0;
  std::memcpy(&word, p, sizeof(word));
  return word;
}

std::uint64_t Mix(std::uint64_t a, std::uint64_t b) {
  __extension__ using Wide = unsigned __int128;
  const Wide product = Wide{a} * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

// 16 bytes a step; the last step overlaps the one before, a text below 8 bytes is one word.
std::uint64_t HashKey(std::uint32_t group, std::string_view key) {
  constexpr std::uint64_t kA = 0xA0761D6478BD642FU;
  constexpr std::uint64_t kB = 0xE7037ED1A0B428DBU;
  const char* p = key.data();
  std::size_t left = key.size();
  std::uint64_t hash = kA ^ group ^ left << 32;
  if (left < 8) {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < left; ++i) word = word << 8 | static_cast<unsigned char>(p[i]);
    return Mix(word ^ kB, hash);
  }
  for (; left > 16; left -= 16, p += 16) hash = Mix(Load64(p) ^ kB, Load64(p + 8) ^ hash);
  const char* const end = p + left;
  return Mix(Load64(left < 8 ? end - 16 : p) ^ kB, Load64(end - 8) ^ hash);
}

}  // namespace

TallyEngine::Item& TallyEngine::ItemOf(const GUID& group, std::string_view key) {
  const std::uint64_t hash = HashKey(group.Data1, key);
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t at = hash & mask; slots_[at].item != nullptr; at = (at + 1) & mask) {
    Item& item = *slots_[at].item;
    if (slots_[at].hash == hash && item.group == group.Data1 && item.key_length == key.size() &&
        std::memcmp(item.key, key.data(), key.size()) == 0) {
      return item;
    }
  }
  return Insert(hash, group.Data1, key);
}

TallyEngine::Item& TallyEngine::Insert(std::uint64_t hash, std::uint32_t group,
                                       std::string_view key) {
  const auto place = [this](const Slot& slot) {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = slot.hash & mask;
    while (slots_[at].item != nullptr) at = (at + 1) & mask;
    slots_[at] = slot;
  };
  if (2 * (items_.size() + 1) > slots_.size()) {
    std::vector<Slot> old(2 * slots_.size());
    old.swap(slots_);
    for (const Slot& slot : old) {
      if (slot.item != nullptr) place(slot);
    }
  }
  Item& item = items_.emplace_back();
  if (key.size() >= sizeof(item.key)) {
    std::fprintf(stderr, "a key is longer than any key may be\n");
    std::abort();
  }
  item.group = group;
  item.key_length = static_cast<std::uint32_t>(key.size());
  key.copy(item.key, key.size());
  place({hash, &item});
  return item;
}

Status TallyEngine::UpdateCounter(const GUID& group, const char* key, int meter,
                                  std::uint64_t value) {
  Add(&ItemOf(group, key), meter, value);
  return kStatusOk;
}

Status TallyEngine::UpdateCounterKeyLen(const GUID& group, int keyLength, const char* key,
                                        int meter, std::uint64_t value) {
  Add(&ItemOf(group, {key, static_cast<std::size_t>(keyLength)}), meter, value);
  return kStatusOk;
}

Status TallyEngine::UpdateCounter2(const GUID& group, int keyLength, const char* key, int meter1,
                                   std::uint64_t value1, int meter2, std::uint64_t value2) {
  Item& item = ItemOf(group, {key, static_cast<std::size_t>(keyLength)});
  Add(&item, meter1, value1);
  Add(&item, meter2, value2);
  return kStatusOk;
}

Status TallyEngine::UpdateCounter3(const GUID& group, int keyLength, const char* key, int meter1,
                                   std::uint64_t value1, int meter2, std::uint64_t value2,
                                   int meter3, std::uint64_t value3) {
  Item& item = ItemOf(group, {key, static_cast<std::size_t>(keyLength)});
  Add(&item, meter1, value1);
  Add(&item, meter2, value2);
  Add(&item, meter3, value3);
  return kStatusOk;
}

Status TallyEngine::UpdateCounterMulti(const GUID& group, int keyLength, const char* key, int count,
                                       const int* meters, const std::uint64_t* values) {
  Item& item = ItemOf(group, {key, static_cast<std::size_t>(keyLength)});
  for (int i = 0; i < count; ++i) Add(&item, meters[i], values[i]);
  return kStatusOk;
}

Status TallyEngine::UpdateCounterHashed2(const GUID& group, std::uint32_t /*keyHash*/,
                                         const char* key, int meter1, std::uint64_t value1,
                                         int meter2, std::uint64_t value2) {
  Item& item = ItemOf(group, key);
  Add(&item, meter1, value1);
  Add(&item, meter2, value2);
  return kStatusOk;
}

Status TallyEngine::UpdateFlowCounter(const GUID& flowGroup, const char* flowKey, int meter,
                                      std::uint64_t value) {
  Add(&ItemOf(flowGroup, flowKey), meter, value);
  return kStatusOk;
}

Status TallyEngine::SetFlowTimes(const GUID& flowGroup, const char* flowKey, const TimePair* start,
                                 const TimePair* end) {
  Item& item = ItemOf(flowGroup, flowKey);
  const auto milliseconds = [](const TimePair& time) {
    return static_cast<std::uint64_t>(time.seconds * 1000 + time.milliseconds);
  };
  item.sums[kStart] = milliseconds(*start);
  item.sums[kEnd] = milliseconds(*end);
  return kStatusOk;
}

Status TallyEngine::CloseFlow(const GUID& flowGroup, const char* flowKey) {
  Add(&ItemOf(flowGroup, flowKey), kClosed, 1);
  return kStatusOk;
}

Status TallyEngine::MarkRecord() {
  ++records_;
  return kStatusOk;
}

Status TallyEngine::UpdateFlowVolume(const char* flowKey, std::uint64_t bytesOneWay,
                                     std::uint64_t bytesOtherWay, std::uint64_t packetsOneWay,
                                     std::uint64_t packetsOtherWay) {
  Item& item = ItemOf(COUNTERID_FLOWS, flowKey);
  Add(&item, kVolume, bytesOneWay);
  Add(&item, kVolume + 1, bytesOtherWay);
  Add(&item, kVolume + 2, packetsOneWay);
  Add(&item, kVolume + 3, packetsOtherWay);
  return kStatusOk;
}

Status TallyEngine::TagFlow(const GUID& flowGroup, const char* flowKey, const char* /*tag*/) {
  Add(&ItemOf(flowGroup, flowKey), kTagged, 1);
  return kStatusOk;
}

std::uint64_t TallyEngine::Sum(const GUID& group, std::string_view key, int meter) {
  return ItemOf(group, key).sums[static_cast<std::size_t>(meter)];
}

std::uint64_t TallyEngine::Digest() const {
  std::uint64_t digest = records_;
  for (const Item& item : items_) {
    std::uint64_t hash = HashKey(item.group, {item.key, item.key_length});
    for (const std::uint64_t sum : item.sums) hash = Mix(hash ^ sum, 0x9E3779B97F4A7C15U);
    digest += hash;  // whatever the order of the items
  }
  return digest;
}

}  // namespace flow::bench
