// SPDX-License-Identifier: Apache-2.0
// Decoding of the fields of a data record, by where their elements' values go.
#pragma once

#include <cstdint>

#include "netflow/decode_state.h"
#include "netflow/elements.h"
#include "netflow/record_plan.h"

namespace flow {

// StartRecord begins a record: everything is 0 and every text empty but the IP version 4.
void StartRecord(DecodeState* state) noexcept;

// DecodeField stores the value of one field.
void DecodeField(const FieldPlace& place, FieldValue field, DecodeState* state);

// DecodeByPlan stores all values of a record as DecodeField would field by field. The caller has
// checked that the whole record is there. Not inlined: its loops need all registers.
[[gnu::noinline]] void DecodeByPlan(const RecordPlan& plan, const std::uint8_t* record,
                                    DecodeState* state);

}  // namespace flow
