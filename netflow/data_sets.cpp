// SPDX-License-Identifier: Apache-2.0
#include "netflow/data_sets.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "metering/left_out_words.h"
#include "netflow/field_decoder.h"
#include "util/address_text.h"

namespace flow {
namespace {

constexpr std::uint8_t kIngress = 0;
constexpr std::uint8_t kEgress = 1;

// What the source port of a record counts as that has a destination port alone.
constexpr std::uint16_t kUnknownPort = 65535;

// The parts of a record that tell source from destination change places, and the counts of the way
// back take those of the way there.
void Reverse(FlowRecord* record) {
  std::swap(record->src_addr, record->dst_addr);
  std::swap(record->src_port, record->dst_port);
  std::swap(record->in_ifindex, record->out_ifindex);
  std::swap(record->src_as, record->dst_as);
  std::swap(record->src_mac, record->dst_mac);
  std::swap(record->src_addr6, record->dst_addr6);
  std::swap(record->src_mask, record->dst_mask);
  record->has_two_way_key = false;
  record->bytes = record->rev_bytes;
  record->packets = record->rev_packets;
}

}  // namespace

SetError DataSets::v9_ProcessDataFlowset(const ExportSource& source, const nf9_header& header,
                                         std::span<const std::uint8_t> set) {
  duplicates_.StartSet();
  ByteCursor records(set.subspan(sizeof(set_header)));
  if (records.Remaining() == 0) return SetError::kNone;
  SetError error = SetError::kNone;
  const Template* const fields = templates_.Find(source, LoadBe16(set.data()), &error);
  if (fields == nullptr) return error;
  const Set at_hand = {source, *fields};
  Begin(at_hand, header);
  while (records.Remaining() > 0) {
    const std::size_t before = records.Remaining();
    error = v9_ProcessDataFlowset_single(at_hand, &records);
    if (error != SetError::kNone) return error;
    if (records.Remaining() == before) break;  // a template of no length describes one record
  }
  duplicates_.EndSet(host_.site);
  return SetError::kNone;
}

// What all records of a set share.
void DataSets::Begin(const Set& set, const nf9_header& header) {
  const std::uint32_t exporter = set.source.ip.source.AsStored();
  state_.exporter = set.source.Address();
  state_.domain = set.source.domain;
  state_.rate = state_.domain ? state_.rates.RateInDomain(exporter, *state_.domain)
                              : state_.rates.RateOf(exporter);
  state_.packet_interval = 0;
  state_.packet_space.reset();
  origin_.exporter = state_.exporter;
  origin_.clock = ExportClock(header.SysUptime.ToHost(), header.unix_secs.ToHost(), 0);
  takes_times_ = policy_.fExactTimes && set.fields.HasTimes();
}

SetError DataSets::v9_ProcessDataFlowset_single(const Set& set, ByteCursor* records) {
  StartRecord(&state_);
  if (takes_times_) times_.Clear();
  const SetError error = DecodeFields(set.fields, records);
  if (error != SetError::kNone) return error;

  FlowRecord& record = state_.record;
  if (record.dst_port != 0 && record.src_port == 0) record.src_port = kUnknownPort;
  record.has_extras = (state_.presence & kExtrasSeen) != 0;
  if (record.has_extras) {
    NameApplication();
    NameInterface(set.source);
  }
  if (record.first > record.last) std::swap(record.first, record.last);
  // Where all is ingress there is nothing to compare with.
  if (set.fields.CarriesDirection() && IsDuplicateEgress()) {
    TellLeftOut(set, left_out::kDuplicateEgress);
    return SetError::kNone;
  }
  if (policy_.fMeterZeroFlows && policy_.Counted(record.bytes) == 0) {
    record.bytes = 1;
    record.packets = 1;
  }
  if (record.src_addr == 0 && record.dst_addr == 0 && (state_.presence & kIpv6AddressSeen) != 0) {
    record.ip_version = 6;
  }
  constexpr auto kBoth = kSourceAddressSeen | kDestinationAddressSeen;
  if ((state_.presence & kBoth) == kBoth) {
    CountNetflow9(set);
  } else {
    TellLeftOut(set, left_out::kNoAddresses);
  }
  return SetError::kNone;
}

void DataSets::TellLeftOut(const Set& set, int reason) const {
  if (!policy_.fCountLeftOut) return;
  flow::TellLeftOut(host_.engine, kIpv4KeyLength, set.source.address_key.text, reason);
}

[[gnu::always_inline]] inline SetError DataSets::DecodeNext(const Template& fields, std::size_t i,
                                                            ByteCursor* records) {
  std::span<const std::uint8_t> bytes;
  const auto [type, template_length] = fields.Fields()[i];
  std::uint32_t length = template_length;
  const bool is_variable = length == kVariableLength && policy_.fAllowVariableStrings;
  if (is_variable) {
    if (!records->Take(1, &bytes)) return SetError::kVariableOverflow;
    length = bytes[0];
  }
  if (!records->Take(length, &bytes)) {
    return is_variable ? SetError::kVariableOverflow : SetError::kFieldOverflow;
  }
  DecodeField(fields.PlaceOfField(i), {bytes.data(), length, is_variable}, &state_);
  if (takes_times_ && IsExactTime(type)) times_.Take(type, bytes.data(), length);
  return SetError::kNone;
}

SetError DataSets::DecodeFields(const Template& fields, ByteCursor* records) {
  std::span<const std::uint8_t> bytes;
  if (fields.HasPlan() && records->Take(fields.Whole().length, &bytes)) {
    DecodeRun(fields.Whole(), bytes.data());
    return SetError::kNone;
  }
  return DecodeRuns(fields, records);
}

SetError DataSets::DecodeRuns(const Template& fields, ByteCursor* records) {
  std::span<const std::uint8_t> bytes;
  if (!policy_.fAllowVariableStrings) return WalkFields(fields, 0, records);
  for (const Template::Run& run : fields.Runs()) {
    if (!records->Take(run.length, &bytes)) return WalkFields(fields, run.first, records);
    if (!run.plan.IsEmpty()) DecodeRun(run, bytes.data());
    if (run.end == fields.Fields().size()) return SetError::kNone;
    const SetError error = DecodeNext(fields, run.end, records);
    if (error != SetError::kNone) return error;
  }
  return fields.Runs().empty() ? WalkFields(fields, 0, records) : SetError::kNone;
}

void DataSets::DecodeRun(const Template::Run& run, const std::uint8_t* bytes) {
  DecodeByPlan(run.plan, bytes, &state_);
  if (takes_times_) TakeTimes(run, bytes);
}

// Field by field: what comes before an overflow has its effect.
SetError DataSets::WalkFields(const Template& fields, std::size_t first, ByteCursor* records) {
  for (std::size_t i = first; i < fields.Fields().size(); ++i) {
    const SetError error = DecodeNext(fields, i, records);
    if (error != SetError::kNone) return error;
  }
  return SetError::kNone;
}

void DataSets::TakeTimes(const Template::Run& run, const std::uint8_t* bytes) {
  for (const Template::TimeField& time : run.times) {
    times_.Take(time.type, bytes + time.offset, time.length);
  }
}

// Gives the host the name of an application under the key of each classification engine that uses
// its selector, and under the tag itself.
void DataSets::NameApplication() const {
  if (state_.AppNameText.Empty()) return;
  const char* const name = state_.AppNameText.Text();
  const char* const description = state_.AppDescText.Text();
  for (const char* engine_id : {"1:", "3:", "6:", "13:"}) {
    char key[32];
    const std::size_t length = std::strlen(engine_id);
    std::memcpy(key, engine_id, length);
    *PutSignedDecimal(state_.AppSelectorId, key + length) = '\0';
    host_.engine->SetKeyAttributes(COUNTERID_NBAR, key, name, description);
  }
  host_.engine->SetKeyAttributes(COUNTERID_NBAR, state_.context.AppTagText.Text(), name,
                                 description);
}

// The description is what operators know an interface by.
void DataSets::NameInterface(const ExportSource& source) const {
  const FlowRecord& record = state_.record;
  if (record.if_name[0] == '\0') return;
  char key[kInterfaceKeyLength + 1];
  MakeIntfKey(source.address_key, record.in_ifindex, key);
  host_.engine->SetKeyAttributes(COUNTERID_FLOWINTF, key, record.if_desc, record.if_desc);
}

bool DataSets::IsDuplicateEgress() {
  FlowRecord& record = state_.record;
  if (record.direction == kEgress && policy_.fIgnoreAllEgress) {
    duplicates_.CountDropped();
    return true;
  }
  if (policy_.fKeepEgressRecords) return false;
  if (record.direction != kIngress && record.direction != kEgress) return false;
  const char* const key = metering_.MakeTwoWayKey(origin_, &record);
  if (record.direction == kEgress) return duplicates_.IsDuplicate(key);
  duplicates_.AddIngress(key);
  return false;
}

void DataSets::CountNetflow9(const Set& set) {
  FlowRecord& record = state_.record;
  origin_.sampling_rate = policy_.CountedRate(state_.rate);
  if (takes_times_) times_.Tell(&record);
  const bool has_forward = policy_.Counted(record.bytes) != 0;
  if (has_forward) metering_.ProcRecord(host_.engine, host_.site, record, origin_);
  if (policy_.Counted(record.rev_bytes) == 0 ||
      policy_.IgnoreEgressRouterSet.Contains(origin_.exporter)) {
    if (!has_forward) TellLeftOut(set, left_out::kZeroBytes);
    return;
  }
  if (has_forward) TellLeftOut(set, left_out::kReverse);
  Reverse(&record);
  metering_.ProcRecord(host_.engine, host_.site, record, origin_);
}

}  // namespace flow
