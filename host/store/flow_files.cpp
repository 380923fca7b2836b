// SPDX-License-Identifier: Apache-2.0
#include "host/store/flow_files.h"

#include <filesystem>

#include "host/store/store_files.h"

namespace flow::host {

void FlowFiles::Trim(std::int64_t hour, std::int64_t rows) {
  const std::string path = FlowFilePath(options_.directory, hour);
  if (!std::filesystem::exists(path)) return;
  FlowFile file(path, options_.sync(), hour, stand_ins_);
  file.TrimAfter(rows);
  file.Close();
}

// Made aside and renamed: who reads meets it with its tables, or not at all.
void FlowFiles::MakeFlowFile(const std::string& path, std::int64_t hour) {
  const std::string draft = path + ".new";
  DropFile(draft);
  MakeFile(draft);
  Database database = Database::ToWrite(draft, options_.sync());
  CreateFlowFile(&database, hour);
  database.CloseWritten();
  DropFile(path);  // a log that is left of one that was removed is none of this one's
  std::filesystem::rename(draft, path);
}

bool FlowFiles::Open(std::int64_t bucket) {
  const std::int64_t hour = HourOf(bucket);
  if (file_ && file_->hour() == hour) return false;
  Close();
  file_.reset();
  const std::string path = FlowFilePath(options_.directory, hour);
  if (!std::filesystem::exists(path)) MakeFlowFile(path, hour);
  file_.emplace(path, options_.sync(), hour, stand_ins_);
  return true;
}

std::uint64_t FlowFiles::Commit(std::int64_t bucket, const NotKept& not_kept) {
  return file_->Commit(Minute(bucket), not_kept);
}

void FlowFiles::Rollback() {
  if (file_) file_->Rollback();
}

bool FlowFiles::LetGoIfMoved() {
  if (!file_ || !file_->WasMoved()) return false;
  file_.reset();
  return true;
}

std::vector<std::int64_t> FlowFiles::DropOld(std::int64_t now, const Retention& retention) {
  std::vector<FlowFileEntry> entries = ListFlowFiles(options_.directory);
  std::uint64_t bytes = 0;
  for (const FlowFileEntry& entry : entries) bytes += entry.bytes;
  std::vector<std::int64_t> dropped;
  if (entries.empty()) return dropped;
  const std::int64_t before =
      retention.Before(now, options_.keep_flows_seconds, entries.front().hour);
  for (const FlowFileEntry& entry : entries) {  // the oldest first
    const bool is_old = entry.hour + kHourSeconds <= before;
    const bool is_much = options_.most_flow_bytes != 0 && bytes > options_.most_flow_bytes;
    if ((!is_old && !is_much) || (file_ && file_->hour() == entry.hour)) continue;
    DropFile(entry.path);
    bytes -= entry.bytes;
    dropped.push_back(entry.hour);
  }
  return dropped;
}

std::optional<FlowFile>& FlowFiles::Close() {
  if (file_) file_->Close();
  return file_;
}

}  // namespace flow::host
