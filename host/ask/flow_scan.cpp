#include "host/ask/flow_scan.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <filesystem>
#include <mutex>
#include <thread>
#include <utility>

#include "host/store/schema.h"

namespace flow::host {
namespace {

struct EndColumn {
  std::string_view name;
  std::string_view reverse;
};
constexpr EndColumn kEndColumns[] = {
    {"src", "dst"},         {"dst", "src"},         {"sport", "dport"},   {"dport", "sport"},
    {"in_if", "out_if"},    {"out_if", "in_if"},    {"src_as", "dst_as"}, {"dst_as", "src_as"},
    {"src_mac", "dst_mac"}, {"dst_mac", "src_mac"},
};

struct Amount {
  std::string_view name;
  std::string_view both;
  std::string_view forward;
  std::string_view reverse;
};
// Records of the exporter are told for both directions together; where both have traffic, each has
// half of them, which is right for exporters that report each once.
constexpr Amount kAmounts[] = {
    {"bytes", "(bytes + bytes_rev)", "bytes", "bytes_rev"},
    {"packets", "(packets + packets_rev)", "packets", "packets_rev"},
    {"records", "records",
     "(CASE WHEN bytes_rev OR packets_rev THEN records - records / 2 ELSE records END)",
     "(CASE WHEN bytes OR packets THEN records / 2 ELSE records END)"},
};

std::string ColumnFor(std::string_view name, bool has_directions, bool is_reverse) {
  for (const EndColumn& column : kEndColumns) {
    if (column.name == name) return std::string(is_reverse ? column.reverse : column.name);
  }
  for (const Amount& amount : kAmounts) {
    if (amount.name != name) continue;
    if (!has_directions) return std::string(amount.both);
    return std::string(is_reverse ? amount.reverse : amount.forward);
  }
  return std::string(name);
}

class Scan {
 public:
  Scan(const std::string& directory, const ScanQuestion& question)
      : directory_(directory), question_(question) {
    for (std::int64_t hour = question.span.from / kHourSeconds * kHourSeconds;
         hour < question.span.to; hour += kHourSeconds) {
      if (std::filesystem::exists(FlowFilePath(directory, hour))) {
        hours_.push_back(hour);
      } else {
        AddMissing(hour);
      }
    }
    AddPass(false);
    if (question.has_directions) AddPass(true);
  }

  void Run(FlowTaker* taker) noexcept {
    try {
      for (std::size_t at = next_++; at < hours_.size(); at = next_++) ReadFile(hours_[at], taker);
    } catch (...) {
      const std::lock_guard lock(mutex_);
      if (!error_) error_ = std::current_exception();
    }
  }

  ScanResult Finish() {
    if (error_) std::rethrow_exception(error_);
    return std::move(result_);
  }

 private:
  struct Pass {
    bool is_reverse;
    std::string select;
    FilterSql where;
  };

  void AddMissing(std::int64_t hour) {
    const TimeSpan span{std::max(hour, question_.span.from),
                        std::min(hour + kHourSeconds, question_.span.to)};
    auto& missing = result_.missing;
    if (!missing.empty() && missing.back().to == span.from) {
      missing.back().to = span.to;
    } else {
      missing.push_back(span);
    }
  }

  void AddPass(bool is_reverse) {
    const bool has = question_.has_directions;
    Pass pass{is_reverse, ScanColumns(question_.select, has, is_reverse), ToSql(question_.filter)};
    pass.where.text = ScanColumns(pass.where.text, has, is_reverse);
    if (has) {
      pass.where.text += is_reverse ? " AND (bytes_rev OR packets_rev)" : " AND (bytes OR packets)";
    }
    passes_.push_back(std::move(pass));
  }

  void ReadFile(std::int64_t hour, FlowTaker* taker) {
    StoredFlows file(directory_, hour);
    for (const Pass& pass : passes_) {
      Statement rows = file.Rows(pass.select, pass.where, question_.span);
      while (rows.Step()) taker->Take(file, rows, pass.is_reverse);
    }
    const StoredFlows::NotKept not_kept = file.NotKeptIn(question_.span);
    const std::lock_guard lock(mutex_);
    result_.not_kept.flows += not_kept.flows;
    result_.not_kept.bytes += not_kept.bytes;
    result_.not_kept.packets += not_kept.packets;
  }

  const std::string& directory_;
  const ScanQuestion& question_;
  std::vector<Pass> passes_;
  std::vector<std::int64_t> hours_;
  std::atomic<std::size_t> next_ = 0;
  std::mutex mutex_;  // of what follows
  ScanResult result_;
  std::exception_ptr error_;
};

}  // namespace

bool HasDirections(const Expression& expression) {
  if (expression.kind != Expression::Kind::kCondition) {
    return std::ranges::any_of(expression.parts, HasDirections);
  }
  const Side side = expression.condition.side;
  return side == Side::kSource || side == Side::kDestination;
}

std::string ScanColumns(std::string_view select, bool has_directions, bool is_reverse) {
  std::string columns;
  for (std::size_t at = 0; at < select.size(); ++at) {
    const std::size_t end = select[at] == '{' ? select.find('}', at) : std::string_view::npos;
    if (end == std::string_view::npos) {
      columns.push_back(select[at]);
    } else {
      columns += ColumnFor(select.substr(at + 1, end - at - 1), has_directions, is_reverse);
      at = end;
    }
  }
  return columns;
}

std::size_t ScanThreads() {
  constexpr std::size_t kMost = 16;
  return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, kMost);
}

ScanResult ScanFlows(const std::string& directory, const ScanQuestion& question,
                     const std::vector<FlowTaker*>& takers) {
  Scan scan(directory, question);
  std::vector<std::thread> threads;
  for (std::size_t i = 1; i < takers.size(); ++i) {
    threads.emplace_back([&scan, taker = takers[i]] { scan.Run(taker); });
  }
  scan.Run(takers.front());
  for (std::thread& thread : threads) thread.join();
  return scan.Finish();
}

}  // namespace flow::host
