// SPDX-License-Identifier: Apache-2.0
// The flow updates of one record: key, volume, tag, times, close.

#include "flowhandlers/session_keys.h"
#include "metering/record_metering.h"

namespace flow {

const char* RecordMetering::MakeTwoWayKey(const RecordOrigin& origin, FlowRecord* rec) {
  UseExporter(origin.exporter);
  MakeIpv4HostKeys(*rec);
  two_way_direction_ = MakeSessionKey_Bi(KeyRules(), ConversationOf(*rec), flow_key_);
  rec->has_two_way_key = true;
  return flow_key_;
}

FLOW_DIR_T RecordMetering::MakeFlowKey(const Record& r) {
  const bool both_ways = r.policy.fMatchBiDirectionalFlows;
  if (both_ways && r.rec.has_two_way_key && r.rec.ip_version == 4) return two_way_direction_;
  const SessionKeyRules rules = KeyRules();
  const Conversation flow = ConversationOf(r.rec);
  switch (r.rec.ip_version) {
    case 4:
      return both_ways ? MakeSessionKey_Bi(rules, flow, flow_key_)
                       : MakeSessionKey_Uni(rules, flow, flow_key_);
    case 6:
      return both_ways ? MakeSessionKey_IPv6_Bi(rules, flow, flow_key_)
                       : MakeSessionKey_IPv6_Uni(rules, flow, flow_key_);
    default:  // the addresses are no use: all such flows are one
      flow_key_[0] = '\0';
      return FLOW_DIR_FORWARD;
  }
}

void RecordMetering::TrackFlow(const Record& r) {
  const FLOW_DIR_T direction = MakeFlowKey(r);
  UpdateFlowVolume(r, direction);
  if (r.policy.fTagFlowsWithDirection) {
    r.engine->TagFlow(COUNTERID_FLOWS, flow_key_, r.direction->flow_tag);
  }
  SetFlowTimes(r);
  if ((r.rec.tcp_flags & kTcpSynOrRst) != 0 && !r.policy.fTerminateFlowDisabled) {
    r.engine->CloseFlow(COUNTERID_FLOWS, flow_key_);
  }
}

void RecordMetering::UpdateFlowVolume(const Record& r, FLOW_DIR_T direction) {
  if (r.policy.fMeterZeroFlows) {
    // Exporters of events: the number of records is what counts.
    if (r.policy.fTagFlowsWithUserID) {
      r.engine->UpdateFlowCounterWithText(COUNTERID_FLOWS, flow_key_, flows::kForwardBytes, 1,
                                          r.rec.vendor_text64);
    } else {
      r.engine->UpdateFlowCounter(COUNTERID_FLOWS, flow_key_, flows::kForwardBytes, 1);
    }
    return;
  }
  if (direction == FLOW_DIR_FORWARD) {
    r.engine->UpdateFlowCounter(COUNTERID_FLOWS, flow_key_, flows::kForwardBytes, r.bytes);
    r.engine->UpdateFlowCounter(COUNTERID_FLOWS, flow_key_, flows::kForwardPackets, r.packets);
    r.engine->UpdateFlowVolume(flow_key_, r.bytes, 0, r.packets, 0);
  } else {
    r.engine->UpdateFlowCounter(COUNTERID_FLOWS, flow_key_, flows::kReverseBytes, r.bytes);
    r.engine->UpdateFlowCounter(COUNTERID_FLOWS, flow_key_, flows::kReversePackets, r.packets);
    r.engine->UpdateFlowVolume(flow_key_, 0, r.bytes, 0, r.packets);
  }
}

void RecordMetering::SetFlowTimes(const Record& r) {
  if (r.rec.has_times) return SetExactTimes(r);
  if (r.policy.fUseRouterTimestamps) {
    const TimePair start = r.origin.clock.SysUpTimeToTimeVal(r.rec.first);
    const TimePair end = r.origin.clock.SysUpTimeToTimeVal(r.rec.last);
    r.engine->SetFlowTimes(COUNTERID_FLOWS, flow_key_, &start, &end);
  } else if (r.rec.first != 0) {
    r.engine->SetFlowDuration(COUNTERID_FLOWS, flow_key_, r.rec.last - r.rec.first);
  }
}

void RecordMetering::SetExactTimes(const Record& r) {
  const TimePair& start = r.rec.start;
  const TimePair& end = r.rec.end;
  if (r.policy.fUseRouterTimestamps) {
    r.engine->SetFlowTimes(COUNTERID_FLOWS, flow_key_, &start, &end);
  } else {
    const std::int64_t milliseconds =
        (end.seconds - start.seconds) * 1000 + end.milliseconds - start.milliseconds;
    r.engine->SetFlowDuration(COUNTERID_FLOWS, flow_key_, static_cast<std::uint32_t>(milliseconds));
  }
}

}  // namespace flow
