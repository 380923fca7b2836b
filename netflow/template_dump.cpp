// SPDX-License-Identifier: Apache-2.0
// What has been learnt as text, for people who look into what an exporter has sent.

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "netflow/template_sets.h"
#include "netflow/template_store.h"
#include "plugin/site_log.h"
#include "util/address_text.h"
#include "util/ombrel_time.h"

namespace flow {
namespace {

std::string ReceiptText(bool known, std::uint32_t seconds) {
  if (!known) return "unknown-timestamp";
  COmbrelTime time{};
  time.tv_sec = static_cast<std::int32_t>(seconds);
  return time.to_s();
}

template <class Map>
std::vector<typename Map::key_type> SortedKeys(const Map& map) {
  std::vector<typename Map::key_type> keys;
  keys.reserve(map.size());
  for (const auto& entry : map) keys.push_back(entry.first);
  std::sort(keys.begin(), keys.end());
  return keys;
}

}  // namespace

int TemplateStore::DebugDumpTemplates(FILE* file) const {
  for (const ExporterKey key : SortedKeys(ExporterTemplates)) {
    DumpExporter(file, key, "", ExporterTemplates.at(key));
  }
  for (const Domain& domain : SortedKeys(domains_)) {
    DumpExporter(file, domain.first, " Domain " + std::to_string(domain.second),
                 domains_.at(domain));
  }
  return std::fflush(file);
}

void TemplateStore::DumpExporter(FILE* file, ExporterKey key, const std::string& domain,
                                 const Exporter& exporter) {
  char address[kIpv4TextSize];
  *PutDottedIpv4(AddressOf(key), address) = '\0';
  std::fprintf(file, "Dumped at %s\n", COmbrelTime::Now().to_s().c_str());
  std::fprintf(file, "---- Templates for Router %s Port %d%s -----\n", address, PortOf(key),
               domain.c_str());
  const std::string receipt = ReceiptText(exporter.has_receipt_time, exporter.receipt_time);
  for (const std::uint32_t id : SortedKeys(exporter.templates)) {
    std::fprintf(file, "  ---- Received at %s -----\n", receipt.c_str());
    std::fprintf(file, "  ---- Template ID %u -----\n", id);
    int position = 0;
    for (const nf9_field_t& field : exporter.templates.at(id).Fields()) {
      std::fprintf(file, "      %3d%6u\t%6u\t%25s\n", ++position, field.type, field.length,
                   GetFieldCode(field.type));
    }
  }
}

void TemplateSets::DumpTemplates() const {
  if (host_.site == nullptr) return;
  char* work_directory = nullptr;
  host_.site->GetWorkDirectory(&work_directory);
  const std::unique_ptr<char[]> directory(work_directory);
  if (directory == nullptr) return;
  long instance = 0;
  host_.site->GetInstanceNumber(&instance);
  const std::string path =
      std::string(directory.get()) + "/TemplateDump-" + std::to_string(instance) + ".txt";
  // Neither through a link that stands in its place, nor waiting for who reads a pipe.
  const int descriptor =
      open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666);
  FILE* const file = descriptor < 0 ? nullptr : fdopen(descriptor, "w");
  if (file == nullptr) {
    Log(host_.site, kLogError,
        std::string("Dump Template DB Error ") + std::strerror(errno) + " f=" + path);
    return;
  }
  store_.DebugDumpTemplates(file);
  std::fclose(file);
}

void TemplateSets::DumpWhenDue(std::uint64_t now) {
  const int interval = policy_.TemplateDumpIntervalSeconds;
  if (interval <= 0 || static_cast<std::int64_t>(now - last_dump_) <= interval) return;
  DumpTemplates();
  last_dump_ = now;
}

}  // namespace flow
