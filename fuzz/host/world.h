// SPDX-License-Identifier: Apache-2.0
// A host in the small: an intake, lanes with components of the plug-in, and what they have counted.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "fuzz/datagrams.h"
#include "host/intake/channel_hub.h"
#include "host/intake/intake.h"
#include "host/intake/stand_ins.h"
#include "host/period/period.h"

namespace flow::fuzz {

// UsePolicy has the policy files of all worlds to come be these; EditPolicy edits the one that
// meters read again while they work.
void UsePolicy(std::uint8_t number);
void EditPolicy(std::uint8_t number);
// The number of the policy that stands in a file, -1 where there is none.
int PolicyAt(std::string_view path);

class World {
 public:
  // The lanes work in the thread of the caller, call by call. Half of the time goes into making
  // components: those of sFlow are there where it is.
  World(int lanes, bool has_sflow, host::Timestamp now);
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  void Take(const Datagram& datagram, host::Timestamp now);
  // A message as a start reads it from the kept templates.
  void Deliver(bool has_domain, std::span<const std::uint8_t> message);
  // Has the meters look at their policies, which must be newer than those that they have.
  void Reload(host::Timestamp now);
  void ReplaceMeters(host::Timestamp now);
  void Harvest();
  // Has flows come in parts, whenever there are more than so many.
  void HandOutFlows(std::size_t most);

  [[nodiscard]] const host::Period& counted() const { return counted_; }
  // Exporters on different lanes may name the same sFlow agent, and their flows are the agent's.
  [[nodiscard]] bool HaveSeveralLanesMet(std::string_view flow) const;

 private:
  void NoteFlows(const host::FlowTable& flows, int lane);

  host::ChannelHub channels_;
  host::StandIns stand_ins_;
  host::Lanes lanes_;
  host::Intake intake_;
  host::Period counted_;
  std::map<std::string, int, std::less<>> lanes_of_flows_;  // 0 for several
};

}  // namespace flow::fuzz
