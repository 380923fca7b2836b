// SPDX-License-Identifier: Apache-2.0
/* Reads the captures of samples/: pcap in big-endian byte order, packets of raw IPv4. */
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <string.h>

struct datagram {
  uint64_t seconds; /* when it arrived, since 1970 */
  uint32_t source;  /* IPv4 address of the exporter, host byte order */
  uint16_t source_port, destination_port;
  const uint8_t* payload; /* within bytes */
  size_t length;
  uint8_t bytes[65536];
};

static inline uint32_t big_endian(const uint8_t* bytes, int count) {
  uint32_t value = 0;
  for (int i = 0; i < count; ++i) value = value << 8 | bytes[i];
  return value;
}

/* open_capture gives null for what is no such capture. */
static inline FILE* open_capture(const char* path) {
  uint8_t header[24];
  FILE* file = fopen(path, "rb");
  if (file != NULL && fread(header, sizeof header, 1, file) == 1 &&
      big_endian(header, 4) == 0xA1B2C3D4 && big_endian(header + 20, 4) == 101)
    return file;
  if (file != NULL) fclose(file);
  return NULL;
}

/* next_datagram gives 0 at the end. */
static inline int next_datagram(FILE* file, struct datagram* out) {
  uint8_t header[16];
  if (fread(header, sizeof header, 1, file) != 1) return 0;
  uint32_t size = big_endian(header + 8, 4);
  if (size < 28 || size > sizeof out->bytes || fread(out->bytes, size, 1, file) != 1) return 0;
  const uint8_t* udp = out->bytes + 4 * (out->bytes[0] & 15);
  if (udp + 8 > out->bytes + size) return 0;
  out->seconds = big_endian(header, 4);
  out->source = big_endian(out->bytes + 12, 4);
  out->source_port = (uint16_t)big_endian(udp, 2);
  out->destination_port = (uint16_t)big_endian(udp + 2, 2);
  out->payload = udp + 8;
  out->length = (size_t)(out->bytes + size - out->payload);
  return 1;
}
