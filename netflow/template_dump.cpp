// The template store as text, for people who look into what an exporter has sent.

#include <algorithm>
#include <string>
#include <vector>

#include "netflow/template_store.h"
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

int TemplateStore::Dump(FILE* file) const {
  for (const ExporterKey key : SortedKeys(ExporterTemplates)) {
    DumpExporter(file, key, ExporterTemplates.at(key));
  }
  return std::fflush(file);
}

void TemplateStore::DumpExporter(FILE* file, ExporterKey key, const Exporter& exporter) {
  char address[kIpv4TextSize];
  *PutDottedIpv4(AddressOf(key), address) = '\0';
  std::fprintf(file, "Dumped at %s\n", COmbrelTime::Now().to_s().c_str());
  std::fprintf(file, "---- Templates for Router %s Port %d -----\n", address, PortOf(key));
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

}  // namespace flow
