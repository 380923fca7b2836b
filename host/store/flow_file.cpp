#include "host/store/flow_file.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <utility>

#include "host/names/key_text.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

std::string InsertFlow() {
  return fmt::format("INSERT INTO flows ({}) VALUES ({})", fmt::join(kFlowColumnNames, ", "),
                     fmt::join(std::vector<std::string>(std::size(kFlowColumnNames), "?"), ", "));
}

bool IsZero(std::span<const std::uint8_t> bytes) {
  for (const std::uint8_t byte : bytes) {
    if (byte != 0) return false;
  }
  return true;
}

// What a flow carried, from each side.
struct Volume {
  std::uint64_t bytes[2];
  std::uint64_t packets[2];

  // Meters of sFlow tell the directions apart in the counters alone.
  explicit Volume(const FlowTotals& flow)
      : bytes{flow.meters[0], flow.meters[1]}, packets{flow.meters[2], flow.meters[3]} {
    if (!IsEmpty(0) || !IsEmpty(1)) return;
    std::copy_n(flow.bytes, 2, bytes);
    std::copy_n(flow.packets, 2, packets);
  }
  [[nodiscard]] bool IsEmpty(int way) const { return (bytes[way] | packets[way]) == 0; }
};

// What a row says of one side of a flow.
struct Side {
  const SessionEnd& end;
  int way;  // its place in pairs
};

}  // namespace

void NotKept::Add(const FlowBatch& batch) {
  flows += batch.table.size();
  batch.table.ForEach([this](std::string_view, const std::uint64_t* values) {
    const Volume volume(*reinterpret_cast<const FlowTotals*>(values));
    bytes += volume.bytes[0] + volume.bytes[1];
    packets += volume.packets[0] + volume.packets[1];
  });
}

void NotKept::Add(const NotKept& other) {
  flows += other.flows;
  bytes += other.bytes;
  packets += other.packets;
}

FlowFile::FlowFile(const std::string& path, Sync sync, std::int64_t hour, const StandIns& stand_ins)
    : database_(Database::ToWrite(path, sync)), hour_(hour), stand_ins_(stand_ins) {
  CreateFlowFile(&database_, hour);
  insert_ = database_.Prepare(InsertFlow());
  ReadNumbers();
}

void FlowFile::ReadNumbers() {
  rows_ = database_.Ask("SELECT max(rowid) FROM flows").value_or(0);
  texts_.clear();
  exporters_.clear();
  Statement texts = database_.Prepare("SELECT id, text FROM texts");
  while (texts.Step()) texts_[std::string(texts.Text(1))] = texts.Integer(0);
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

void FlowFile::Write(std::int64_t minute, const FlowBatch& batch) {
  Begin();
  batch_texts_.assign(batch.texts.size() + 1, 0);
  insert_.Bind(1, minute);
  Session session{};
  batch.table.ForEach([&](std::string_view key, const std::uint64_t* values) {
    FlowTotals flow = *reinterpret_cast<const FlowTotals*>(values);
    if (!ReadSession(key, &session)) session = {};
    flow.tag = static_cast<std::uint32_t>(TextId(batch, flow.tag));
    flow.text = static_cast<std::uint32_t>(TextId(batch, flow.text));
    flow.vrf = static_cast<std::uint32_t>(TextId(batch, flow.vrf));
    flow.app = static_cast<std::uint32_t>(TextId(batch, flow.app));
    flow.user = static_cast<std::uint32_t>(TextId(batch, flow.user));
    BindFlow(session, flow);
    insert_.Run();
    ++rows_;
  });
}

// Side A has the larger port, but for sFlow; who alone has sent is the source in any case.
void FlowFile::BindFlow(const Session& session, const FlowTotals& flow) {
  const Volume volume(flow);
  const bool one_way = volume.IsEmpty(0) || volume.IsEmpty(1);
  const bool from_b = one_way ? !volume.IsEmpty(1) : session.a.port < session.b.port;
  const Side source = from_b ? Side{session.b, 1} : Side{session.a, 0};
  const Side destination = from_b ? Side{session.a, 0} : Side{session.b, 1};
  int place = 1;
  const auto number = [&](std::int64_t value) { insert_.Bind(++place, value); };
  const auto count = [&](std::uint64_t value) { insert_.Bind(++place, value); };
  // Zero is what exporters say when they do not know.
  const auto known = [&](std::int64_t value) {
    value == 0 ? insert_.BindNull(++place) : insert_.Bind(++place, value);
  };
  const auto bytes = [&](std::span<const std::uint8_t> value) {
    value.empty() || IsZero(value) ? insert_.BindNull(++place) : insert_.BindStatic(++place, value);
  };
  const auto hop = [&](std::uint32_t address) {
    address == 0 ? insert_.BindNull(++place)
                 : insert_.Bind(++place, IpAddress::Ipv4(address).bytes());
  };
  // Without times of the exporter there may be a duration.
  const bool has_duration = flow.has_times == 0 && flow.duration_ms != 0;
  number((has_duration ? flow.last_ms - flow.duration_ms : flow.first_ms) - hour_ * 1000);
  number(flow.last_ms - hour_ * 1000);
  insert_.BindStatic(++place, session.AddressOf(source.end));
  insert_.BindStatic(++place, session.AddressOf(destination.end));
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
  bytes(flow.macs[source.way]);
  bytes(flow.macs[destination.way]);
}

std::int64_t FlowFile::ExporterId(std::string_view key) {
  if (key.empty() || key.find_first_not_of("0.") == std::string_view::npos) return 0;
  const auto known = exporters_.find(key);
  if (known != exporters_.end()) return known->second;
  const std::string text = ReadableKey(KeyKind::kGuess, RealKey(stand_ins_, KeyKind::kGuess, key));
  const std::optional<IpAddress> address = IpAddress::Parse(text);
  Statement find = database_.Prepare("SELECT id FROM exporters WHERE text = ?");
  std::int64_t id = find.Bind(1, text).Step() ? find.Integer(0) : 0;
  if (id == 0) {
    database_.Prepare("INSERT INTO exporters (address, text) VALUES (?, ?)")
        .Bind(1, address.value_or(IpAddress()).bytes())
        .Bind(2, text)
        .Run();
    id = database_.Ask("SELECT last_insert_rowid()").value_or(0);
  }
  exporters_.emplace(key, id);
  return id;
}

std::int64_t FlowFile::TextId(const FlowBatch& batch, std::uint32_t number) {
  if (number == 0) return 0;
  std::int64_t& id = batch_texts_[number];
  if (id == 0) id = TextId(batch.TextOf(number));
  return id;
}

std::int64_t FlowFile::TextId(std::string_view text) {
  if (text.empty()) return 0;
  const auto known = texts_.find(text);
  if (known != texts_.end()) return known->second;
  database_.Prepare("INSERT INTO texts (text) VALUES (?)").Bind(1, text).Run();
  const std::int64_t id = database_.Ask("SELECT last_insert_rowid()").value_or(0);
  texts_.emplace(text, id);
  return id;
}

std::uint64_t FlowFile::Commit(std::int64_t minute, const NotKept& not_kept) {
  Begin();
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

}  // namespace flow::host
