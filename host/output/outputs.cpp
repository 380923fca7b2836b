// SPDX-License-Identifier: Apache-2.0
#include "host/output/outputs.h"

namespace flow::host {
namespace {

constexpr OutputKind kOutputs[] = {
    {"json", "FILE", "Write everything as JSON; - for standard output", true, WriteJson},
    {"csv", "DIR", "Write everything as CSV files, one per group", false, WriteCsv},
    {"sqlite", "FILE", "Write everything into an SQLite database", false, WriteSqlite, AppendSqlite,
     PrepareSqlite},
};

}  // namespace

std::span<const OutputKind> OutputKinds() { return kOutputs; }

void Prepare(std::span<const Destination> destinations, Existing existing) {
  for (const Destination& to : destinations) {
    if (to.kind->prepare != nullptr) to.kind->prepare(to.place, existing);
  }
}

}  // namespace flow::host
