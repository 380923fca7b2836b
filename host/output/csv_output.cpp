// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <filesystem>
#include <memory>

#include "host/base/error.h"
#include "host/output/csv_field.h"
#include "host/output/output_file.h"
#include "host/output/outputs.h"
#include "host/output/sheets.h"

namespace flow::host {
namespace {

std::string Field(std::monostate) { return ""; }
std::string Field(const std::string& text) { return CsvField(text); }
std::string Field(std::uint64_t number) { return std::to_string(number); }
std::string Field(std::int64_t number) { return std::to_string(number); }

class CsvFiles final : public SheetSink {
 public:
  explicit CsvFiles(std::filesystem::path directory) : directory_(std::move(directory)) {}

  void Begin(const std::string& name, std::span<const SheetColumn> columns) override {
    file_ = std::make_unique<OutputFile>((directory_ / (name + ".csv")).string());
    std::string line;
    for (const SheetColumn& column : columns) line += Field(column.name) + ",";
    WriteLine(std::move(line));
  }
  void Row(std::span<const Cell> cells) override {
    std::string line;
    for (const Cell& cell : cells) {
      line += std::visit([](const auto& value) { return Field(value); }, cell) + ",";
    }
    WriteLine(std::move(line));
  }
  void End() override { file_->Close(); }

 private:
  void WriteLine(std::string line) {
    line.back() = '\n';  // in place of the last comma
    file_->Write(line);
  }

  std::filesystem::path directory_;
  std::unique_ptr<OutputFile> file_;
};

}  // namespace

void WriteCsv(const Report& report, const ReportOptions& options, const std::string& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) {
    throw HostError(fmt::format("directory {} cannot be made: {}", directory, error.message()));
  }
  CsvFiles files(directory);
  WriteSheets(report, options, &files);
}

}  // namespace flow::host
