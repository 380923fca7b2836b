// SPDX-License-Identifier: Apache-2.0
#include "host/command/kept_templates.h"

#include <fmt/format.h>

#include <utility>

#include "host/base/console.h"
#include "host/base/number_text.h"
#include "host/command/listen_ports.h"

namespace flow::host {
namespace {

std::int64_t NowSeconds() { return NowMicros() / kMicrosPerSecond; }

}  // namespace

KeptTemplates::KeptTemplates(const std::string& directory, MeterSetup& setup, Console& console)
    : directory_(directory),
      setup_(setup),
      console_(console),
      outlet_(fmt::format("the directory {}", directory), Outlet::Keeps::kNewest, true, console) {
  if (directory.empty()) return;
  archive_.emplace(directory);
  archive_->Open();
}

void KeptTemplates::NoteUse() {
  if (!archive_) return;
  setup_.OnUsed([this](const Endpoint& exporter) { archive_->NoteUsed(exporter); });
}

void KeptTemplates::Restore() {
  if (!archive_) return;
  std::string trouble;
  setup_.stand_ins().KeepIn(directory_, NowSeconds(), &trouble);
  if (!trouble.empty()) console_.Error(std::exchange(trouble, ""));
  archive_->Load(NowSeconds(), &trouble);
  if (!trouble.empty()) console_.Error(trouble);
  // A stand-in of nobody will be another exporter's.
  archive_->Forget([this](const IpAddress& exporter) {
    return StandIns::IsOne(exporter) && setup_.stand_ins().RealOf(exporter) == exporter;
  });
  const auto messages = archive_->Messages();
  for (const auto& message : messages) {
    setup_.channels().Deliver(
        0, message->has_domain ? CHANNELID_NETFLOW_DOMAIN_TEMPLATES : CHANNELID_NETFLOW_TEMPLATES,
        message->bytes);
  }
  if (!messages.empty()) {
    console_.Notice(fmt::format("{} templates restored from {}", Thousands(archive_->templates()),
                                archive_->path()));
  }
  setup_.channels().Observe(
      [this](int /*lane*/, const GUID& channel, const std::vector<std::uint8_t>& message) {
        if (IsTemplateChannel(channel)) archive_->Note({message, HasDomain(channel)}, NowSeconds());
      });
}

void KeptTemplates::Save() {
  if (!archive_) return;
  if (archive_->TakeOverflow() && !std::exchange(told_overflow_, true)) {
    console_.Notice("there are more, or larger, templates than are kept across restarts");
  }
  outlet_.Take([this] {
    setup_.stand_ins().Save();
    archive_->Save(NowSeconds());
  });
}

}  // namespace flow::host
