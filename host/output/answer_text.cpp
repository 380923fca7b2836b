// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <variant>
#include <vector>

#include "host/base/number_text.h"
#include "host/base/printable.h"
#include "host/output/answer_forms.h"

namespace flow::host {
namespace {

constexpr std::string_view kBlocks[] = {"\u2581", "\u2582", "\u2583", "\u2584",
                                        "\u2585", "\u2586", "\u2587", "\u2588"};
constexpr std::string_view kLeast = "\u2265";
constexpr std::size_t kWidestLine = 32;
constexpr std::size_t kNarrowestLine = 8;

// How many places on the terminal a text takes: none of ours has wide characters.
std::size_t WidthOf(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(
      text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

bool IsDrawn(ValueKind kind) { return kind == ValueKind::kLine || kind == ValueKind::kBar; }
bool IsText(ValueKind kind) { return kind == ValueKind::kKey || kind == ValueKind::kText; }

// Three digits and a unit: "1.24 Gb/s".
std::string Scaled(double value, std::string_view unit) {
  constexpr std::string_view kPrefixes[] = {"", "k", "M", "G", "T", "P"};
  const std::string_view* prefix = kPrefixes;
  for (; std::abs(value) >= 999.5 && prefix + 1 != std::end(kPrefixes); ++prefix) value /= 1000;
  const bool is_whole = prefix == kPrefixes && value == std::floor(value);
  const int decimals = is_whole || value >= 99.95 ? 0 : value >= 9.995 ? 1 : 2;
  return fmt::format("{:.{}f} {}{}", value, decimals, *prefix, unit);
}

std::string ShareText(double share) {
  const double percent = share * 100;
  if (percent > 0 && percent < 0.05) return fmt::format("{:.2g} %", percent);
  return fmt::format("{:.1f} %", percent);
}

std::string IntegerText(ValueKind kind, std::int64_t value, const AnswerView& view) {
  switch (kind) {
    case ValueKind::kBytes: {
      const auto size = static_cast<std::uint64_t>(std::abs(value));
      return (value < 0 ? "-" : "") + (view.exact ? Thousands(size) : SiBytes(size));
    }
    case ValueKind::kTime: {
      if (value % 1000 == 0) return view.zone.Text(value / 1000);
      return fmt::format("{}:{:06.3f}", view.zone.Text(value / 60'000 * 60),
                         static_cast<double>(value % 60'000) / 1000);
    }
    case ValueKind::kDuration:
      return DurationText(value);
    case ValueKind::kOffset:
      return OffsetText(value);
    default:
      return (value < 0 ? "-" : "") + Thousands(static_cast<std::uint64_t>(std::abs(value)));
  }
}

std::string RealText(ValueKind kind, double value, const AnswerView& view) {
  switch (kind) {
    case ValueKind::kBitRate:
      return view.exact ? fmt::format("{} b/s", Thousands(static_cast<std::uint64_t>(value)))
                        : Scaled(value, "b/s");
    case ValueKind::kPacketRate:
      return view.exact ? fmt::format("{:.1f}/s", value) : Scaled(value, "/s");
    case ValueKind::kShare:
      return ShareText(value);
    case ValueKind::kChange:
      return fmt::format("{:+.1f} %", (value - 1) * 100);
    default:
      return fmt::format("{:.0f}", value);
  }
}

std::string CellText(const AnswerColumn& column, const AnswerValue& value, const AnswerView& view) {
  if (const auto* const text = std::get_if<std::string>(&value)) return Printable(*text);
  if (const auto* const whole = std::get_if<std::int64_t>(&value)) {
    return IntegerText(column.kind, *whole, view);
  }
  if (const auto* const real = std::get_if<double>(&value)) {
    return RealText(column.kind, *real, view);
  }
  return "";
}

// A line of blocks of the width, each the mean of what falls into it.
std::string Sparkline(const std::vector<double>& values, std::size_t width) {
  const double most = values.empty() ? 0 : *std::ranges::max_element(values);
  if (most <= 0) return "";
  width = std::min(width, values.size());
  std::string line;
  for (std::size_t i = 0; i < width; ++i) {
    const std::size_t from = i * values.size() / width;
    const std::size_t to = std::max(from + 1, (i + 1) * values.size() / width);
    double sum = 0;
    for (std::size_t at = from; at < to; ++at) sum += values[at];
    const double height = sum / static_cast<double>(to - from) / most * std::size(kBlocks);
    const auto block = static_cast<std::size_t>(std::ceil(height));
    line += block == 0 ? " " : kBlocks[std::min(block, std::size(kBlocks)) - 1];
  }
  return line;
}

std::string Bar(double part, std::size_t width) {
  const auto length = static_cast<std::size_t>(std::lround(part * static_cast<double>(width)));
  std::string bar;
  for (std::size_t i = 0; i < std::min(length, width); ++i) bar += kBlocks[std::size(kBlocks) - 1];
  return bar;
}

class TextWriter {
 public:
  TextWriter(const Answer& answer, const AnswerView& view, std::FILE* out)
      : answer_(answer), view_(view), out_(out) {
    for (const AnswerRow& row : answer.rows) rows_.push_back(&row);
    if (answer.others) rows_.push_back(&*answer.others);
    if (answer.total) rows_.push_back(&*answer.total);
  }

  void Write() {
    WriteTitle();
    if (!answer_.rows.empty()) WriteTable();
    for (const AnswerGap& gap : answer_.gaps) {
      fmt::print(out_, "no data {}: {}\n", SpanText(gap.span, view_.zone), gap.reason);
    }
    for (const AnswerLoss& loss : answer_.losses) {
      fmt::print(out_, "{}\n", LossText(loss, view_.zone));
    }
    for (const std::string& note : answer_.notes) fmt::print(out_, "{}\n", note);
  }

 private:
  void WriteTitle() const {
    fmt::print(out_, "{}", answer_.what);
    if (answer_.span) fmt::print(out_, ", {}", SpanText(*answer_.span, view_.zone));
    if (!answer_.beside.empty()) fmt::print(out_, " beside {}", answer_.beside);
    if (!answer_.source.empty()) fmt::print(out_, ", from {}", answer_.source);
    if (!answer_.rows.empty()) {
      fmt::print(out_, " ({})", answer_.is_exact ? "exact" : "not exact");
    }
    fmt::print(out_, "\n");
  }

  void WriteTable() {
    for (std::size_t i = 0; i < answer_.columns.size(); ++i) AddColumn(i);
    Fit();
    std::vector<std::string> headings;
    for (const Column& column : columns_) headings.push_back(column.cells.front());
    for (std::size_t row = 0; row <= rows_.size(); ++row) WriteRow(row);
  }

  struct Column {
    std::size_t place;
    std::size_t width;
    std::vector<std::string> cells;  // the heading and the rows
  };

  // Columns in which there is nothing are not shown.
  void AddColumn(std::size_t place) {
    const AnswerColumn& about = answer_.columns[place];
    if (IsDrawn(about.kind)) {
      if (view_.is_terminal) drawn_ = place;
      return;
    }
    Column column{place, WidthOf(about.title), {about.title}};
    bool has_any = about.kind == ValueKind::kKey;
    for (const AnswerRow* const row : rows_) {
      const AnswerValue& value = row->values[place];
      std::string cell = CellText(about, value, view_);
      if (row->is_least && IsRanking(place)) cell = fmt::format("{} {}", kLeast, cell);
      if (cell == "(others)" && !answer_.others_text.empty()) {
        cell = fmt::format("(others, {})", answer_.others_text);
      }
      const auto* const whole = std::get_if<std::int64_t>(&value);
      const bool is_zero = whole != nullptr && *whole == 0;
      has_any |= !cell.empty() && !is_zero;
      column.width = std::max(column.width, WidthOf(cell));
      column.cells.push_back(std::move(cell));
    }
    if (has_any) columns_.push_back(std::move(column));
  }

  // The first column of numbers that is no share is what rows are ranked by.
  [[nodiscard]] bool IsRanking(std::size_t place) const {
    for (std::size_t i = 0; i < place; ++i) {
      const ValueKind kind = answer_.columns[i].kind;
      if (!IsText(kind) && kind != ValueKind::kShare && kind != ValueKind::kTime) return false;
    }
    const ValueKind kind = answer_.columns[place].kind;
    return !IsText(kind) && kind != ValueKind::kShare && kind != ValueKind::kTime;
  }

  // On a terminal the last columns give way, and what is drawn has the rest of the line.
  void Fit() {
    if (!view_.is_terminal) return;
    const auto width = [this] {
      std::size_t sum = 1;
      for (const Column& column : columns_) sum += column.width + 2;
      return sum;
    };
    const std::size_t drawn = drawn_ < answer_.columns.size() ? kNarrowestLine + 2 : 0;
    constexpr std::size_t kFewest = 4;
    while (columns_.size() > kFewest && width() + drawn > view_.width) columns_.pop_back();
    const std::size_t used = width();
    line_width_ = view_.width > used ? std::min(view_.width - used, kWidestLine) : 0;
  }

  void WriteRow(std::size_t number) const {
    std::string line = " ";
    for (const Column& column : columns_) {
      const std::string& cell = column.cells[number];
      const std::string blanks(column.width - WidthOf(cell), ' ');
      const bool is_left = IsText(answer_.columns[column.place].kind) ||
                           answer_.columns[column.place].kind == ValueKind::kTime;
      line += (is_left ? cell + blanks : blanks + cell) + "  ";
    }
    if (number > 0 && drawn_ < answer_.columns.size()) line += Drawing(*rows_[number - 1]);
    line.erase(line.find_last_not_of(' ') + 1);
    fmt::print(out_, "{}\n", line);
  }

  [[nodiscard]] std::string Drawing(const AnswerRow& row) const {
    const AnswerValue& value = row.values[drawn_];
    if (!row.line.empty()) return Sparkline(row.line, line_width_);
    const auto* const part = std::get_if<double>(&value);
    return part == nullptr ? "" : Bar(*part, line_width_);
  }

  const Answer& answer_;
  const AnswerView& view_;
  std::FILE* out_;
  std::vector<const AnswerRow*> rows_;
  std::vector<Column> columns_;
  std::size_t drawn_ = SIZE_MAX;
  std::size_t line_width_ = 0;
};

struct PlaceName {
  std::string_view place;
  std::string_view text;
};
constexpr PlaceName kPlaces[] = {{"way", "lost on the way"},
                                 {"here", "lost here"},
                                 {"refused", "refused"},
                                 {"left_out", "left out"}};

}  // namespace

std::string LossText(const AnswerLoss& loss, const Zone& zone) {
  const auto* const place = std::ranges::find(kPlaces, loss.place, &PlaceName::place);
  std::string text =
      fmt::format("{}{}: {} {}", place == std::end(kPlaces) ? loss.place : std::string(place->text),
                  loss.place == "way" ? "" : fmt::format(" ({})", loss.reason),
                  Thousands(static_cast<std::uint64_t>(loss.count)), loss.unit);
  if (!loss.exporter.empty()) text += fmt::format(" from {}", Printable(loss.exporter));
  if (loss.share) text += fmt::format(" ({})", ShareText(*loss.share));
  return text + fmt::format(", {}", SpanText(loss.span, zone));
}

void PrintText(const Answer& answer, const AnswerView& view, std::FILE* out) {
  TextWriter(answer, view, out).Write();
}

}  // namespace flow::host
