// SPDX-License-Identifier: Apache-2.0
// made_store DIR [HOURS [HOSTS [FLOWS_PER_MINUTE]]]: makes a store of made traffic in a directory.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "tests/host/made_store.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: made_store DIR [HOURS [HOSTS [FLOWS_PER_MINUTE]]]\n", stderr);
    return 2;
  }
  flow::host::MadeStore made;
  if (argc > 2) made.hours = std::atoi(argv[2]);
  if (argc > 3) made.hosts = std::atoi(argv[3]);
  if (argc > 4) made.flows_per_minute = std::atoi(argv[4]);
  try {
    flow::host::WriteMadeStore(made, argv[1]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "made_store: %s\n", error.what());
    return 1;
  }
  return 0;
}
