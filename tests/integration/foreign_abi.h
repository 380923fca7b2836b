// SPDX-License-Identifier: Apache-2.0
// The binary interface as a host of another make sees it: objects begin with a pointer to a table
// of operations, and an operation is known by its place in that table. Written down here on its
// own; it shares no declaration with the library, so that an operation which moved, a record which
// grew or an identifier which changed shows.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

namespace foreign {

using Status = std::uint32_t;

struct Object {
  void* const* operations;
};

// Call performs the operation in a place of the object's table. Every object of the interface is
// called as a plain function whose first argument is the object.
template <class Result = Status, class... Args>
Result Call(Object* object, int place, Args... args) {
  using Operation = Result (*)(Object*, Args...);
  return reinterpret_cast<Operation>(object->operations[place])(object, args...);
}

// Places of the operations. Every table begins with two destructors, AddRef, Release and
// QueryInterface; each enumeration below counts on from there.
namespace at {
enum Unknown { AddRef = 2, Release, QueryInterface };
enum ClassFactory { NewInstance = 5 };
enum Plugin { AttachSite = 5, DetachSite, GetPluginID };
enum SimpleCounter { GetAttachmentProtID = 5, Count, IsFlowCounter };
enum ChannelListener { OnChannelMessage = 5, FlushDeferredMessages, SetDeferredMode };
enum ProtHandler { GetProtID = 5, GenerateParse };
enum AccessPointClient { GetPrefAPHosts = 5, GetAPClientProtID, SetupFreeAP };
enum CounterGroupHost {
  get_GUID = 5,
  get_Name,
  get_Description,
  get_EnableTopN,
  get_TopNCount,
  get_BucketSizeMS,
  get_TrackHiWater,
  get_TrackLoWater,
  GetVariableDefs,
  LoadInitialData,
  get_ResolverGUID,
  get_TrafTableName
};
enum ComponentPackage { GetComponentCount = 5, GetComponentCLSID, GetClassFactory };
}  // namespace at

// 16 bytes, compared as they lie in memory.
struct Guid {
  std::uint8_t bytes[16];
  friend bool operator==(const Guid& a, const Guid& b) {
    return std::memcmp(a.bytes, b.bytes, sizeof a.bytes) == 0;
  }
};

// ParseGuid reads "4CD742B1-C1CA-4708-BE78-0FCA2EB01A86": the first three groups are little-endian
// numbers, the last two stand as written.
inline Guid ParseGuid(const char* text) {
  static constexpr int kPlaces[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
  Guid guid{};
  for (const int place : kPlaces) {
    if (*text == '-') ++text;
    guid.bytes[place] = static_cast<std::uint8_t>(std::stoul(std::string(text, 2), nullptr, 16));
    text += 2;
  }
  return guid;
}

// Field reads a member of a record that the library handed over, by its offset.
template <class T>
T Field(const void* record, std::size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const char*>(record) + offset, sizeof value);
  return value;
}

}  // namespace foreign
