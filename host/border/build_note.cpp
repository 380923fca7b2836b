// SPDX-License-Identifier: Apache-2.0
#include "host/border/build_note.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <cstring>
#include <span>

#include "flowhandlers/build_note.h"

namespace flow::host {
namespace {

struct Search {
  ElfW(Addr) base;
  std::string found;
};

std::string TextOf(std::span<const char> bytes) {
  return std::string(bytes.begin(), std::find(bytes.begin(), bytes.end(), '\0'));
}

// Every note of a segment has its owner and what it says, each filled up to the segment's
// alignment.
std::string FindNote(std::span<const char> segment, std::size_t alignment) {
  const auto filled_up = [&](std::size_t size) {
    return (size + alignment - 1) & ~(alignment - 1);
  };
  while (segment.size() > sizeof(ElfW(Nhdr))) {
    ElfW(Nhdr) head;
    std::memcpy(&head, segment.data(), sizeof(head));
    segment = segment.subspan(sizeof(head));
    const std::size_t size = filled_up(head.n_namesz) + filled_up(head.n_descsz);
    if (size > segment.size()) break;
    const auto text = segment.subspan(filled_up(head.n_namesz), head.n_descsz);
    const bool ours = TextOf(segment.first(head.n_namesz)) == kBuildNoteName;
    if (ours && head.n_type == kBuildNoteType) return TextOf(text);
    segment = segment.subspan(size);
  }
  return {};
}

int SearchObject(dl_phdr_info* object, std::size_t /*size*/, void* context) {
  auto* const search = static_cast<Search*>(context);
  if (object->dlpi_addr != search->base) return 0;
  for (const ElfW(Phdr) & segment : std::span(object->dlpi_phdr, object->dlpi_phnum)) {
    if (segment.p_type != PT_NOTE || !search->found.empty()) continue;
    const auto* const start = reinterpret_cast<const char*>(object->dlpi_addr + segment.p_vaddr);
    search->found = FindNote({start, segment.p_memsz}, std::max<std::size_t>(segment.p_align, 4));
  }
  return 1;
}

}  // namespace

std::string BuildOf(void* handle) {
  link_map* map = nullptr;
  if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0) return {};
  Search search{map->l_addr, {}};
  dl_iterate_phdr(SearchObject, &search);
  return search.found;
}

}  // namespace flow::host
