// SPDX-License-Identifier: Apache-2.0
// The files of flows below a store: one an hour, old ones deleted as files.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/store/flow_file.h"
#include "host/store/retention.h"
#include "host/store/store_options.h"

namespace flow::host {

class FlowFiles {
 public:
  FlowFiles(const StoreOptions& options, const StandIns& stand_ins)
      : options_(options), stand_ins_(stand_ins) {}

  // Trim takes the rows behind so many out of an hour's file: counters know nothing of them.
  void Trim(std::int64_t hour, std::int64_t rows);

  // Open has a minute's file at hand; true when another one was, or none.
  bool Open(std::int64_t bucket);
  // Write adds flows to a minute whose file is at hand, Commit ends it. HostError when one fails,
  // and then Rollback.
  NotKept Write(std::int64_t bucket, const FlowBatch& batch) {
    return file_->Write(Minute(bucket), batch);
  }
  std::uint64_t Commit(std::int64_t bucket, const NotKept& not_kept);
  void Rollback();

  // LetGoIfMoved forgets the file at hand where somebody has removed it; true when it was so.
  bool LetGoIfMoved();

  // DropOld deletes the files that are older than they are kept, and the oldest of more than the
  // limit. The result is their hours.
  std::vector<std::int64_t> DropOld(std::int64_t now, const Retention& retention);

  // Close ends what is written; the result is the file, closed, where there is one.
  std::optional<FlowFile>& Close();
  // Or leaves it to the next start to tidy up.
  void LeaveAsItIs() {
    if (file_) file_->LeaveAsItIs();
  }

  // The file that is written; null before the first.
  [[nodiscard]] const FlowFile* file() const { return file_ ? &*file_ : nullptr; }

 private:
  void MakeFlowFile(const std::string& path, std::int64_t hour);
  static std::int64_t HourOf(std::int64_t bucket) { return bucket / kHourSeconds * kHourSeconds; }
  static std::int64_t Minute(std::int64_t bucket) { return bucket % kHourSeconds / kMinuteSeconds; }

  const StoreOptions& options_;
  const StandIns& stand_ins_;
  std::optional<FlowFile> file_;
};

}  // namespace flow::host
