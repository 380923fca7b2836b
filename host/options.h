// What the command line asks for.
#pragma once

#include <string>
#include <vector>

#include "host/meter/port_map.h"
#include "host/policy/home_networks.h"
#include "host/report/report.h"
#include "plugin/host_interfaces.h"

namespace flow::host {

// What every command that runs meters needs. Empty texts ask for the default.
struct MeterOptions {
  std::string plugin;            // path of the library
  std::string config_directory;  // policies
  std::string data_directory;    // feeds; the config directory by default
  std::string work_directory;    // template dumps; none by default
  std::vector<Network> home;     // empty for the private ranges
  std::vector<ExtraPort> extra_ports;
  int instances = 1;
  int log_level = kLogWarning;
};

// Where the results go beside the summary; empty for nowhere.
struct OutputOptions {
  ReportOptions report;  // group_ids holds names as given until the groups are known
  std::string json;
  std::string csv;
  std::string sqlite;
};

struct ReplayOptions {
  MeterOptions meter;
  OutputOptions output;
  std::string trace;
  std::vector<std::string> captures;
};

struct InfoOptions {
  std::string plugin;
};

}  // namespace flow::host
