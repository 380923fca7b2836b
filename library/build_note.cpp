// SPDX-License-Identifier: Apache-2.0
#include "flowhandlers/build_note.h"

#include "flow_revision.h"
#include "flowhandlers/version.h"

namespace {

// Aligned as notes are, which compilers exceed for arrays of this size.
[[gnu::used,
  gnu::section(".note.flowhandlers")]] alignas(4) constexpr flow::BuildNote kBuildNote = {
    sizeof(flow::kBuildNoteName), sizeof(flow::BuildNote::text), flow::kBuildNoteType,
    "flowhandlers", FLOWHANDLERS_VERSION " " FLOW_REVISION};

}  // namespace
