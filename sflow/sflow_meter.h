// SPDX-License-Identifier: Apache-2.0
// The sFlow meter: counts the flow samples of sFlow datagrams.
//
// It meters what the agent of a datagram has sampled, scaled by the sampling rate of each sample,
// for IPv4 packets, and for those of IPv6 where the policy says so. The exporter is the agent that
// the datagram names, whichever address the datagram came from.
#pragma once

#include <cstdint>

#include "config/home_networks.h"
#include "flowhandlers/session_keys.h"
#include "plugin/component.h"
#include "sflow/sf_sample.h"
#include "sflow/sflow_policy.h"

// The key of a host or an agent.
struct SFlowHostKey {
  void Write(const SFAddress& address, bool is_ipv6) noexcept {
    if (is_ipv6) {
      OmbrelAPI::IP62Hex(address.bytes, text);
    } else {
      OmbrelAPI::Long2IPHex(address.ToHostIPv4(), text);
    }
  }

  char text[flow::kIpv6KeyLength + 1];
};

class CPISFlowMeter : public CArboSitedComponent<CPISFlowMeter, IOmbrelSimpleCounter> {
 public:
  // Two blanks, as hosts know the component.
  static constexpr PluginIdentity kIdentity = {"SFlow  Meter",
                                               "Accounting based on SFLOW version 2,4,5 records"};

  // IOmbrelPlugin
  Status AttachSite(IOmbrelContainer* site) override;

  // IOmbrelSimpleCounter. Count answers 0 whatever the datagram holds.
  Status GetAttachmentProtID(IID* protocol) override;
  Status Count(IOmbrelStatsEngine* engine, IOmbrelProtData* data) override;
  Status IsFlowCounter(bool* isFlow) override;

  // ReadConfiguration loads the policy file; false when its filter lists conflict. A file that
  // cannot be read ends the process.
  bool ReadConfiguration(const char* path);

  // MeterSFlow meters one sample of the datagram that Count is at.
  void MeterSFlow(const _SFSample& sample);

  // ForgetPacket takes the sampled packet out of the record, where the next sample is not to be
  // metered by what it does not have itself.
  void ForgetPacket(_SFSample* sample) const;

 private:
  struct Packet;  // a sampled packet as the updates see it

  void UseAgent(const SFAddress& agent);

  // What becomes of a sample that is not metered like others.
  void PassOver(const _SFSample& sample);
  void MeterUndecoded(const Packet& packet);
  void TellLeftOut(int reason);

  // The updates of one sample, in the order in which MeterSFlow makes them.
  void MeterExporter(const Packet& packet);
  [[nodiscard]] bool PassesFilters(const Packet& packet) const;
  void MeterHosts(const Packet& packet);
  void MeterApplication(const Packet& packet);
  void MeterInterfaces(const Packet& packet);
  void MeterSession(const Packet& packet);
  void MeterTcp(const Packet& packet);  // after MeterSession, whose key it uses
  void MeterVlans(const Packet& packet);
  void MeterMacs(const Packet& packet);

  // The session key, in key_, and the direction of the source within it.
  FLOW_DIR_T MakeFlowKey(const Packet& packet);

  IOmbrelStatsEngine* engine_ = nullptr;  // while Count runs
  std::uint32_t datagram_length_ = 0;     // 0 once it has been metered

  // The agent of the datagram, from its first sample on, and its keys.
  bool has_agent_ = false;
  bool agent_is_ipv6_ = false;
  std::uint32_t agent_ = 0;  // 0 where it is one of IPv6: no list names those
  SFlowHostKey agent_key_ = {};
  std::size_t agent_key_length_ = 0;
  flow::Ipv4Key agent_ipv4_key_ = {};
  char interface_key_[flow::kIpv6KeyLength + 10] = {};  // of its interface at hand

  flow::SFlowPolicy policy_;
  flow::HomeNetworks home_;
  char key_[flow::kKeyBufferSize] = {};
};

// SFlow_Parser_Callback hands a decoded sample to the meter given as context; the result is 1.
int SFlow_Parser_Callback(void* context, _SFSample* sample);
