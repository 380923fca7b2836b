// SPDX-License-Identifier: Apache-2.0
// Metering of one decoded flow record: from the four records of metering/flow_record.h to the
// host's counter and flow updates, under the policy.
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
#include "metering/record_addenda.h"
#include "metering/record_context.h"

namespace flow {

class RecordMetering {
 public:
  // All three outlive the object. `policy` may change between two records.
  RecordMetering(const NetflowPolicy& policy, const HomeNetworks& home_networks,
                 const RecordContext& context)
      : policy_(policy), home_networks_(home_networks), context_(context) {}

  // ProcRecord meters one record into the engine, or drops it. The site answers what is home and
  // takes the message about a corrupt record. Nothing is kept of the records.
  void ProcRecord(IOmbrelStatsEngine* engine, IOmbrelContainer* site, const nf5_record& rec,
                  const nf5_header& hdr, const ip_header& ip, const ext_fields& ext);

  // Use gives what is known beyond the records that are metered next; null when they say all.
  void Use(const RecordAddenda* addenda) noexcept { addenda_ = addenda; }

  // KeyRules are the policy's rules for session keys.
  [[nodiscard]] SessionKeyRules KeyRules() const noexcept {
    return {.merge = {policy_.fMergeHTTP, policy_.fMergeHTTPS, policy_.fMergeDNS},
            .merge_sources = policy_.fMergeMultipleSources};
  }

 private:
  // What a record counts for, sampling applied.
  struct Amounts {
    std::uint64_t bytes;
    std::uint64_t packets;
  };

  // A record with what is derived from it, all in host byte order.
  struct Record : Metered {
    Record(IOmbrelStatsEngine* to, const nf5_record& record, const nf5_header& header,
           const ext_fields& fields, const Amounts& amounts);

    const nf5_record& rec;
    const nf5_header& hdr;
    const ext_fields& ext;
    std::uint32_t source;
    std::uint32_t destination;
    Ports ports;

    // What later steps find out, beside the direction by the home networks or AS numbers.
    bool source_as_home = false;  // as the AS number itself says, where home is a matter of those
    bool destination_as_home = false;
    const Direction* host_direction = nullptr;  // by the host's own answer
    char source_key[kIpv6KeyLength + 1];        // of the host, by the IP version
    char destination_key[kIpv6KeyLength + 1];
  };

  // Intake.
  [[nodiscard]] Amounts AmountsOf(const nf5_record& rec, const nf5_header& hdr) const;
  void UseExporter(std::uint32_t address);
  [[gnu::cold]] void TellLeftOut(IOmbrelStatsEngine* engine, int reason);
  [[nodiscard]] bool IsCorrupt(const Record& r, std::uint32_t first, std::uint32_t last) const;
  [[gnu::cold]] void LogCorrupt(IOmbrelContainer* site, const Record& r, std::uint32_t first,
                                std::uint32_t last) const;
  void Classify(Record* r) const;
  [[nodiscard]] bool PassesFilters(const Record& r) const;
  static void MakeHostKeys(Record* r);

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
  FLOW_DIR_T MakeFlowKey(const Record& r);
  void TrackFlow(const Record& r);
  void UpdateFlowVolume(const Record& r, FLOW_DIR_T direction);
  void SetFlowTimes(const Record& r);
  void SetExactTimes(IOmbrelStatsEngine* engine);

  const NetflowPolicy& policy_;
  const HomeNetworks& home_networks_;
  const RecordContext& context_;
  const RecordAddenda* addenda_ = nullptr;

  // The exporter of the last record and its key: the same for all records of a datagram.
  std::uint32_t exporter_ = 0;
  Ipv4Key exporter_key_ = MakeIpv4Key(0);

  RecentIpv4Key next_hop_;  // IP and BGP next hop are mostly the same

  char key_[kKeyBufferSize] = {};         // the key being built; valid until the next one
  char second_key_[kKeyBufferSize] = {};  // the other one of a pair
};

}  // namespace flow
