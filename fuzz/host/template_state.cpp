// SPDX-License-Identifier: Apache-2.0
// The files of the state directory: templates kept for the next start, and stand-ins for exporters
// over IPv6. What was read is written and read again, and must be the same.

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/host/memory_folder.h"
#include "fuzz/host/promise.h"
#include "host/intake/exporter_table.h"
#include "host/intake/handover.h"
#include "host/intake/stand_ins.h"
#include "host/intake/template_archive.h"

namespace flow::fuzz {
namespace {

using host::IpAddress;
using host::StandIns;
using host::TemplateArchive;
using Messages = std::vector<std::shared_ptr<const TemplateArchive::Message>>;

constexpr std::int64_t kNow = 1'700'000'000;

// A v9 template set of 198.51.100.1, which gives an archive something new to save.
TemplateArchive::Message News() {
  TemplateArchive::Message news;
  news.bytes = {0x45, 0, 0,    0,    0, 0, 0, 0, 0, 0x11, 0, 0, 198, 51, 100, 1, 0, 0,
                0,    0, 0xC3, 0x50, 8, 7, 0, 0, 0, 12,   1, 0, 0,   1,  0,   1, 0, 4};
  return news;
}

bool AreSame(const Messages& some, const Messages& others) {
  return std::ranges::equal(some, others, [](const auto& one, const auto& other) {
    return one->bytes == other->bytes && one->has_domain == other->has_domain;
  });
}

// What the start of a run does with them.
void Use(const Messages& messages) {
  host::ExporterTable exporters;
  host::Handover handover([&](const host::TemplateOwner& o) { return exporters.RecordsBy(o); });
  for (const auto& message : messages) {
    exporters.NoteForeignTemplates(message->bytes, message->has_domain);
    handover.TakeMessage(
        {message->has_domain ? CHANNELID_NETFLOW_DOMAIN_TEMPLATES : CHANNELID_NETFLOW_TEMPLATES,
         std::make_shared<std::vector<std::uint8_t>>(message->bytes)});
  }
  std::size_t taught = 0;
  handover.Teach([&](const host::Handover::Lesson& lesson) {
    Demand(lesson.message != nullptr, "a lesson from a message is one");
    ++taught;
  });
  Demand(taught == messages.size(), "every message is handed over");
}

void CheckTemplates(const MemoryFolder& folder) {
  std::string trouble;
  TemplateArchive archive(folder.path());
  archive.Load(kNow, &trouble);
  archive.Note(News(), kNow);
  archive.Save(kNow);
  const Messages messages = archive.Messages();
  Demand(!messages.empty(), "a message that was noted is there");
  Use(messages);
  TemplateArchive next(folder.path());
  trouble.clear();
  next.Load(kNow, &trouble);
  Demand(trouble.empty(), "what was saved can be read");
  Demand(AreSame(messages, next.Messages()), "the next run has the same templates");
}

void CheckStandIns(const MemoryFolder& folder) {
  const IpAddress newcomer = *IpAddress::Parse("2001:db8::1:2:3");
  std::string trouble;
  StandIns stand_ins;
  stand_ins.KeepIn(folder.path(), kNow, &trouble);
  const auto given = stand_ins.Of(newcomer, kNow);
  if (!given) return;  // the last number is taken
  Demand(StandIns::IsOne(*given) && stand_ins.RealOf(*given) == newcomer,
         "a stand-in stands for who it was given to");
  stand_ins.Of(newcomer, kNow + 2 * 86400);  // which is news in any case
  stand_ins.Save();
  StandIns next;
  trouble.clear();
  next.KeepIn(folder.path(), kNow, &trouble);
  Demand(trouble.empty(), "what was saved can be read");
  Demand(next.Find(newcomer) == *given, "the next run has the same stand-in");
}

}  // namespace
}  // namespace flow::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const flow::fuzz::MemoryFolder folder;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (text.starts_with("flowhost stand-ins")) {
    folder.Write("stand-ins", text);
    flow::fuzz::CheckStandIns(folder);
  } else {
    folder.Write("templates", text);
    flow::fuzz::CheckTemplates(folder);
  }
  return 0;
}
