// SPDX-License-Identifier: Apache-2.0
// The file of an hour's flows, while it is written: a transaction a minute.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/engine/flow_batch.h"
#include "host/engine/text_map.h"
#include "host/intake/stand_ins.h"
#include "host/store/database.h"
#include "host/store/flow_rows.h"
#include "host/store/session.h"

namespace flow::host {

// Flows in sum; most often those that there was no room to keep.
struct NotKept {
  std::uint64_t flows = 0;
  std::uint64_t bytes = 0;
  std::uint64_t packets = 0;

  void Add(const FlowTotals& flow);
  void Add(const FlowBatch& batch);
  void Add(const FlowSums& sums);
  void Add(const NotKept& other);
};

class FlowFile {
 public:
  // Makes the file, or goes on with it. HostError when it cannot.
  FlowFile(const std::string& path, Sync sync, std::int64_t hour, const StandIns& stand_ins);

  // TrimAfter takes out the rows behind so many.
  void TrimAfter(std::int64_t rows);

  // Write adds flows to a minute, whose transaction begins with the first of them, and gives their
  // sum.
  NotKept Write(std::int64_t minute, const FlowBatch& batch);
  // Commit ends a minute, of which all rows are since the last one; they count from here. The
  // result is how many there are.
  std::uint64_t Commit(std::int64_t minute, const NotKept& not_kept);
  void Rollback();

  void Close() { database_.CloseWritten(); }
  void LeaveAsItIs();

  [[nodiscard]] bool WasMoved() const { return database_.WasMoved(); }
  [[nodiscard]] std::int64_t hour() const { return hour_; }
  [[nodiscard]] const std::string& path() const { return database_.path(); }
  [[nodiscard]] std::int64_t rows() const { return rows_; }

 private:
  void Begin();
  void PutFlow(const Session& session, const FlowTotals& flow, FlowRows::Row* row);
  std::int64_t ExporterId(std::string_view key);
  // 0 for none.
  std::int64_t TextId(const FlowBatch& batch, std::uint32_t number);
  std::int64_t TextId(std::string_view text);
  void WriteRows();
  void ReadNumbers();

  // A text with a number that the file has, or will have when the rows are written.
  struct NewText {
    std::int64_t id;
    std::string text;
  };

  Database database_;
  std::int64_t hour_;
  const StandIns& stand_ins_;
  FlowRows waiting_;
  std::vector<NewText> new_exporters_;
  std::vector<NewText> new_texts_;
  std::int64_t minute_ = 0;  // of the rows
  bool writing_ = false;
  std::int64_t rows_ = 0;
  std::int64_t rows_before_ = 0;     // when the minute began
  TextMap<std::int64_t> exporters_;  // by text
  TextMap<std::int64_t> exporter_keys_;
  TextMap<std::int64_t> texts_;
  std::int64_t next_exporter_ = 1;
  std::int64_t next_text_ = 1;
  std::vector<std::int64_t> batch_texts_;  // of the batch at hand, by its number
};

}  // namespace flow::host
