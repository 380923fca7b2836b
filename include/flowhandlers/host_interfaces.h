// SPDX-License-Identifier: Apache-2.0
// The interfaces that the host implements and hands to the components, and the records that cross
// the border with them. The library calls these operations only from inside the host's own calls
// into it, on the same thread. Pointers that an operation returns are borrowed, except where a
// comment says that the caller frees them; only the site is held with a reference.
//
// The operations stand in the order of the host's tables; a new one would have to go to the end of
// an interface of its own. The host's interfaces may hold further operations behind these.
#pragma once

#include <cstddef>
#include <cstdint>

#include "flowhandlers/arbo_unknown.h"

// Levels of IOmbrelContainer::Log.
inline constexpr int kLogError = 4;
inline constexpr int kLogWarning = 5;
inline constexpr int kLogProgress = 7;  // progress and diagnostics
inline constexpr int kLogInformation = 8;

// One entry of the table of access points that a protocol handler prefers, host byte order.
struct ACCPT_T {
  std::uint32_t host_field;    // the host's own; 0 in this library
  std::uint16_t port;          // UDP port
  std::uint16_t padding;       // 0
  const IID* parent_protocol;  // layer that carries the datagrams, UPID_UDP
};
static_assert(sizeof(ACCPT_T) == 16 && offsetof(ACCPT_T, port) == 4 &&
              offsetof(ACCPT_T, parent_protocol) == 8);

// What GenerateParse tells the host about a datagram.
using DISPOSITION_CODE_T = std::uint32_t;
inline constexpr DISPOSITION_CODE_T kDispositionClaimed = 3;

// A point in time: whole seconds since 1970 and the remaining milliseconds, 0 to 999.
struct TimePair {
  std::int64_t seconds;
  std::int64_t milliseconds;
};
static_assert(sizeof(TimePair) == 16);

// One meter of a counter group, as the group's component describes it to the host.
struct VARDEFS_T {
  std::int32_t varId;    // index of the meter within its group, from 0
  std::int32_t varType;  // kind of meter, the host's numbering
  std::int64_t varParam;
  const char* units;
  const char* name;
  const char* unitsAlt;  // a second unit text
};
static_assert(sizeof(VARDEFS_T) == 40 && offsetof(VARDEFS_T, varParam) == 8 &&
              offsetof(VARDEFS_T, units) == 16);

// The site: a component's view of its host, given once to AttachSite.
struct IOmbrelContainer : IArboUnknown {
  // Log writes a NUL-terminated message to the host's log.
  virtual Status Log(int level, const char* text) = 0;

  // GetDataDirectory gives the directory in which feed files arrive. *path is a new[] text that the
  // caller frees with delete[]; it may stay null.
  virtual Status GetDataDirectory(char** path) = 0;

  // PreparePluginConfigFile gives the full path of the policy file fileName of the component class
  // owner, as a new[] text that the caller frees with delete[].
  virtual Status PreparePluginConfigFile(const IID& owner, const char* fileName,
                                         char** fullPath) = 0;

  // IsHomeAddress tells whether an IPv4 address (host byte order) lies in the home networks.
  virtual Status IsHomeAddress(std::uint32_t address, bool* result) = 0;

  // GetHomeNetworks gives the IPv4 home networks as two arrays of *count addresses and masks (host
  // byte order), both new[] arrays that the caller frees with delete[].
  virtual Status GetHomeNetworks(int* count, std::uint32_t** addresses, std::uint32_t** masks) = 0;

  // GetInstanceNumber gives the number that names this running instance.
  virtual Status GetInstanceNumber(long* number) = 0;

  // GetWorkDirectory gives the directory for diagnostic files, as a new[] text that the caller
  // frees with delete[].
  virtual Status GetWorkDirectory(char** path) = 0;
};

// The statistics engine, given to every Count.
//
// A counter group is named by its GUID, an item of it by a key text, and each item has a few meters
// with small indices. A key is NUL-terminated and valid only during the call. keyLength leaves the
// NUL out. Values are added.
struct IOmbrelStatsEngine : IArboUnknown {
  virtual Status UpdateCounter(const GUID& group, const char* key, int meter,
                               std::uint64_t value) = 0;
  virtual Status UpdateCounterKeyLen(const GUID& group, int keyLength, const char* key, int meter,
                                     std::uint64_t value) = 0;
  virtual Status UpdateCounter2(const GUID& group, int keyLength, const char* key, int meter1,
                                std::uint64_t value1, int meter2, std::uint64_t value2) = 0;
  virtual Status UpdateCounter3(const GUID& group, int keyLength, const char* key, int meter1,
                                std::uint64_t value1, int meter2, std::uint64_t value2, int meter3,
                                std::uint64_t value3) = 0;

  // UpdateCounterMulti adds values[i] to meters[i] of one key, for count meters.
  virtual Status UpdateCounterMulti(const GUID& group, int keyLength, const char* key, int count,
                                    const int* meters, const std::uint64_t* values) = 0;

  // UpdateCounterHashed2 updates two meters of a fixed key; keyHash is the key's value under the
  // host's own hash function. A host may ignore it.
  virtual Status UpdateCounterHashed2(const GUID& group, std::uint32_t keyHash, const char* key,
                                      int meter1, std::uint64_t value1, int meter2,
                                      std::uint64_t value2) = 0;

  // SetKeyAttributes gives a key a readable label and description.
  virtual Status SetKeyAttributes(const GUID& group, const char* key, const char* label,
                                  const char* description) = 0;

  virtual Status UpdateFlowCounter(const GUID& flowGroup, const char* flowKey, int meter,
                                   std::uint64_t value) = 0;

  // SetFlowTimes sets the flow's first and last times, wall clock.
  virtual Status SetFlowTimes(const GUID& flowGroup, const char* flowKey, const TimePair* start,
                              const TimePair* end) = 0;
  virtual Status SetFlowDuration(const GUID& flowGroup, const char* flowKey,
                                 std::uint32_t milliseconds) = 0;

  // CloseFlow says that the flow has ended.
  virtual Status CloseFlow(const GUID& flowGroup, const char* flowKey) = 0;

  // GetCurrentTime gives the engine's time in whole seconds. The caller zeroes *seconds before.
  virtual Status GetCurrentTime(std::uint64_t* seconds) = 0;

  // MarkRecord is called once for every flow record or sample that is about to be metered.
  virtual Status MarkRecord() = 0;

  // UpdateFlowVolume adds bytes and packets to the two directions of a flow.
  virtual Status UpdateFlowVolume(const char* flowKey, std::uint64_t bytesOneWay,
                                  std::uint64_t bytesOtherWay, std::uint64_t packetsOneWay,
                                  std::uint64_t packetsOtherWay) = 0;
  virtual Status TagFlow(const GUID& flowGroup, const char* flowKey, const char* tag) = 0;

  // PostChannelMessage delivers length bytes to every listener of the channel through
  // OnChannelMessage. The data is the caller's and valid only during the call.
  virtual Status PostChannelMessage(const GUID& channel, const IID& sender, std::uint32_t length,
                                    void* data) = 0;

  // SetKeyProperty sets a named text property of a key.
  virtual Status SetKeyProperty(const GUID& group, const char* key, const char* name,
                                const char* value) = 0;

  // UpdateFlowCounterWithText is UpdateFlowCounter with a text that is kept with the flow.
  virtual Status UpdateFlowCounterWithText(const GUID& flowGroup, const char* flowKey, int meter,
                                           std::uint64_t value, const char* text) = 0;
};

struct IOmbrelParseContext;

// One protocol layer of the packet being handled.
struct IOmbrelProtData : IArboUnknown {
  // GetBuffer gives the layer's bytes: the UDP payload for the layer that Count and GenerateParse
  // receive, the IPv4 header and what follows it for the IPv4 layer.
  virtual Status GetBuffer(const std::uint8_t** data, std::uint32_t* length) = 0;

  // GetParseContext gives the parse context of the packet that the layer belongs to.
  virtual Status GetParseContext(IOmbrelParseContext** context) = 0;
};

// The packet being handled.
struct IOmbrelParseContext : IArboUnknown {
  // GetProtData gives another layer of the packet; *data stays null when there is no such layer.
  virtual Status GetProtData(const IID& protocol, IOmbrelProtData** data) = 0;

  // SetParsedLength says how many bytes the calling protocol handler has taken as its own.
  virtual Status SetParsedLength(std::uint32_t length) = 0;
};
