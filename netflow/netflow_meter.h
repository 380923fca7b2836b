// SPDX-License-Identifier: Apache-2.0
// The NetFlow meter: the component that the host calls for every NetFlow and IPFIX datagram. It
// takes in the datagram and cuts it into records or sets; what it knows and does beyond that are
// types of their own.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>

#include "metering/record_metering.h"
#include "netflow/data_sets.h"
#include "netflow/export_formats.h"
#include "netflow/export_source.h"
#include "netflow/host_links.h"
#include "netflow/meter_policy.h"
#include "netflow/sampling_rates.h"
#include "netflow/set_error.h"
#include "netflow/template_sets.h"
#include "netflow/template_store.h"
#include "plugin/component.h"

class CPINetflowMeter
    : public CArboSitedComponent<CPINetflowMeter, IOmbrelSimpleCounter, IOmbrelChannelListener> {
 public:
  static constexpr PluginIdentity kIdentity = {"Netflowv5 Meter",
                                               "Accounting based on Netflowv5 record content"};

  // IOmbrelPlugin
  Status AttachSite(IOmbrelContainer* site) override;

  // IOmbrelSimpleCounter. Count returns 0 for a v1 or v5 datagram that was metered, or one without
  // an IPv4 layer; 1 for a v9 or IPFIX datagram, or a truncated v1 or v5 one; kStatusFailed for
  // what is no export packet.
  Status GetAttachmentProtID(IID* protocol) override;
  Status Count(IOmbrelStatsEngine* engine, IOmbrelProtData* data) override;
  Status IsFlowCounter(bool* isFlow) override;

  // IOmbrelChannelListener
  Status OnChannelMessage(const IID& channel, unsigned int length, void* data) override;
  Status FlushDeferredMessages() override { return kStatusNotSupported; }
  Status SetDeferredMode(bool) override { return kStatusNotSupported; }

  // ReadConfiguration loads the policy file, or loads it again. False when its filters conflict;
  // what was read until then is in force. A file that cannot be read ends the process.
  bool ReadConfiguration(const char* path) { return policy_.ReadConfiguration(path); }

  // DebugDumpTemplates writes the learnt templates as text, to standard output when no file is
  // given.
  int DebugDumpTemplates(FILE* file) const { return templates_.DebugDumpTemplates(file); }
  int DebugDumpTemplates() const { return DebugDumpTemplates(stdout); }

  // DebugDumpSamplingRates writes the sampling rates to standard output.
  FLOW_EXPORT void DebugDumpSamplingRates();

  // For debugging: why the last datagram was rejected, why the last set was given up, and how many
  // datagrams were long enough to be looked at.
  [[nodiscard]] const char* LastErrorText() const noexcept { return last_error_; }
  [[nodiscard]] flow::SetError LastSetError() const noexcept { return last_set_error_; }
  [[nodiscard]] std::uint64_t DatagramsCounted() const noexcept { return datagrams_counted_; }

 private:
  using Bytes = std::span<const std::uint8_t>;

  // The datagram at hand, and where it came from.
  struct Datagram {
    const flow::ExportSource& source;
    Bytes packet;
  };

  // Intake: netflow_meter.cpp.
  Status Reject(const char* reason);
  Status Decode(const Datagram& datagram);
  void DoPeriodicWork();
  void CountExportVolume(const Datagram& datagram);

  // NetFlow v1 and v5: fixed_formats.cpp. True when the packet was rejected as truncated.
  bool Process_v1(const Datagram& datagram);
  bool Process_v5(const Datagram& datagram);
  void ClearRecordTexts();

  // NetFlow v9 and IPFIX, sets: set_walk.cpp. A set is given from its header to its end.
  bool Process_v9(const Datagram& datagram);
  bool Process_v10(const Datagram& datagram);
  void GiveUp(flow::SetError why);
  flow::SetError v9_ProcessRecord(const Datagram& datagram, const nf9_header& header, Bytes set);
  flow::SetError v10_ProcessRecord(const Datagram& datagram, const nf9_header& header, Bytes set);

  flow::HostLinks host_{.site = site_};
  const char* last_error_ = "";
  flow::SetError last_set_error_ = flow::SetError::kNone;
  std::uint64_t datagrams_counted_ = 0;

  flow::TemplateStore templates_;
  flow::SamplingRates rates_;
  flow::MeterPolicy policy_{host_, &templates_, &rates_};
  flow::RecordContext context_;
  flow::RecordMetering metering_{policy_.Settings(), policy_.HomeNetworks(), context_};
  flow::TemplateSets template_sets_{policy_.Settings(), host_, &templates_, this};
  flow::FlowRecord fixed_record_ = {};  // of NetFlow v1 and v5
  flow::DataSets data_sets_{policy_.Settings(), host_, templates_, &context_, &rates_, &metering_};
};
