/* SPDX-License-Identifier: Apache-2.0 */
/* The hosts with the most bytes in a capture, by the flat interface.

     top_hosts POLICIES CAPTURE */
#include <flowhandlers.h>
#include <inttypes.h>
#include <stdlib.h>

#include "capture.h"

#define HOSTS 4096

struct host {
  char key[16];
  uint64_t bytes;
};

static struct host* find(struct host* hosts, const char* key) {
  for (int i = 0; i < HOSTS; ++i) {
    if (hosts[i].key[0] == '\0') strncpy(hosts[i].key, key, sizeof hosts[i].key - 1);
    if (strcmp(hosts[i].key, key) == 0) return &hosts[i];
  }
  exit(1); /* too many for this example */
}

static void count(void* context, const fh_counter* updates, size_t size) {
  for (size_t i = 0; i < size; ++i)
    if (updates[i].group == FH_GROUP_HOSTS && updates[i].meter == 0)
      find(context, updates[i].key)->bytes += updates[i].value;
}

static int by_bytes(const void* a, const void* b) {
  const struct host *first = a, *second = b;
  return (first->bytes < second->bytes) - (first->bytes > second->bytes);
}

int main(int argc, char** argv) {
  static struct host hosts[HOSTS];
  static struct datagram read;
  fh_callbacks callbacks = {.size = sizeof callbacks, .context = hosts, .counters = count};
  FILE* capture = argc == 3 ? open_capture(argv[2]) : NULL;
  if (capture == NULL) return 1;
  fh_collector* collector = fh_open(argv[1], &callbacks, NULL);
  if (collector == NULL) return fprintf(stderr, "%s\n", fh_error()), 1;
  while (next_datagram(capture, &read))
    fh_handle(collector, read.destination_port == 6343 ? FH_SFLOW : FH_NETFLOW, read.source,
              read.source_port, read.payload, read.length, read.seconds);
  fh_close(collector);
  fclose(capture);
  qsort(hosts, HOSTS, sizeof hosts[0], by_bytes);
  for (int i = 0; i < 10 && hosts[i].bytes != 0; ++i) {
    unsigned parts[4];
    sscanf(hosts[i].key, "%x.%x.%x.%x", &parts[0], &parts[1], &parts[2], &parts[3]);
    printf("%u.%u.%u.%u %" PRIu64 "\n", parts[0], parts[1], parts[2], parts[3], hosts[i].bytes);
  }
}
