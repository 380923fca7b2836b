// SPDX-License-Identifier: Apache-2.0
// What another collector tells of an exporter, by a topic that others may write to. What is taken
// is told again as it was told, and becomes what meters are given.

#include <string_view>

#include "fuzz/host/promise.h"
#include "host/intake/exporter_table.h"
#include "host/intake/handover.h"
#include "host/scale/lesson.h"
#include "host/scale/lesson_book.h"

namespace flow::fuzz {
namespace {

using host::Lesson;

// As a lane that is told.
void Learn(const Lesson& lesson) {
  host::ExporterTable exporters;
  host::Handover handover([&](const host::TemplateOwner& o) { return exporters.RecordsBy(o); });
  if (lesson.kind == Lesson::Kind::kRate) {
    return handover.Take(lesson.owner.exporter, lesson.bytes, host::Handover::Scope::kDomain, {});
  }
  const bool has_domain = lesson.owner.domain.has_value();
  const auto message =
      host::ChannelMessageOf(lesson, host::IpAddress::Ipv4(0xC633'6401));  // 198.51.100.1
  exporters.NoteForeignTemplates(message, has_domain);
  const auto back = host::LessonOf(message, has_domain);
  Demand(back && back->bytes == lesson.bytes && back->ids == lesson.ids &&
             back->owner.domain == lesson.owner.domain &&
             back->owner.exporter.port == lesson.owner.exporter.port,
         "a channel message says what the lesson said");
}

void Check(std::string_view text) {
  const auto lesson = Lesson::FromJson(text);
  if (!lesson) return;
  const auto again = Lesson::FromJson(lesson->ToJson());
  Demand(again && again->bytes == lesson->bytes && again->Key() == lesson->Key(),
         "a lesson that is told is the same");
  Learn(*lesson);
  host::LessonBook book("here", 1);
  const bool is_own = lesson->collector == "here" && lesson->run == 1;
  Demand(book.IsNews(*lesson, 1'000'000) != is_own, "another's is news at first");
  Demand(!book.IsNews(*lesson, 1'000'000), "and once only");
}

}  // namespace
}  // namespace flow::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  flow::fuzz::Check({reinterpret_cast<const char*>(data), size});
  return 0;
}
