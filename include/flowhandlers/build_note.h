// SPDX-License-Identifier: Apache-2.0
// Which build a library is: an ELF note in its file and in memory, so that hosts and tools
// (readelf -n) read it without a call. IOmbrelPlugin::GetPluginID tells the version of the
// components, which stays.
#pragma once

#include <cstdint>

namespace flow {

inline constexpr char kBuildNoteName[] = "flowhandlers";  // the note's owner
inline constexpr std::uint32_t kBuildNoteType = 1;

// The note as it stands in the section .note.flowhandlers.
struct BuildNote {
  std::uint32_t name_size;  // of kBuildNoteName
  std::uint32_t text_size;
  std::uint32_t type;
  char name[16];
  char text[64];  // "1.0.0 4cd742b1c1ca": version and revision, NUL-terminated
};
static_assert(sizeof(BuildNote) == 92);

}  // namespace flow
