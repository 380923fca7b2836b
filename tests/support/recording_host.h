// SPDX-License-Identifier: Apache-2.0
// A host for tests. It answers the components as it has been told and writes down every call that
// they make, one text line a call, in order:
//
//   UpdateCounterKeyLen COUNTERID_APPS 6 p-0050 0 1000
//   Log 8 Attached site to Netflow Counter Plugin
//
// that is the operation's name and its arguments, separated by single blanks; identifiers by name,
// hashes as 0x%08x, an empty text as "", bytes outside the printable ones as \xHH. Operations that
// only ask (GetCurrentTime, IsHomeAddress, ...) begin with ~ and are left out unless WithQueries is
// on.
//
// A broken promise of the library (a key without its NUL, a key of another form than its group's,
// an unknown meter, a reference taken on a borrowed object, a changed datagram) is a fault: it ends
// the program with a message, or is kept for Faults() after KeepFaults.
//
//   RecordingHost host;
//   host.Policy("<MeterHosts>false</MeterHosts>").Home("10.0.0.0/8");
//   auto meter = host.Attach<CPINetflowMeter>();
//   EXPECT_EQ(host.Count(meter, V5Packet().Record({.packets = 3}).Build()), kStatusOk);
//   EXPECT_THAT(host.Take("COUNTERID_APPS"),
//               ElementsAre("UpdateCounterKeyLen COUNTERID_APPS 6 p-0050 0 1000"));
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "flowhandlers/plugin_interfaces.h"
#include "tests/support/component.h"
#include "tests/support/packet.h"

namespace flow::test {

class RecordingHost {
 public:
  RecordingHost();
  ~RecordingHost();
  RecordingHost(const RecordingHost&) = delete;
  RecordingHost& operator=(const RecordingHost&) = delete;

  // What the host answers; every setting may be changed at any time.

  RecordingHost& Home(std::string_view network);  // appends "10.0.0.0/8"
  RecordingHost& NoHome();                        // no home networks, as at the start
  RecordingHost& Now(std::uint64_t seconds);      // engine time, 1000 at the start
  RecordingHost& Instance(long number);           // 1 at the start
  // Both directories are a temporary directory of this host at the start; nullopt is a null text.
  RecordingHost& DataDirectory(std::optional<std::string> path);
  RecordingHost& WorkDirectory(std::optional<std::string> path);

  // Policy writes the policy file of both meters: settings stand inside <Policy>, beside after it,
  // under the root. Called again, it changes the file in place. At the start the file has neither.
  RecordingHost& Policy(std::string_view settings, std::string_view beside = {});
  // PolicyPath gives one class another file. nullopt: a null path with status 0.
  RecordingHost& PolicyPath(const CLSID& owner, std::optional<std::string> path);

  // Fail makes the operation of that name ("GetHomeNetworks", "GetParseContext", "UpdateCounter")
  // answer status and give nothing: outputs stay null, or untouched where they are no pointers.
  RecordingHost& Fail(std::string_view operation, Status status = kStatusFailed);
  RecordingHost& NoFail(std::string_view operation);

  // SharedChannels delivers each posted message at once to every connected listener but the one
  // whose Count is running.
  RecordingHost& SharedChannels(bool on = true);
  // Connect makes a component a listener of the channels; it has to stay alive until Disconnect or
  // the host's last Count.
  RecordingHost& Connect(const Component& component);
  RecordingHost& Disconnect(const Component& component);

  RecordingHost& AnyValue(bool on = true);     // a policy counts in 64 bits
  RecordingHost& WithQueries(bool on = true);  // lines of operations that only ask, too
  RecordingHost& Recording(bool on);           // off: checks alone, no lines
  RecordingHost& KeepFaults();                 // faults no longer end the program

  // What the host does.

  // Attach gives the component its site.
  Status Attach(const Component& component);
  // Attach<C> makes a component and attaches it. Ends the program when that fails, as the test then
  // has nothing to test; use Attach(component) where failure is the subject.
  template <class Class>
  ComponentOf<Class> Attach() {
    ComponentOf<Class> component;
    RequireAttached(Attach(component));
    return component;
  }
  Status Detach(const Component& component);

  // Count hands one datagram to a meter.
  Status Count(const Component& meter, std::span<const std::uint8_t> payload,
               const Exporter& from = {});
  // CountPacket: the same with the IPv4 header and what follows it up to the payload as given.
  Status CountPacket(const Component& meter, std::span<const std::uint8_t> headers,
                     std::span<const std::uint8_t> payload);
  // CountWithoutIp: the same for a packet without an IPv4 layer.
  Status CountWithoutIp(const Component& meter, std::span<const std::uint8_t> payload);

  struct ParseResult {
    Status status;
    std::optional<DISPOSITION_CODE_T> disposition;  // nullopt: untouched
  };
  ParseResult Parse(const Component& handler, std::span<const std::uint8_t> payload);

  // Deliver hands a channel message to one listener, in a heap block of exactly its size.
  Status Deliver(const Component& listener, const GUID& channel,
                 std::span<const std::uint8_t> message);

  // What has happened.

  // Take gives the lines since the last Take or Forget.
  std::vector<std::string> Take();
  // Take(text) gives those that contain the text, and forgets the others as well.
  std::vector<std::string> Take(std::string_view text);
  // TakeText is Take as one text, each line ended by a line feed.
  std::string TakeText();
  void Forget();
  std::vector<std::string> Faults() const;

  // SiteReferences: references that the components hold on the site.
  int SiteReferences() const;

  // The parts, for tests that call a component's own operations.
  IOmbrelContainer* Site() const;
  IOmbrelStatsEngine* Engine() const;
  HostTrace* Trace() const;
  // Path of the policy file that Policy writes, and the host's temporary directory.
  std::string PolicyPath() const;
  std::string Directory() const;

 private:
  struct State;
  static void RequireAttached(Status status);

  std::unique_ptr<State> state_;
};

}  // namespace flow::test
