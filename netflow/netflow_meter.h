// The NetFlow meter: the component that the host calls for every NetFlow and IPFIX datagram. It
// brings together the policy, the templates, the sampling rates and the metering of records, each
// of which is a type of its own; its operations are spread over the files of this folder by
// subject.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>

#include "config/change_checker.h"
#include "config/home_as_feed.h"
#include "config/home_networks.h"
#include "config/netflow_policy.h"
#include "metering/record_metering.h"
#include "netflow/data_record.h"
#include "netflow/duplicate_egress.h"
#include "netflow/export_formats.h"
#include "netflow/export_source.h"
#include "netflow/field_decoder.h"
#include "netflow/sampling_rates.h"
#include "netflow/set_error.h"
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
  bool ReadConfiguration(const char* path);

  // ProcRecord meters one decoded record.
  void ProcRecord(IOmbrelStatsEngine* engine, const nf5_record* rec, const nf5_header* hdr,
                  const ip_header* ip, const ext_fields* ext);

  // DebugDumpTemplates writes the learnt templates as text, to standard output when no file is
  // given.
  int DebugDumpTemplates(FILE* file) const { return templates_.Dump(file); }
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

  // The datagram at hand: its engine, where it came from, and its clock in v9's form.
  struct Datagram {
    IOmbrelStatsEngine* engine;
    const flow::ExportSource& source;
    Bytes packet;
  };
  // A data set at hand: what all of its records share.
  struct DataSet {
    const Datagram& datagram;
    const nf9_header& header;
    const flow::Template& fields;
    flow::DecodeSwitches switches;
  };

  // Passes sampling rates found in records on to the table and the host.
  class RateLearner final : public flow::SamplingRateListener {
   public:
    explicit RateLearner(CPINetflowMeter* meter) : meter_(meter) {}
    void OnSamplingRate(std::uint32_t exporter, std::uint32_t rate) override;

   private:
    CPINetflowMeter* meter_;
  };

  // The policy's parts that are no switches: meter_policy.cpp.
  void LoadStaticTemplates(const XMLNode& element);
  void ProcessStaticTemplate(const XMLNode& element);
  void LoadReloadInterval(const char* path);

  // Intake: netflow_meter.cpp.
  Status Reject(const char* reason);
  Status Decode(const Datagram& datagram);
  void DoPeriodicWork(IOmbrelStatsEngine* engine);
  void ReloadPolicy();
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

  // Data records: data_records.cpp.
  flow::SetError v9_ProcessDataFlowset(const Datagram& datagram, const nf9_header& header,
                                       Bytes set);
  flow::SetError v9_ProcessDataFlowset_single(const DataSet& set, ByteCursor* records);
  flow::SetError DecodeFields(const DataSet& set, ByteCursor* records, flow::DecodedRecord* out);
  void NameApplication(IOmbrelStatsEngine* engine);
  void NameInterface(const Datagram& datagram, const nf9_record& record);
  bool IsDuplicateEgress(const DataSet& set, const nf9_record& record);
  void CountNetflow9(const DataSet& set, const nf9_record& record);

  // Templates, and their channel to the other meters: template_sets.cpp. `broadcast` says that the
  // set came from the wire and is passed on.
  flow::SetError v9_ProcessTemplateFlowset(const flow::ExportSource& source, Bytes set,
                                           flow::TemplateRules rules, bool broadcast);
  void v9_ProcessTemplateOptions(const flow::ExportSource& source, Bytes set, bool broadcast);
  void v10_ProcessTemplateOptions(const flow::ExportSource& source, Bytes set, bool broadcast);
  void PostTemplateSet(const flow::ExportSource& source, Bytes set);
  void LogTemplateMessage(const char* what, std::uint16_t id, const char* from,
                          std::uint32_t exporter, const char* end) const;
  void DumpTemplates() const;

  void SetSamplingRateKeyAttributes(IOmbrelStatsEngine* engine) { rates_.Publish(engine); }

  IOmbrelStatsEngine* engine_ = nullptr;  // of the last Count
  const char* last_error_ = "";
  flow::SetError last_set_error_ = flow::SetError::kNone;
  std::uint64_t datagrams_counted_ = 0;

  flow::NetflowPolicy policy_;
  flow::HomeNetworks home_networks_;
  flow::HomeAsFeed home_as_feed_;
  CPeriodicFileModifyChecker ConfigChecker;
  std::uint64_t last_template_dump_ = 0;  // engine time in seconds

  flow::RecordContext context_;
  flow::ApplicationTexts application_;
  flow::TemplateStore templates_;
  flow::SamplingRates rates_;
  flow::DuplicateEgress duplicates_;
  RateLearner rate_learner_{this};
  flow::FieldDecoder decoder_{&context_, &application_, &rate_learner_};
  flow::RecordMetering metering_{policy_, home_networks_, context_};
};
