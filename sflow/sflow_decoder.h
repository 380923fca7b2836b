// SPDX-License-Identifier: Apache-2.0
// The sFlow decoder: versions 2, 4 and 5, sample by sample.
//
// It keeps no state outside the record of the call, allocates nothing and reads no byte outside the
// datagram. Malformed or unsupported content ends a datagram early; the samples before it have been
// delivered then. Two diagnostics, and the length error, go to standard error.
#pragma once

#include <cstdint>

#include "sflow/sf_sample.h"

// parseSFlowCallback decodes a datagram of length bytes and calls back after each of its samples,
// counters samples and skipped ones included. It reports no failure.
void parseSFlowCallback(void* context, SFlowCallback callback, const std::uint8_t* datagram,
                        std::uint32_t length);

// readSFlowDatagram is the walk over a datagram whose bounds the record holds. False means that the
// rest was given up; sample->exit says why.
bool readSFlowDatagram(void* context, SFlowCallback callback, _SFSample* sample);
