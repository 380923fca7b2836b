// SPDX-License-Identifier: Apache-2.0
// What a collector keeps across restarts in a directory of its own: the templates that meters have
// learnt, and which exporters over IPv6 there are.
#pragma once

#include <optional>
#include <string>

#include "host/command/meter_setup.h"
#include "host/intake/template_archive.h"
#include "host/output/outlet.h"

namespace flow::host {

class KeptTemplates {
 public:
  // Nothing is kept where the directory is "". HostError where another process has it.
  KeptTemplates(const std::string& directory, MeterSetup& setup, Console& console);

  // NoteUse has templates kept longer that records are decoded by; before MeterSetup::Start.
  void NoteUse();
  // Restore gives meters what was kept, and notes what they learn from then on.
  void Restore();
  // Save has all of it written, in the outlet's thread.
  void Save();

  Outlet& outlet() { return outlet_; }

 private:
  std::string directory_;
  MeterSetup& setup_;
  Console& console_;
  std::optional<TemplateArchive> archive_;
  bool told_overflow_ = false;
  Outlet outlet_;
};

}  // namespace flow::host
