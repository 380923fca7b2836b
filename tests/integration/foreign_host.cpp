// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/foreign_host.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "tests/support/datagram_builders.h"

namespace foreign {
namespace {

constexpr Status kOk = 0;
const Guid kIpLayer = ParseGuid("0A2C724B-5B9F-4BA6-9C97-B05080558574");

std::string Show(const char* text) { return text == nullptr ? "null" : text; }
std::string Show(std::uint64_t number) { return std::to_string(number); }
std::string Show(std::uint32_t number) { return std::to_string(number); }
enum class Hash : std::uint32_t {};
std::string Show(Hash hash) {
  char text[11];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<std::uint32_t>(hash));
  return text;
}
std::string Show(int number) { return std::to_string(number); }
std::string Show(const Guid* guid) {
  char text[9];
  const std::uint8_t* const b = guid->bytes;
  std::snprintf(text, sizeof text, "%02X%02X%02X%02X", b[3], b[2], b[1], b[0]);
  return text;
}
// A time: seconds and milliseconds, 64 bits each.
struct Time;
std::string Show(const Time* time) {
  return std::to_string(Field<std::int64_t>(time, 0)) + "." +
         std::to_string(Field<std::int64_t>(time, 8));
}
std::string Show(const void* /*array*/) { return "*"; }

char* NewText(const std::string& text) {
  char* const copy = new char[text.size() + 1];
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

void Trap() {
  std::fputs("the library called an operation that is none of its business\n", stderr);
  std::abort();
}

template <class Function>
void* Entry(Function function) {
  return reinterpret_cast<void*>(function);
}

constexpr const char* kEngineNames[] = {
    "UpdateCounter",      "UpdateCounterKeyLen",       "UpdateCounter2",   "UpdateCounter3",
    "UpdateCounterMulti", "UpdateCounterHashed2",      "SetKeyAttributes", "UpdateFlowCounter",
    "SetFlowTimes",       "SetFlowDuration",           "CloseFlow",        "GetCurrentTime",
    "MarkRecord",         "UpdateFlowVolume",          "TagFlow",          "PostChannelMessage",
    "SetKeyProperty",     "UpdateFlowCounterWithText",
};

}  // namespace

struct Operations {
  static Host& HostOf(Object* self) { return *reinterpret_cast<Host::Part*>(self)->host; }

  static std::uint32_t AddRef(Object* self) {
    return static_cast<std::uint32_t>(++HostOf(self).site_references);
  }
  static std::uint32_t Release(Object* self) {
    return static_cast<std::uint32_t>(--HostOf(self).site_references);
  }

  static Status Log(Object* self, int level, const char* text) {
    HostOf(self).lines.push_back("Log " + Show(level) + " " + Show(text));
    return kOk;
  }
  static Status GetDirectory(Object* /*self*/, char** path) {
    *path = NewText("/nowhere");
    return kOk;
  }
  static Status PreparePluginConfigFile(Object* self, const Guid* /*owner*/, const char* name,
                                        char** path) {
    HostOf(self).lines.push_back("PreparePluginConfigFile " + Show(name));
    *path = NewText(HostOf(self).policy_path_);
    return kOk;
  }
  static Status IsHomeAddress(Object* /*self*/, std::uint32_t address, bool* result) {
    *result = address >> 24 == 10;
    return kOk;
  }
  static Status GetHomeNetworks(Object* /*self*/, int* count, std::uint32_t** addresses,
                                std::uint32_t** masks) {
    *count = 1;
    *addresses = new std::uint32_t[1]{0x0A000000};
    *masks = new std::uint32_t[1]{0xFF000000};
    return kOk;
  }
  static Status GetInstanceNumber(Object* /*self*/, long* number) {
    *number = 1;
    return kOk;
  }

  template <int Index, class... Args>
  static Status Engine(Object* self, Args... args) {
    std::string line = kEngineNames[Index];
    ((line += " " + Show(args)), ...);
    HostOf(self).lines.push_back(line);
    return kOk;
  }
  static Status GetCurrentTime(Object* /*self*/, std::uint64_t* seconds) {
    *seconds = 1000;
    return kOk;
  }

  static Status GetBuffer(Object* self, const std::uint8_t** data, std::uint32_t* length) {
    const auto* const part = reinterpret_cast<Host::Part*>(self);
    *data = part->data;
    *length = part->length;
    return kOk;
  }
  static Status GetParseContext(Object* self, Object** context) {
    *context = &HostOf(self).context_.object;
    return kOk;
  }
  static Status GetProtData(Object* self, const Guid* protocol, Object** data) {
    if (*protocol == kIpLayer) *data = &HostOf(self).ip_.object;
    return kOk;
  }
  static Status SetParsedLength(Object* self, std::uint32_t length) {
    HostOf(self).lines.push_back("SetParsedLength " + Show(length));
    return kOk;
  }

  static void* const* SiteTable();
  static void* const* EngineTable();
  static void* const* LayerTable();
  static void* const* ContextTable();
};

// Two destructors and an interface query stand in each table, none of which the library may use; so
// do two further operations behind the last.

void* const* Operations::SiteTable() {
  static void* const table[] = {Entry(Trap),
                                Entry(Trap),
                                Entry(AddRef),
                                Entry(Release),
                                Entry(Trap),
                                Entry(Log),
                                Entry(GetDirectory),  // data
                                Entry(PreparePluginConfigFile),
                                Entry(IsHomeAddress),
                                Entry(GetHomeNetworks),
                                Entry(GetInstanceNumber),
                                Entry(GetDirectory),  // work
                                Entry(Trap),
                                Entry(Trap)};
  return table;
}

void* const* Operations::EngineTable() {
  using Group = const Guid*;
  using Text = const char*;
  using Value = std::uint64_t;
  using Small = std::uint32_t;
  static void* const table[] = {
      Entry(Trap),
      Entry(Trap),
      Entry(Trap),
      Entry(Trap),
      Entry(Trap),
      Entry(Engine<0, Group, Text, int, Value>),
      Entry(Engine<1, Group, int, Text, int, Value>),
      Entry(Engine<2, Group, int, Text, int, Value, int, Value>),
      Entry(Engine<3, Group, int, Text, int, Value, int, Value, int, Value>),
      Entry(Engine<4, Group, int, Text, int, const int*, const Value*>),
      Entry(Engine<5, Group, Hash, Text, int, Value, int, Value>),
      Entry(Engine<6, Group, Text, Text, Text>),
      Entry(Engine<7, Group, Text, int, Value>),
      Entry(Engine<8, Group, Text, const Time*, const Time*>),
      Entry(Engine<9, Group, Text, Small>),
      Entry(Engine<10, Group, Text>),
      Entry(GetCurrentTime),
      Entry(Engine<12>),
      Entry(Engine<13, Text, Value, Value, Value, Value>),
      Entry(Engine<14, Group, Text, Text>),
      Entry(Engine<15, Group, Group, Small, const void*>),
      Entry(Engine<16, Group, Text, Text, Text>),
      Entry(Engine<17, Group, Text, int, Value, Text>),
      Entry(Trap),
      Entry(Trap)};
  return table;
}

void* const* Operations::LayerTable() {
  static void* const table[] = {Entry(Trap),
                                Entry(Trap),
                                Entry(Trap),
                                Entry(Trap),
                                Entry(Trap),
                                Entry(GetBuffer),
                                Entry(GetParseContext),
                                Entry(Trap),
                                Entry(Trap)};
  return table;
}

void* const* Operations::ContextTable() {
  static void* const table[] = {Entry(Trap),
                                Entry(Trap),
                                Entry(Trap),
                                Entry(Trap),
                                Entry(Trap),
                                Entry(GetProtData),
                                Entry(SetParsedLength),
                                Entry(Trap),
                                Entry(Trap)};
  return table;
}

Host::Host(std::string policy_path)
    : policy_path_(std::move(policy_path)),
      site_{{Operations::SiteTable()}, this},
      engine_{{Operations::EngineTable()}, this},
      context_{{Operations::ContextTable()}, this},
      ip_{{Operations::LayerTable()}, this},
      udp_{{Operations::LayerTable()}, this} {}

void Host::SetPacket(const std::vector<std::uint8_t>& payload) {
  // IPv4 header without options, UDP header.
  flow::test::Wire wire;
  wire.U8(0x45).Zeros(1).U16(static_cast<std::uint16_t>(28 + payload.size())).Zeros(8);
  wire.Ip("192.0.2.1").Ip("192.0.2.250").U16(50000).U16(2055).Zeros(4).Raw(payload);
  packet_ = wire.Get();
  ip_.data = packet_.data();
  ip_.length = static_cast<std::uint32_t>(packet_.size());
  udp_.data = packet_.data() + 28;
  udp_.length = static_cast<std::uint32_t>(payload.size());
}

Status Host::Count(Object* meter, const std::vector<std::uint8_t>& payload) {
  SetPacket(payload);
  return Call(meter, at::Count, &engine_.object, &udp_.object);
}

Status Host::GenerateParse(Object* handler, const std::vector<std::uint8_t>& payload,
                           std::uint32_t* disposition) {
  SetPacket(payload);
  return Call(handler, at::GenerateParse, &udp_.object, disposition, &context_.object);
}

}  // namespace foreign
