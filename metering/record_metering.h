// SPDX-License-Identifier: Apache-2.0
// Metering of one decoded flow record: the host's counter and flow updates, under the policy.
#pragma once

#include <cstdint>

#include "config/home_networks.h"
#include "config/netflow_policy.h"
#include "flowhandlers/counter_groups.h"
#include "flowhandlers/counter_keys.h"
#include "flowhandlers/host_interfaces.h"
#include "flowhandlers/session_keys.h"
#include "metering/common_updates.h"
#include "metering/flow_record.h"
#include "metering/record_context.h"

namespace flow {

class RecordMetering {
 public:
  // All three outlive the object. `policy` may change between two records.
  RecordMetering(const NetflowPolicy& policy, const HomeNetworks& home_networks,
                 const RecordContext& context)
      : policy_(policy), home_networks_(home_networks), context_(context) {}

  // ProcRecord meters one record into the engine, or drops it. The site answers what is home and
  // takes the message about a corrupt record. Nothing is kept of the record.
  void ProcRecord(IOmbrelStatsEngine* engine, IOmbrelContainer* site, const FlowRecord& rec,
                  const RecordOrigin& origin);

  // MakeTwoWayKey gives the IPv4 session key of both directions of a record that is metered next,
  // if it is: the key then need not be made again.
  const char* MakeTwoWayKey(const RecordOrigin& origin, FlowRecord* rec);

 private:
  // What a record counts for, sampling applied.
  struct Amounts {
    std::uint64_t bytes;
    std::uint64_t packets;
  };
  // First and last time, as uptimes of the exporter.
  struct Lifetime {
    std::uint32_t first;
    std::uint32_t last;
  };

  // A record with what is derived from it. No function that is not inlined takes one, so that it
  // stays in registers.
  struct Record : Metered {
    const FlowRecord& rec;
    const RecordOrigin& origin;
    const NetflowPolicy& policy;

    // What later steps find out, beside the direction by the home networks or AS numbers.
    bool source_as_home = false;  // as the AS number itself says, where home is a matter of those
    bool destination_as_home = false;
    bool source_host_home = false;  // by the host's own answer
    bool destination_host_home = false;

    [[nodiscard]] Ports GetPorts() const noexcept { return {rec.src_port, rec.dst_port}; }
  };

  // Intake.
  [[nodiscard]] Amounts AmountsOf(const FlowRecord& rec, std::uint32_t sampling_rate) const;
  void UseExporter(std::uint32_t address);
  [[gnu::cold]] void TellLeftOut(IOmbrelStatsEngine* engine, int reason);
  [[nodiscard]] bool IsCorrupt(const Amounts& amounts, const Lifetime& times,
                               const ExportClock& clock) const;
  void Classify(Record* r) const;
  [[nodiscard]] bool PassesFilters(const Record& r) const;
  void MakeHostKeys(const FlowRecord& rec);
  void MakeIpv4HostKeys(const FlowRecord& rec);

  // Counter updates, in their order.
  void UpdateAsNumbers(const Record& r);
  void UpdatePrefixes(const Record& r);
  void UpdateNextHops(const Record& r);
  void UpdateVrf(const Record& r);
  void UpdateEtherType(const Record& r);
  void UpdateHosts(const Record& r);
  void UpdateApplications(const Record& r);
  void UpdatePortApplications(const Record& r);
  void UpdateSubnets(const Record& r);
  void UpdateInterfaces(const Record& r);
  void UpdateLinkAs(const Record& r, const char* in_interface, const char* out_interface);
  void UpdateVendorTexts(const Record& r);
  void UpdateConnections(const Record& r);
  void UpdateMacAddresses(const Record& r);
  void UpdateLast(const Record& r);

  // Flow updates.
  // Inlined, for in parts they stay in registers.
  [[nodiscard, gnu::always_inline]] SessionKeyRules KeyRules() const noexcept {
    return {.merge = {policy_.fMergeHTTP, policy_.fMergeHTTPS, policy_.fMergeDNS},
            .merge_sources = policy_.fMergeMultipleSources};
  }
  // The hosts' keys have been made.
  [[nodiscard, gnu::always_inline]] Conversation ConversationOf(
      const FlowRecord& rec) const noexcept {
    return {rec.protocol,
            {source_key_, rec.src_port, rec.in_ifindex},
            {destination_key_, rec.dst_port, rec.out_ifindex},
            exporter_key_};
  }
  FLOW_DIR_T MakeFlowKey(const Record& r);
  void TrackFlow(const Record& r);
  void UpdateFlowVolume(const Record& r, FLOW_DIR_T direction);
  void SetFlowTimes(const Record& r);
  void SetExactTimes(const Record& r);

  const NetflowPolicy& policy_;
  const HomeNetworks& home_networks_;
  const RecordContext& context_;

  // The exporter of the last record and its keys: the same for all records of a datagram.
  std::uint32_t exporter_ = 0;
  Ipv4Key exporter_key_ = MakeIpv4Key(0);
  InterfaceKey in_interface_;
  InterfaceKey out_interface_;

  RecentIpv4Key next_hop_;  // IP and BGP next hop are mostly the same

  char source_key_[kIpv6KeyLength + 1] = {};  // of the record's hosts, by the IP version
  char destination_key_[kIpv6KeyLength + 1] = {};
  char flow_key_[kKeyBufferSize] = {};
  FLOW_DIR_T two_way_direction_ = FLOW_DIR_FORWARD;  // of MakeTwoWayKey's record within its key
  char key_[kKeyBufferSize] = {};                    // of a counter; valid until the next one
};

}  // namespace flow
