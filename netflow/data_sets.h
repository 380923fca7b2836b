// SPDX-License-Identifier: Apache-2.0
// The data sets of NetFlow v9 and IPFIX: from the bytes of their records to the flow records that
// are metered.
#pragma once

#include <cstdint>
#include <span>
#include <utility>

#include "config/netflow_policy.h"
#include "metering/flow_record.h"
#include "metering/record_metering.h"
#include "netflow/decode_state.h"
#include "netflow/duplicate_egress.h"
#include "netflow/exact_times.h"
#include "netflow/export_formats.h"
#include "netflow/export_source.h"
#include "netflow/host_links.h"
#include "netflow/set_error.h"
#include "netflow/template_store.h"
#include "util/bytes.h"

namespace flow {

class DataSets {
 public:
  // All that is pointed at outlives it.
  DataSets(const NetflowPolicy& policy, const HostLinks& host, const TemplateStore& templates,
           RecordContext* context, SamplingRates* rates, RecordMetering* metering,
           DuplicateEgress duplicates = DuplicateEgress())
      : policy_(policy),
        host_(host),
        templates_(templates),
        metering_(*metering),
        state_{.policy = policy, .host = host, .context = *context, .rates = *rates},
        duplicates_(std::move(duplicates)) {}

  // v9_ProcessDataFlowset meters the records of a set, given from its header to its end.
  SetError v9_ProcessDataFlowset(const ExportSource& source, const nf9_header& header,
                                 std::span<const std::uint8_t> set);

 private:
  // The data set at hand: what all of its records share.
  struct Set {
    const ExportSource& source;
    const Template& fields;
  };

  void Begin(const Set& set, const nf9_header& header);
  SetError v9_ProcessDataFlowset_single(const Set& set, ByteCursor* records);
  SetError DecodeFields(const Template& fields, ByteCursor* records);
  [[gnu::noinline]] SetError DecodeRuns(const Template& fields, ByteCursor* records);
  void DecodeRun(const Template::Run& run, const std::uint8_t* bytes);
  SetError WalkFields(const Template& fields, std::size_t first, ByteCursor* records);
  SetError DecodeNext(const Template& fields, std::size_t i, ByteCursor* records);
  void NameApplication() const;
  void NameInterface(const ExportSource& source) const;
  [[gnu::noinline]] bool IsDuplicateEgress();
  void CountNetflow9(const Set& set);
  [[gnu::cold, gnu::noinline]] void TellLeftOut(const Set& set, int reason) const;
  [[gnu::noinline]] void TakeTimes(const Template::Run& run, const std::uint8_t* bytes);

  const NetflowPolicy& policy_;
  const HostLinks& host_;
  const TemplateStore& templates_;
  RecordMetering& metering_;

  DecodeState state_;    // of the record at hand
  RecordOrigin origin_;  // and of the set at hand
  ExactTimes times_;
  bool takes_times_ = false;
  DuplicateEgress duplicates_;
};

}  // namespace flow
