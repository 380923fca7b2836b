// Decoding of one field of a data record, by what its element means.
#pragma once

#include <cstddef>
#include <cstdint>

#include "metering/record_context.h"
#include "netflow/data_record.h"
#include "netflow/elements.h"
#include "netflow/record_plan.h"

namespace flow {

// What has been seen in a record.
enum Presence : std::uint8_t {
  kSourceAddressSeen = 1 << 0,
  kDestinationAddressSeen = 1 << 1,
  kSourcePortSeen = 1 << 2,
  kDestinationPortSeen = 1 << 3,
  kFirstSwitchedSeen = 1 << 4,
  kInputInterfaceSeen = 1 << 5,
  kOutputInterfaceSeen = 1 << 6,
  kIpv6AddressSeen = 1 << 7,
};

// The policy switches that decoding asks.
struct DecodeSwitches {
  bool use_post_nat_addresses;
  bool ignore_out_counts;
};

// Receives the sampling rates that a record carries.
class SamplingRateListener {
 public:
  // `exporter` is an IPv4 address in host byte order.
  virtual void OnSamplingRate(std::uint32_t exporter, std::uint32_t rate) = 0;

 protected:
  ~SamplingRateListener() = default;
};

// The texts of the current record and what outlives it.
struct ApplicationTexts {
  RecordText<128> AppNameText;
  RecordText<128> AppDescText;
  std::int64_t AppSelectorId = 0;  // not cleared between records
};

struct DecodedRecord {
  nf9_record record;
  std::uint8_t presence;
};

class FieldDecoder {
 public:
  FieldDecoder(RecordContext* context, ApplicationTexts* texts, SamplingRateListener* rates)
      : context_(context), texts_(texts), rates_(rates) {}

  // Start begins a record: everything is 0 and every text empty but the exporter's address (host
  // byte order) and the IP version 4.
  void Start(std::uint32_t exporter_address, DecodedRecord* out) const noexcept;

  // DecodeField stores the value of one field, `length` bytes at `value`, which the caller has
  // checked to be there. `is_variable` says that the value brought its own length.
  void DecodeField(Decode decode, const std::uint8_t* value, std::size_t length, bool is_variable,
                   const DecodeSwitches& switches, DecodedRecord* out) const;

  // DecodeByPlan stores all values of a record as DecodeField would field by field. The caller has
  // checked that the whole record is there. Not inlined: its loops need all registers.
  [[gnu::noinline]] void DecodeByPlan(const RecordPlan& plan, const std::uint8_t* record,
                                      const DecodeSwitches& switches, DecodedRecord* out) const;

 private:
  void AddPresence(std::uint8_t presence, DecodedRecord* out) const noexcept;
  void DecodeOther(Decode decode, const std::uint8_t* value, std::size_t length, bool is_variable,
                   const DecodeSwitches& switches, nf9_record* record) const;
  void DecodeApplicationId(const std::uint8_t* value, std::size_t length) const;

  RecordContext* context_;
  ApplicationTexts* texts_;
  SamplingRateListener* rates_;
};

}  // namespace flow
