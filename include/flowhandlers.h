// SPDX-License-Identifier: Apache-2.0
/* A collector in a few calls, for C and C++. What NetFlow, IPFIX and sFlow datagrams say arrives as
   batches of updates through a table of callbacks. libflowhandlers-c.so.1 has these functions and
   loads the plug-in itself.

   Threads: a collector is used by one thread at a time, and any number of collectors may work at
   once. Callbacks run in the thread that called fh_open, fh_handle, fh_learn or fh_close, before
   that call returns; what they are given is valid until they return. They may not call into the
   collector that calls them. fh_open and fh_close wait for those of other collectors.

   Structures whose first member is `size` may grow at their end: set it to sizeof of the structure,
   and all members to zero that you do not need. All others stay as they are. No exception leaves
   the library; one that a callback throws, in C++, makes the call fail after the callback. */
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "flowhandlers/version.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct fh_collector fh_collector;

/* What exporters send. */
enum {
  FH_NETFLOW = 0, /* NetFlow v1, v5, v9 and IPFIX */
  FH_SFLOW = 1    /* sFlow v2, v4 and v5 */
};

/* What fh_handle and fh_learn return. */
enum {
  FH_OK = 0,
  FH_REFUSED = 1, /* no datagram of the protocol, or one of which nothing could be used */
  FH_FAILED = -1  /* fh_error tells why */
};

/* The groups of counters. docs/keys.md has their keys and meters. */
enum {
  FH_GROUP_OTHER = 0,
  FH_GROUP_HOSTS,
  FH_GROUP_HOSTS6,
  FH_GROUP_FLOWS, /* of notes alone: what is counted arrives as flows */
  FH_GROUP_FLOWGEN,
  FH_GROUP_FLOWINTF,
  FH_GROUP_AGGREGATES,
  FH_GROUP_IPPROTOCOL,
  FH_GROUP_ETHERTYPE,
  FH_GROUP_APPS,
  FH_GROUP_NBAR,
  FH_GROUP_SUBNETS,
  FH_GROUP_ASN,
  FH_GROUP_LINKAS,
  FH_GROUP_IPNEXTHOP,
  FH_GROUP_BGPNEXTHOP,
  FH_GROUP_VRF,
  FH_GROUP_VLAN,
  FH_GROUP_MAC,
  FH_GROUP_MACPAIR,
  FH_GROUP_APPID,
  FH_GROUP_USERID,
  FH_GROUP_PREFIX4,
  FH_GROUP_PREFIX6,
  FH_GROUP_LEFTOUT
};

/* A value to be added to a meter of a key. */
typedef struct fh_counter {
  const char* key; /* ends with a NUL */
  uint64_t value;
  uint32_t key_length; /* without the NUL */
  uint16_t group;
  uint16_t meter;
} fh_counter;

/* What happens to a flow, and what `values` and `text` then are; text is null otherwise. */
enum {
  FH_FLOW_VOLUME = 0, /* add: bytes one way, bytes the other way, packets one way, the other way */
  FH_FLOW_METER,      /* add: meter, value; text to keep with it, or null */
  FH_FLOW_TIMES,      /* set: start, end; milliseconds since 1970 */
  FH_FLOW_DURATION,   /* set: milliseconds */
  FH_FLOW_CLOSED,
  FH_FLOW_TAG /* text: a tag to attach */
};

typedef struct fh_flow {
  const char* key; /* ends with a NUL */
  const char* text;
  uint64_t values[4];
  uint32_t key_length; /* without the NUL */
  uint32_t kind;
} fh_flow;

/* A text about a key: "label", "description", or a property such as "netflow.sampling_rate". */
typedef struct fh_note {
  const char* key;
  const char* name;
  const char* value;
  uint32_t group;
} fh_note;

/* Where updates go; any function may be null. */
typedef struct fh_callbacks {
  size_t size;
  void* context; /* handed to each function */
  void (*counters)(void* context, const fh_counter* updates, size_t count);
  void (*flows)(void* context, const fh_flow* updates, size_t count);
  void (*notes)(void* context, const fh_note* notes, size_t count);
  /* A template that other collectors may fh_learn, or this one after a restart; the latest of each
     exporter and template is enough. */
  void (*templates)(void* context, int channel, const void* data, size_t length);
  /* A message of the plug-in: level 4 error, 5 warning, 7 progress, 8 information. */
  void (*log)(void* context, int level, const char* text);
} fh_callbacks;

/* What fh_open may be told beside the policies. */
typedef struct fh_options {
  size_t size;
  const char* plugin;         /* path of libflowhandlers.so.1; null: beside this library */
  const char* home_networks;  /* "192.0.2.0/24,10.0.0.0/8"; null: the private networks */
  const char* data_directory; /* where feeds of home AS numbers arrive; null: none */
  const char* work_directory; /* for dumps of templates; null: none */
} fh_options;

/* fh_open makes a collector. policy_directory has NetflowCounterPolicy.xml and
   SFlowCounterPolicy.xml, which are read now; later edits are for collectors that are opened later.
   callbacks is copied; options may be null. Returns null when something is wrong, a policy most
   often; fh_error tells what. */
fh_collector* fh_open(const char* policy_directory, const fh_callbacks* callbacks,
                      const fh_options* options);

/* fh_handle meters one datagram. The exporter is source and port, in host byte order: its templates
   are known by both, so keep them apart and constant. For exporters over IPv6 pick an address each
   of 240.0.0.0/4. seconds is the time of arrival since 1970, 0 for now. */
int fh_handle(fh_collector* collector, int protocol, uint32_t source, uint16_t port,
              const void* payload, size_t length, uint64_t seconds);

/* fh_learn takes what the callback `templates` of another collector, or an earlier one, was given.
 */
int fh_learn(fh_collector* collector, int channel, const void* data, size_t length);

/* fh_records tells how many records and samples have been metered. */
uint64_t fh_records(const fh_collector* collector);

/* fh_close ends a collector; null is none. */
void fh_close(fh_collector* collector);

/* fh_error tells why the last call of this thread that failed did so. */
const char* fh_error(void);

/* fh_version is the library's FLOWHANDLERS_VERSION. */
const char* fh_version(void);

#ifdef __cplusplus
}
#endif
