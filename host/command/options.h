// SPDX-License-Identifier: Apache-2.0
// What the command line asks for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "flowhandlers/host_interfaces.h"
#include "host/command/message_line.h"
#include "host/command/web_options.h"
#include "host/intake/port_map.h"
#include "host/output/outputs.h"
#include "host/policy/home_ranges.h"
#include "host/scale/clickhouse_server.h"
#include "host/store/store_options.h"

namespace flow::host {

// What every command that runs meters needs. Empty texts ask for the default.
struct MeterOptions {
  std::string plugin;            // path of the library
  std::string config_directory;  // policies
  std::string data_directory;    // feeds; the config directory by default
  std::string work_directory;    // template dumps; none by default
  std::vector<Network> home;     // of a family without any, the private ranges
  std::vector<ExtraPort> extra_ports;
  int instances = 1;
  int log_level = kLogWarning;
};

struct ReplayOptions {
  MeterOptions meter;
  OutputOptions output;
  StoreOptions store;
  ClickHouseOptions clickhouse;
  MessageOptions messages;
  std::string trace;
  std::uint32_t interval = 0;             // seconds of capture time; 0 for one report of the whole
  Existing existing = Existing::kRefuse;  // in outputs that a collector may have written
  std::vector<std::string> captures;
};

// Live datagrams. An extra port takes the place of the ports that the handlers prefer.
struct ListenOptions {
  MeterOptions meter;
  OutputOptions output;
  StoreOptions store;
  ClickHouseOptions clickhouse;
  MessageOptions messages;
  std::vector<std::string> bind;          // addresses; empty for all of both families
  WebOptions web;                         // where to show it
  std::vector<Network> allow;             // sources; empty for all
  std::uint32_t interval = 60;            // seconds
  std::uint32_t silent_after = 300;       // seconds; 0 for never
  std::string state_directory;            // empty for none
  bool is_restricted = true;              // gives up what it does not need
  std::size_t memory = 0;                 // bytes; 0 for DefaultMemory
  std::size_t receive_buffer = 16 << 20;  // bytes wanted of the kernel, per socket
};

struct CheckConfigOptions {
  std::string plugin;
  std::string config_directory;
  std::string data_directory;
  bool write_defaults = false;
  bool quiet = false;  // says nothing where nothing is wrong
};

struct InfoOptions {
  std::string plugin;
};

struct ClickHouseSchemaOptions {
  std::string plugin;
  std::string cluster;  // empty for one server
  KafkaOptions kafka;
};

struct StoreCommandOptions {
  std::string directory;
};

}  // namespace flow::host
