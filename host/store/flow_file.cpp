// SPDX-License-Identifier: Apache-2.0
#include "host/store/flow_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "host/base/memory_budget.h"
#include "host/base/printable.h"
#include "host/names/key_text.h"
#include "host/store/flow_sides.h"
#include "host/store/schema.h"
#include "host/store/store_files.h"

namespace flow::host {
namespace {

// The largest integer of the database.
constexpr std::uint64_t kLargestCount = std::numeric_limits<std::int64_t>::max();

bool IsZero(std::span<const std::uint8_t> bytes) {
  for (const std::uint8_t byte : bytes) {
    if (byte != 0) return false;
  }
  return true;
}

Database OpenFlowFile(const std::string& path, Sync sync, std::int64_t hour) {
  Database database = Database::ToWrite(path, sync);
  CreateFlowFile(&database, hour);
  return database;
}

}  // namespace

void NotKept::Add(const FlowTotals& flow) {
  const FlowVolume volume(flow);
  ++flows;
  bytes += volume.bytes[0] + volume.bytes[1];
  packets += volume.packets[0] + volume.packets[1];
}

void NotKept::Add(const FlowBatch& batch) {
  batch.table.ForEachPacked([this](std::string_view, const FlowTotals& flow) { Add(flow); });
}

void NotKept::Add(const FlowSums& sums) {
  flows += sums.flows;
  bytes += sums.bytes;
  packets += sums.packets;
}

void NotKept::Add(const NotKept& other) {
  flows += other.flows;
  bytes += other.bytes;
  packets += other.packets;
}

FlowFile::FlowFile(const std::string& path, Sync sync, std::int64_t hour, const StandIns& stand_ins)
    : database_(OpenFlowFile(path, sync, hour)),
      hour_(hour),
      stand_ins_(stand_ins),
      waiting_(&database_) {
  ReadNumbers();
}

void FlowFile::ReadNumbers() {
  rows_ = database_.Ask("SELECT max(rowid) FROM flows").value_or(0);
  waiting_.Clear();
  new_texts_.clear();
  new_exporters_.clear();
  texts_.clear();
  exporters_.clear();
  exporter_keys_.clear();
  next_text_ = database_.Ask("SELECT max(id) FROM texts").value_or(0) + 1;
  next_exporter_ = database_.Ask("SELECT max(id) FROM exporters").value_or(0) + 1;
  const std::string limit = fmt::format(" ORDER BY id LIMIT {}", Shares().file_texts + 1);
  Statement texts = database_.Prepare("SELECT id, text FROM texts" + limit);
  while (texts.Step()) texts_[std::string(texts.Text(1))] = texts.Integer(0);
  Statement exporters = database_.Prepare("SELECT id, text FROM exporters" + limit);
  while (exporters.Step()) exporters_[std::string(exporters.Text(1))] = exporters.Integer(0);
}

void FlowFile::TrimAfter(std::int64_t rows) {
  if (rows_ <= rows) return;
  database_.Begin();
  database_.Execute(
      fmt::format("DELETE FROM flows WHERE rowid > {0}; DELETE FROM minutes WHERE first_row > {0}; "
                  "UPDATE minutes SET last_row = {0} WHERE last_row > {0}",
                  rows));
  database_.Commit();
  ReadNumbers();
}

void FlowFile::Begin() {
  if (std::exchange(writing_, true)) return;
  database_.Begin();
  rows_before_ = rows_;
}

NotKept FlowFile::Write(std::int64_t minute, const FlowBatch& batch) {
  Begin();
  batch_texts_.assign(batch.texts.size() + 1, 0);
  minute_ = minute;
  NotKept sums;
  Session session{};
  batch.table.ForEach([&](std::string_view key, const FlowTotals& counted) {
    FlowTotals flow = counted;
    sums.Add(flow);
    if (!ReadSession(key, &session)) session = {};
    flow.tag = static_cast<std::uint32_t>(TextId(batch, flow.tag));
    flow.text = static_cast<std::uint32_t>(TextId(batch, flow.text));
    flow.vrf = static_cast<std::uint32_t>(TextId(batch, flow.vrf));
    flow.app = static_cast<std::uint32_t>(TextId(batch, flow.app));
    flow.user = static_cast<std::uint32_t>(TextId(batch, flow.user));
    if (waiting_.IsFull()) waiting_.Write();
    PutFlow(session, flow, &waiting_.Add());
    ++rows_;
  });
  WriteRows();
  return sums;
}

void FlowFile::WriteRows() {
  waiting_.Write();
  for (const NewText& text : std::exchange(new_texts_, {})) {
    database_.Prepare("INSERT INTO texts VALUES (?, ?)").Bind(1, text.id).Bind(2, text.text).Run();
  }
  for (const NewText& exporter : std::exchange(new_exporters_, {})) {
    const IpAddress address = IpAddress::Parse(exporter.text).value_or(IpAddress());
    database_.Prepare("INSERT INTO exporters VALUES (?, ?, ?)")
        .Bind(1, exporter.id)
        .Bind(2, address.bytes())
        .Bind(3, exporter.text)
        .Run();
  }
}

void FlowFile::PutFlow(const Session& session, const FlowTotals& flow, FlowRows::Row* row) {
  const FlowVolume volume(flow);
  const auto [source, destination] = SidesOf(session, volume);
  auto cell = row->begin();
  const auto number = [&](std::int64_t value) { (cell++)->Set(value); };
  const auto count = [&](std::uint64_t value) {
    number(static_cast<std::int64_t>(std::min(value, kLargestCount)));
  };
  // Zero is what exporters say when they do not know.
  const auto known = [&](std::int64_t value) { value == 0 ? (cell++)->Clear() : number(value); };
  const auto bytes = [&](std::span<const std::uint8_t> value) { (cell++)->Set(value); };
  const auto known_bytes = [&](std::span<const std::uint8_t> value) {
    IsZero(value) ? (cell++)->Clear() : bytes(value);
  };
  const auto hop = [&](std::uint32_t address) {
    address == 0 ? (cell++)->Clear() : bytes(IpAddress::Ipv4(address).bytes());
  };
  number(minute_);
  number(FirstOf(flow) - hour_ * 1000);
  number(flow.last_ms - hour_ * 1000);
  bytes(session.AddressOf(source.end));
  bytes(session.AddressOf(destination.end));
  number(source.end.port);
  number(destination.end.port);
  number(session.protocol);
  count(volume.bytes[source.way]);
  count(volume.packets[source.way]);
  count(volume.bytes[destination.way]);
  count(volume.packets[destination.way]);
  number(flow.records);
  number(flow.closes != 0 ? 1 : 0);
  known(ExporterId(session.exporter));
  known(source.end.interface);
  known(destination.end.interface);
  known(flow.as_numbers[source.way]);
  known(flow.as_numbers[destination.way]);
  hop(flow.next_hops[0]);
  hop(flow.next_hops[1]);
  known(flow.vrf);
  known(flow.app);
  known(flow.user != 0 ? flow.user : flow.text);
  known(flow.tag);
  known_bytes(flow.macs[source.way]);
  known_bytes(flow.macs[destination.way]);
}

std::int64_t FlowFile::ExporterId(std::string_view key) {
  if (key.empty() || key.find_first_not_of("0.") == std::string_view::npos) return 0;
  const auto known = exporter_keys_.find(key);
  if (known != exporter_keys_.end()) return known->second;
  if (exporters_.size() >= Shares().file_texts) {
    NoteLetGo(LetGo::kTexts, 1);
    return 0;
  }
  const std::string text = ReadableKey(KeyKind::kGuess, RealKey(stand_ins_, KeyKind::kGuess, key));
  const auto [exporter, is_new] = exporters_.emplace(text, next_exporter_);
  if (is_new) new_exporters_.push_back({next_exporter_++, text});
  return exporter_keys_.emplace(key, exporter->second).first->second;
}

std::int64_t FlowFile::TextId(const FlowBatch& batch, std::uint32_t number) {
  if (number == 0) return 0;
  std::int64_t& id = batch_texts_[number];
  if (id == 0) id = TextId(batch.TextOf(number));
  return id;
}

std::int64_t FlowFile::TextId(std::string_view raw) {
  if (raw.empty()) return 0;
  const std::string text = Utf8(raw);
  if (texts_.size() >= Shares().file_texts && text != kTextNotKept && !texts_.contains(text)) {
    NoteLetGo(LetGo::kTexts, 1);
    return TextId(kTextNotKept);
  }
  const auto [known, is_new] = texts_.emplace(text, next_text_);
  if (is_new) new_texts_.push_back({next_text_++, text});
  return known->second;
}

std::uint64_t FlowFile::Commit(std::int64_t minute, const NotKept& not_kept) {
  Begin();
  if (rows_ > rows_before_ && minute_ != minute) {
    database_.Prepare("UPDATE flows SET minute = ? WHERE rowid > ?")
        .Bind(1, minute)
        .Bind(2, rows_before_)
        .Run();
  }
  database_
      .Prepare(
          "INSERT INTO minutes VALUES (?, ?, ?, ?, ?, ?) ON CONFLICT DO UPDATE SET last_row = "
          "excluded.last_row, not_kept = not_kept + excluded.not_kept, not_kept_bytes = "
          "not_kept_bytes + excluded.not_kept_bytes, not_kept_packets = not_kept_packets + "
          "excluded.not_kept_packets")
      .Bind(1, minute)
      .Bind(2, rows_before_ + 1)
      .Bind(3, rows_)
      .Bind(4, not_kept.flows)
      .Bind(5, not_kept.bytes)
      .Bind(6, not_kept.packets)
      .Run();
  database_.Commit();
  writing_ = false;
  return static_cast<std::uint64_t>(rows_ - rows_before_);
}

// What the minute had is gone, and with it the numbers that it gave away.
void FlowFile::Rollback() {
  if (!std::exchange(writing_, false)) return;
  database_.Rollback();
  ReadNumbers();
}

void FlowFile::LeaveAsItIs() { host::LeaveAsItIs(&database_); }

}  // namespace flow::host
