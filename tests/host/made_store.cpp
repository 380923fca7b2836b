// SPDX-License-Identifier: Apache-2.0
#include "tests/host/made_store.h"

#include <absl/container/flat_hash_map.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>

#include "flowhandlers/counter_groups.h"
#include "host/border/component_catalog.h"
#include "host/names/group_catalog.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

// What a key has, by the names of columns.
struct Sums {
  std::uint64_t bytes = 0;
  std::uint64_t packets = 0;
  std::uint64_t in = 0;
  std::uint64_t out = 0;
  std::uint64_t flows = 0;

  void Add(const Sums& other) {
    bytes += other.bytes;
    packets += other.packets;
    in += other.in;
    out += other.out;
    flows += other.flows;
  }
  [[nodiscard]] std::uint64_t Of(const std::string& column) const {
    if (column == "bytes") return bytes;
    if (column == "packets") return packets;
    if (column == "bytes_in" || column == "recv") return in;
    if (column == "bytes_out" || column == "xmit") return out;
    return column == "flows" ? flows : 0;
  }
};

enum Group { kTotals, kHosts, kHosts6, kInterfaces, kApplications, kProtocols, kAs, kGroupCount };
constexpr std::string_view kIds[] = {"totals",       "hosts",     "hosts6",    "flowintfs",
                                     "applications", "protocols", "as_numbers"};
static_assert(std::size(kIds) == kGroupCount);

// By a key's number.
using Counts = std::array<absl::flat_hash_map<std::uint32_t, Sums>, kGroupCount>;

bool IsIpv6(int host) { return host % 16 == 15; }

void Count(const MadeFlow& flow, Counts* counts) {
  const Sums both{flow.bytes + flow.bytes_back, flow.packets + flow.packets_back, 0, 0, 1};
  const auto add = [counts](Group group, std::uint32_t key, const Sums& sums) {
    (*counts)[group][key].Add(sums);
  };
  add(kTotals, 0, both);
  add(kTotals, 1, {flow.bytes, flow.packets});
  add(kTotals, 2, {flow.bytes_back, flow.packets_back});
  const auto host = [&](int number, std::uint64_t in, std::uint64_t out) {
    add(IsIpv6(number) ? kHosts6 : kHosts, static_cast<std::uint32_t>(number),
        {both.bytes, both.packets, in, out, 1});
  };
  host(flow.source, flow.bytes_back, flow.bytes);
  host(flow.destination, flow.bytes, flow.bytes_back);
  const auto interface = [&](std::uint32_t index, std::uint64_t in, std::uint64_t out) {
    add(kInterfaces, static_cast<std::uint32_t>(flow.exporter) << 16 | index,
        {in + out, 0, in, out, 1});
  };
  interface(flow.in_interface, flow.bytes, flow.bytes_back);
  interface(flow.out_interface, flow.bytes_back, flow.bytes);
  add(kApplications, flow.destination_port, both);
  add(kProtocols, flow.protocol, both);
  add(kAs, flow.source_as, both);
  add(kAs, flow.destination_as, both);
}

std::string KeyText(const MadeStore& made, int group, std::uint32_t key) {
  constexpr std::string_view kTotalNames[] = {"all", "out of home", "into home"};
  switch (group) {
    case kTotals:
      return std::string(kTotalNames[key]);
    case kHosts:
    case kHosts6:
      return MadeHost(made, static_cast<int>(key)).Text();
    case kInterfaces:
      return fmt::format("{} if {}", MadeExporter(static_cast<int>(key >> 16)).Text(),
                         key & 0xFFFF);
    case kAs:
      return fmt::format("AS{}", key);
    default:
      return fmt::format("{}", key);
  }
}

// The databases of a made store, minute by minute.
class Writer {
 public:
  Writer(const MadeStore& made, const std::string& directory)
      : made_(made), directory_(directory), counters_(MakeCounters(directory)) {
    const auto groups = MadeGroups();
    for (std::size_t i = 0; i < kGroupCount; ++i) columns_[i] = ValueColumns(groups[i]);
  }

  void Write();

 private:
  static Database MakeCounters(const std::string& directory) {
    std::filesystem::create_directories(FlowDirectory(directory));
    Database database = Database::ToWrite(CountersPath(directory));
    CreateCounters(&database, MadeGroups());
    return database;
  }
  void WriteHour(std::int64_t hour);
  void WriteMinute(std::int64_t minute, Database* flows);
  void EndTier(std::size_t tier, std::int64_t bucket);
  void WriteGroup(std::size_t tier, std::size_t group, std::int64_t bucket);
  void WriteBucket(const Tier& tier, std::int64_t bucket, const Sums& all);
  void WriteExporters(const Tier& tier, std::int64_t bucket);
  void WriteLoss(const Tier& tier, std::int64_t bucket);
  void WriteRuns();

  const MadeStore& made_;
  std::string directory_;
  Database counters_;
  std::array<std::vector<ValueColumn>, kGroupCount> columns_;
  struct Span {
    Counts counts;
    std::array<Sums, kMadeExporters> exporters;
    std::int64_t ran = 0;
    bool has_loss = false;
  };
  std::array<Span, std::size(kTiers)> spans_;
};

// The parts of the long flow have one end or the other as their source.
MadeFlow AsStored(const MadeFlow& flow) {
  MadeFlow stored = flow;
  if (flow.source_port != kMadeLongPort || flow.bucket / kMinuteSeconds % 2 == 0) return stored;
  std::swap(stored.source, stored.destination);
  std::swap(stored.source_port, stored.destination_port);
  std::swap(stored.bytes, stored.bytes_back);
  std::swap(stored.packets, stored.packets_back);
  std::swap(stored.in_interface, stored.out_interface);
  std::swap(stored.source_as, stored.destination_as);
  return stored;
}

void PutFlow(const MadeStore& made, const MadeFlow& flow, std::int64_t hour, Statement* row) {
  const auto bytes = [&](int place, const IpAddress& address) {
    row->Bind(place, address.bytes());
  };
  bytes(4, MadeHost(made, flow.source));
  bytes(5, MadeHost(made, flow.destination));
  const std::int64_t values[] = {(flow.bucket - hour) / kMinuteSeconds, flow.first_ms - hour * 1000,
                                 flow.last_ms - hour * 1000};
  for (int i = 0; i < 3; ++i) row->Bind(i + 1, values[i]);
  const std::uint64_t more[] = {flow.source_port,
                                flow.destination_port,
                                flow.protocol,
                                flow.bytes,
                                flow.packets,
                                flow.bytes_back,
                                flow.packets_back,
                                1,
                                flow.protocol == 6 ? 1U : 0U,
                                static_cast<std::uint64_t>(flow.exporter) + 1,
                                flow.in_interface,
                                flow.out_interface,
                                flow.source_as,
                                flow.destination_as};
  int place = 6;
  for (const std::uint64_t value : more) row->Bind(place++, value);
  row->Run();
}

void Writer::Write() {
  const std::int64_t end = made_.start + made_.hours * kHourSeconds;
  for (std::int64_t hour = made_.start; hour < end; hour += kHourSeconds) {
    WriteHour(hour);
    if ((hour + kHourSeconds) % kDaySeconds == 0) EndTier(2, hour / kDaySeconds * kDaySeconds);
  }
  WriteRuns();
  counters_.CloseWritten();
}

void Writer::WriteHour(std::int64_t hour) {
  const std::string path = FlowFilePath(directory_, hour);
  Database flows = Database::ToWrite(path);
  CreateFlowFile(&flows, hour);
  flows.Begin();
  for (int i = 0; i < kMadeExporters; ++i) {
    const IpAddress address = MadeExporter(i);
    flows.Prepare("INSERT INTO exporters VALUES (?, ?, ?)")
        .Bind(1, std::int64_t{i} + 1)
        .Bind(2, address.bytes())
        .Bind(3, address.Text())
        .Run();
  }
  counters_.Begin();
  for (std::int64_t at = hour; at < hour + kHourSeconds; at += kMinuteSeconds) {
    WriteMinute(at, &flows);
  }
  EndTier(1, hour);
  counters_.Prepare("INSERT INTO flow_files VALUES (?, ?, ?, ?, 1)")
      .Bind(1, hour)
      .Bind(2, std::filesystem::path(path).filename().string())
      .Bind(3, flows.Ask("SELECT count(*) FROM flows").value_or(0))
      .Bind(4, std::int64_t{0})
      .Run();
  counters_.Commit();
  flows.Commit();
  flows.CloseWritten();
}

void Writer::WriteMinute(std::int64_t minute, Database* flows) {
  const std::int64_t hour = minute / kHourSeconds * kHourSeconds;
  const auto number = static_cast<int>((minute - made_.start) / kMinuteSeconds);
  Span& span = spans_[0];
  Statement row = flows->Prepare(
      "INSERT INTO flows (minute, first, last, src, dst, sport, dport, proto, bytes, packets, "
      "bytes_rev, packets_rev, records, closed, exporter, in_if, out_if, src_as, dst_as) VALUES "
      "(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  const std::int64_t before = flows->Ask("SELECT max(rowid) FROM flows").value_or(0);
  FlowsOfMinute(made_, number, [&](const MadeFlow& flow) {
    PutFlow(made_, AsStored(flow), hour, &row);
    Count(flow, &span.counts);
    span.exporters[static_cast<std::size_t>(flow.exporter)].Add({flow.bytes, 0, 0, 0, 1});
  });
  const std::int64_t last = flows->Ask("SELECT max(rowid) FROM flows").value_or(0);
  flows->Prepare("INSERT INTO minutes VALUES (?, ?, ?, 0, 0, 0)")
      .Bind(1, (minute - hour) / kMinuteSeconds)
      .Bind(2, before + 1)
      .Bind(3, last)
      .Run();
  span.ran = IsGap(made_, number) ? 0 : kMinuteSeconds;
  span.has_loss = number == kMadeLossMinute;
  EndTier(0, minute);
}

// A tier's rows, and what it has goes into the next.
void Writer::EndTier(std::size_t tier, std::int64_t bucket) {
  Span& span = spans_[tier];
  for (std::size_t group = 0; group < kGroupCount; ++group) WriteGroup(tier, group, bucket);
  WriteBucket(kTiers[tier], bucket, span.counts[kTotals][0]);
  WriteExporters(kTiers[tier], bucket);
  if (span.has_loss) WriteLoss(kTiers[tier], bucket);
  if (tier + 1 < spans_.size()) {
    Span& next = spans_[tier + 1];
    for (std::size_t group = 0; group < kGroupCount; ++group) {
      for (const auto& [key, sums] : span.counts[group]) next.counts[group][key].Add(sums);
    }
    for (std::size_t i = 0; i < kMadeExporters; ++i) next.exporters[i].Add(span.exporters[i]);
    next.ran += span.ran;
    next.has_loss |= span.has_loss;
  }
  span = {};
}

void Writer::WriteGroup(std::size_t tier, std::size_t group, std::int64_t bucket) {
  std::vector<std::pair<std::uint32_t, Sums>> rows(spans_[tier].counts[group].begin(),
                                                   spans_[tier].counts[group].end());
  if (rows.empty()) return;
  std::ranges::sort(rows, [](const auto& a, const auto& b) {
    return std::pair(b.second.bytes, a.first) < std::pair(a.second.bytes, b.first);
  });
  const auto& columns = columns_[group];
  std::string places = "?, ?, ?, 0";
  for (std::size_t i = 0; i < columns.size(); ++i) places += ", ?";
  Statement put = counters_.Prepare(
      fmt::format("INSERT INTO {} VALUES ({})", TierTable(kIds[group], kTiers[tier]), places));
  const auto write = [&](const std::string& key, std::size_t keys, const Sums& sums) {
    put.Bind(1, bucket).Bind(2, key).Bind(3, std::uint64_t{keys});
    int place = 4;
    for (const ValueColumn& column : columns) {
      column.meters.empty() ? put.BindNull(place) : put.Bind(place, sums.Of(column.name));
      ++place;
    }
    put.Run();
  };
  const std::size_t kept =
      std::min(rows.size(), made_.kept_keys == 0 ? kTiers[tier].kept_keys : made_.kept_keys);
  for (std::size_t i = 0; i < kept; ++i)
    write(KeyText(made_, static_cast<int>(group), rows[i].first), 1, rows[i].second);
  Sums others;
  for (std::size_t i = kept; i < rows.size(); ++i) others.Add(rows[i].second);
  write(std::string(kOthersKey), rows.size() - kept, others);
}

void Writer::WriteBucket(const Tier& tier, std::int64_t bucket, const Sums& all) {
  const std::int64_t ran = spans_[static_cast<std::size_t>(&tier - kTiers)].ran;
  counters_.Prepare("INSERT INTO buckets VALUES (?, ?, ?, ?, 0, ?, ?, ?, ?, ?, 0)")
      .Bind(1, tier.name)
      .Bind(2, bucket)
      .Bind(3, tier.seconds)
      .Bind(4, ran)
      .Bind(5, all.flows / 20)
      .Bind(6, all.flows)
      .Bind(7, all.bytes)
      .Bind(8, all.packets)
      .Bind(9, all.flows)
      .Run();
}

void Writer::WriteExporters(const Tier& tier, std::int64_t bucket) {
  const Span& span = spans_[static_cast<std::size_t>(&tier - kTiers)];
  for (int i = 0; i < kMadeExporters; ++i) {
    const std::uint64_t records = span.exporters[static_cast<std::size_t>(i)].flows;
    if (records == 0) continue;
    const std::int64_t last_seen = bucket + tier.seconds - 1;
    const std::string address = MadeExporter(i).Text();
    counters_
        .Prepare(fmt::format("INSERT INTO health_{} (bucket, exporter, port, version, datagrams, "
                             "bytes, described, reverse, records, left_out, refused, templates, "
                             "lost, lost_unit, last_seen) VALUES (?, ?, 2055, 'v9', ?, ?, ?, 0, ?, "
                             "0, 0, 5, ?, 'datagrams', ?)",
                             tier.name))
        .Bind(1, bucket)
        .Bind(2, address)
        .Bind(3, records / 20 + 1)
        .Bind(4, records * 60)
        .Bind(5, records)
        .Bind(6, records)
        .Bind(7, i == 0 && span.has_loss ? kMadeLost : 0)
        .Bind(8, last_seen)
        .Run();
    if (tier.seconds != kMinuteSeconds) continue;
    counters_
        .Prepare(
            "INSERT INTO exporters VALUES (?1, 2055, 'v9', ?2, ?3, 5, 1000, -1500) ON CONFLICT "
            "DO UPDATE SET last_seen = ?3")
        .Bind(1, address)
        .Bind(2, bucket)
        .Bind(3, last_seen)
        .Run();
  }
}

void Writer::WriteLoss(const Tier& tier, std::int64_t bucket) {
  counters_
      .Prepare(fmt::format("INSERT INTO losses_{} VALUES (?, ?, 2055, 'v9', 'way', 'sequence', ?, "
                           "'datagrams')",
                           tier.name))
      .Bind(1, bucket)
      .Bind(2, MadeExporter(0).Text())
      .Bind(3, kMadeLost)
      .Run();
}

void Writer::WriteRuns() {
  const auto minute = [this](int number) { return made_.start + number * kMinuteSeconds; };
  const std::int64_t end = minute(made_.hours * 60);
  const bool has_gap = made_.gap_from < made_.gap_to;
  Statement run = counters_.Prepare("INSERT INTO runs VALUES (NULL, ?, ?, ?, ?, 'made')");
  if (has_gap) {
    const std::int64_t killed = minute(made_.gap_from);
    run.Bind(1, made_.start).Bind(2, killed).Bind(3, killed).Bind(4, "killed").Run();
    counters_.Prepare("INSERT INTO gaps VALUES (?, ?, 'not running')")
        .Bind(1, killed)
        .Bind(2, minute(made_.gap_to))
        .Run();
  }
  run.Bind(1, minute(has_gap ? made_.gap_to : 0)).Bind(2, end).Bind(3, end).Bind(4, "end").Run();
  counters_.Execute(
      "INSERT INTO names VALUES ('applications', '443', 'https'), "
      "('applications', '53', 'domain'), ('protocols', '6', 'tcp')");
  counters_.Prepare("INSERT INTO labels VALUES ('hosts', ?, 'backup-1', '')")
      .Bind(1, MadeHost(made_, 0).Text())
      .Run();
}

// Mixes well, and is the same everywhere.
std::uint64_t Mix(std::uint64_t x) {
  x += 0x9E3779B97F4A7C15;
  x = (x ^ x >> 30) * 0xBF58476D1CE4E5B9;
  x = (x ^ x >> 27) * 0x94D049BB133111EB;
  return x ^ x >> 31;
}

// Small numbers are much more frequent.
int Skewed(std::uint64_t random, int below) {
  constexpr std::uint64_t kMask = (1U << 20) - 1;
  const std::uint64_t x = random & kMask;
  const std::uint64_t cube = (x * x >> 20) * x >> 20;
  return static_cast<int>(cube * static_cast<std::uint64_t>(below) >> 20);
}

// A part of the long flow.
void MakeLong(const MadeStore& made, MadeFlow* flow) {
  constexpr std::int64_t kLength = 59'000;
  flow->source = 1;
  flow->destination = made.hosts + 17;
  flow->source_port = kMadeLongPort;
  flow->destination_port = 443;
  flow->protocol = 6;
  flow->first_ms = flow->bucket * 1000;
  flow->last_ms = flow->first_ms + kLength;
  flow->exporter = 0;
}

MadeFlow FlowAt(const MadeStore& made, int minute, int number) {
  constexpr std::uint16_t kPorts[] = {443, 80, 53, 22, 123, 8443, 25, 3389};
  const std::uint64_t a =
      Mix(static_cast<std::uint64_t>(minute) << 32 | static_cast<std::uint64_t>(number));
  const std::uint64_t b = Mix(a);
  MadeFlow flow{};
  flow.bucket = made.start + minute * kMinuteSeconds;
  flow.source = Skewed(a, made.hosts);
  // Both ends are of one family.
  flow.destination = made.hosts + Skewed(a >> 20, made.hosts);
  flow.destination += (flow.source - flow.destination) % 16;
  if (flow.destination < made.hosts) flow.destination += 16;
  flow.destination_port = kPorts[(a >> 40) % std::size(kPorts)];
  flow.source_port = static_cast<std::uint16_t>(32768 + (a >> 44) % 28000);
  flow.protocol = flow.destination_port == 53 || flow.destination_port == 123 ? 17 : 6;
  const std::int64_t length = static_cast<std::int64_t>(b % 50'000);
  flow.last_ms = flow.bucket * 1000 + static_cast<std::int64_t>((b >> 16) % 60'000) - 5'000;
  flow.first_ms = flow.last_ms - length;
  flow.packets = 1 + (b >> 32) % 200;
  flow.bytes = flow.packets * (40 + (b >> 40) % 1400);
  // A few are very large.
  if (b >> 54 == 0) flow.bytes *= 10'000;
  flow.packets_back = flow.packets / 2;
  flow.bytes_back = flow.packets_back * 60;
  const bool last_quarter = minute >= made.hours * 45;
  flow.exporter = static_cast<int>((b >> 48) % (last_quarter ? 3 : kMadeExporters));
  if (number == 0) MakeLong(made, &flow);
  flow.in_interface = 1 + static_cast<std::uint32_t>(flow.source) % 3;
  flow.out_interface = 10;
  flow.source_as = 64500;
  flow.destination_as = 64501 + static_cast<std::uint32_t>(flow.destination) % 97;
  return flow;
}

}  // namespace

IpAddress MadeHost(const MadeStore& made, int number) {
  const bool outside = number >= made.hosts;
  const auto index = static_cast<std::uint32_t>(outside ? number - made.hosts : number);
  if (!IsIpv6(number)) {
    return IpAddress::Ipv4((outside ? 0xC6120000U : 0x0A000000U) + 1 + index);
  }
  std::array<std::uint8_t, 16> bytes{0x20, 0x01, 0x0D, 0xB8};
  bytes[4] = outside ? 1 : 0;
  for (std::size_t i = 0; i < 4; ++i) {
    bytes[15 - i] = static_cast<std::uint8_t>((index + 1) >> 8 * i);
  }
  return IpAddress::Ipv6(bytes);
}

IpAddress MadeExporter(int number) {
  return IpAddress::Ipv4(0xC0000201U + static_cast<std::uint32_t>(number));
}

std::vector<GroupInfo> MadeGroups() {
  const GroupMeterDescription meters[] = {
      {0, 0, "Total", "Bps"}, {1, 0, "Recv", "Bps"}, {2, 0, "Xmit", "Bps"}, {3, 0, "Flows", "Flw"}};
  GroupDescription interfaces{};
  interfaces.guid = COUNTERID_FLOWINTF;
  interfaces.name = "FlowIntfs";
  interfaces.description = "Flow interface traffic";
  interfaces.meters.assign(std::begin(meters), std::end(meters));
  const GroupCatalog catalog({&interfaces, 1});
  std::vector<GroupInfo> groups;
  for (const std::string_view id : kIds) groups.push_back(*catalog.Find(std::string(id)));
  return groups;
}

bool IsGap(const MadeStore& made, int minute) {
  return minute >= made.gap_from && minute < made.gap_to;
}

void FlowsOfMinute(const MadeStore& made, int minute,
                   const std::function<void(const MadeFlow&)>& visit) {
  if (IsGap(made, minute)) return;
  for (int i = 0; i < made.flows_per_minute; ++i) visit(FlowAt(made, minute, i));
}

void ForEachFlow(const MadeStore& made, const std::function<void(const MadeFlow&)>& visit) {
  for (int minute = 0; minute < made.hours * 60; ++minute) FlowsOfMinute(made, minute, visit);
}

void WriteMadeStore(const MadeStore& made, const std::string& directory) {
  Writer(made, directory).Write();
}

}  // namespace flow::host
