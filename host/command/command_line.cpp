// SPDX-License-Identifier: Apache-2.0
#include "host/command/command_line.h"

#include <absl/strings/ascii.h>
#include <absl/strings/match.h>
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <charconv>
#include <cstdint>

#include "host/base/build_text.h"
#include "host/base/error.h"
#include "host/base/memory_budget.h"
#include "host/base/printable.h"
#include "host/command/argument_checks.h"
#include "host/command/clickhouse_line.h"
#include "host/command/command_parts.h"
#include "host/command/describe.h"
#include "host/command/message_line.h"
#include "host/command/store_line.h"
#include "host/command/web_line.h"
#include "host/names/group_catalog.h"

namespace flow::host {
namespace {

constexpr char kAbout[] =
    "flowhost: a host for the flow handlers. It feeds NetFlow, IPFIX and sFlow datagrams to the\n"
    "plug-in library as a traffic-analytics probe would, and shows what the library counts.";

constexpr char kExamples[] =
    "Examples:\n"
    "  flowhost replay router.pcap\n"
    "  flowhost replay --top 20 --group hosts --group flows router.pcap\n"
    "  flowhost listen --state /var/lib/flowhost\n"
    "  flowhost store --store /var/lib/flowhost/store\n"
    "{}"
    "  flowhost check-config /etc/flowhost\n"
    "  flowhost info\n"
    "\n"
    "flowhost COMMAND --help tells more. Exit status: 0 success; 1 trouble with the input, a "
    "policy,\n"
    "the plug-in or an output; 2 wrong usage; 255 a policy file that the plug-in cannot read.";

constexpr char kListenExamples[] =
    "Every interval a summary of it goes to standard output, and at the end one of the whole run.\n"
    "\n"
    "Signals: SIGUSR1 shows the interval so far; SIGHUP checks the policies in another process "
    "and, "
    "when\n"
    "they can be used, has NetFlow meters look at theirs at once; SIGTERM and Ctrl-C end with what "
    "was\n"
    "received so far metered and shown.\n"
    "\n"
    "Examples:\n"
    "  flowhost listen                                 the ports that the handlers prefer\n"
    "  flowhost listen --port netflow=9996 --port sflow=6344 --bind 192.0.2.1\n"
    "  flowhost listen --allow 192.0.2.0/24 --allow 2001:db8::/32   exporters of these alone\n"
    "  flowhost listen --interval 300 --store /var/lib/flowhost/store --state /var/lib/flowhost";

constexpr char kReplayExamples[] =
    "Examples:\n"
    "  flowhost replay router.pcap                     the largest of everything\n"
    "  flowhost replay --home 203.0.113.0/24 *.pcap    with your own home networks\n"
    "  flowhost replay --port netflow=9996 router.pcap exporters that use another port\n"
    "  flowhost replay --json - --top 0 router.pcap    everything, for other programs\n"
    "  flowhost replay --trace - router.pcap           every call of the library";

// The names of all groups, in lines that a terminal holds.
std::string GroupLines() {
  constexpr std::size_t kWidth = 90;
  std::string text = "Groups:";
  std::size_t line = 0;  // where it begins
  for (const std::string_view id : HostGroupIds()) {
    const bool is_full = text.size() - line + id.size() + 2 > kWidth;
    if (is_full) line = text.size() + 1;
    text += fmt::format("{}{},", is_full ? '\n' : ' ', id);
  }
  return text + "\nand those that the plug-in describes (flowhost info).";
}

struct LogLevel {
  const char* name;
  int level;
};
constexpr LogLevel kLogLevels[] = {{"error", kLogError},
                                   {"warning", kLogWarning},
                                   {"progress", kLogProgress},
                                   {"information", kLogInformation}};

std::string CommandNames(const CLI::App& app) {
  std::string names;
  for (const CLI::App* command : Commands(app)) {
    names += (names.empty() ? "" : ", ") + command->get_name();
  }
  return names;
}

Network NetworkFrom(const char* option, const std::string& text) {
  Network network;
  if (!ParseNetwork(text, &network)) {
    throw CLI::ValidationError(option, text + " is no network such as 10.0.0.0/8 or 2001:db8::/32");
  }
  return network;
}

// Whoever sends over IPv4 is known by an IPv4 address, however the network is written.
Network SendersFrom(const std::string& text) {
  constexpr unsigned kFront = 96;
  const Network network = NetworkFrom("--allow", text);
  if (!IpAddress::Parse(text.substr(0, text.find('/')))->MappedIpv4()) return network;
  const auto ipv4 = network.address.MappedIpv4();
  if (!ipv4) {
    throw CLI::ValidationError(
        "--allow",
        text + " is IPv4 within IPv6: its prefix is 96 or more, as in ::ffff:10.0.0.0/104");
  }
  return {*ipv4, network.prefix - kFront};
}

ExtraPort ExtraPortFrom(const std::string& text) {
  const std::size_t equals = text.find('=');
  ExtraPort extra;
  if (equals != std::string::npos) {
    extra.protocol = text.substr(0, equals);
    const auto [end, error] =
        std::from_chars(text.data() + equals + 1, text.data() + text.size(), extra.port);
    if (error != std::errc() || end != text.data() + text.size()) extra.port = 0;
  }
  if (extra.port == 0) {
    throw CLI::ValidationError("--port",
                               text + " is not of the form PROTOCOL=N, N from 1 to 65535");
  }
  return extra;
}

// "512M", "2GiB", "1000000000".
std::size_t MemoryFrom(const std::string& text) {
  constexpr std::string_view kUnits = "KMGT";
  std::size_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [after, error] = std::from_chars(text.data(), end, number);
  std::string_view unit(after, static_cast<std::size_t>(end - after));
  int shift = 0;
  if (!unit.empty()) {
    const std::size_t place = kUnits.find(absl::ascii_toupper(static_cast<unsigned char>(unit[0])));
    if (place != std::string_view::npos) {
      shift = 10 * (static_cast<int>(place) + 1);
      unit.remove_prefix(1);
    }
    if (unit == "B" || unit == "iB") unit = {};
  }
  const bool fits = error == std::errc() && unit.empty() && number <= SIZE_MAX >> shift;
  if (!fits || number << shift < kLeastMemory) {
    throw CLI::ValidationError("--memory", text + " is no size such as 512M or 2G, at least 64M");
  }
  return number << shift;
}

int LogLevelFrom(const std::string& text) {
  for (const LogLevel& level : kLogLevels) {
    if (absl::EqualsIgnoreCase(level.name, text)) return level.level;
    if (std::to_string(level.level) == text) return level.level;
  }
  throw CLI::ValidationError("--log-level",
                             text + " is none of error, warning, progress, information");
}

void AddPluginOption(CLI::App* app, std::string* plugin) {
  app->add_option(
         "--plugin", *plugin,
         "The plug-in library; by default libflowhandlers.so.1 beside flowhost, in ../lib, "
         "or where the system's loader finds it")
      ->type_name("PATH");
}

void AddMeterOptions(CLI::App* app, MeterOptions* options, const char* port_help) {
  AddPluginOption(app, &options->plugin);
  app->add_option(
         "--config", options->config_directory,
         "Directory of the policy files; those that are missing are written there with "
         "every setting at its default (default: flowhost in your configuration directory)")
      ->type_name("DIR");
  app->add_option("--data", options->data_directory,
                  "Directory of the home AS feeds (default: that of the policies)")
      ->type_name("DIR");
  app->add_option(
         "--work", options->work_directory,
         "Directory for the dumps that meters write of their templates (default: none are written)")
      ->type_name("DIR");
  app->add_option_function<std::vector<std::string>>(
         "--home",
         [options](const std::vector<std::string>& texts) {
           for (const std::string& text : texts)
             options->home.push_back(NetworkFrom("--home", text));
         },
         "A home network of IPv4 or IPv6; repeatable (default for each of the two: 10.0.0.0/8, "
         "172.16.0.0/12 and 192.168.0.0/16; fc00::/7). Those of IPv6 decide the totals by "
         "direction, nothing else")
      ->type_name("CIDR")
      ->allow_extra_args(false);
  app->add_option_function<std::vector<std::string>>(
         "--port",
         [options](const std::vector<std::string>& texts) {
           for (const std::string& text : texts)
             options->extra_ports.push_back(ExtraPortFrom(text));
         },
         port_help)
      ->type_name("PROTOCOL=N")
      ->allow_extra_args(false);
  app->add_option("--instances", options->instances,
                  "Meters side by side, each in a thread, exporters spread over them by address "
                  "(default: 1)")
      ->type_name("N")
      ->check(CLI::Range(1, 64));
  app->add_option_function<std::string>(
         "--log-level",
         [options](const std::string& text) { options->log_level = LogLevelFrom(text); },
         "Log messages of the plug-in that are shown: error, warning, progress or information "
         "(default: warning)")
      ->type_name("LEVEL");
}

void AddOutputOptions(CLI::App* app, OutputOptions* options) {
  app->add_option("--top", options->report.top,
                  "Keys shown per group (default: 10; 0 for no groups)")
      ->type_name("N")
      ->check(NotNegative());
  app->add_option("--group", options->report.group_ids,
                  "Only this group, also in the files; repeatable")
      ->type_name("NAME")
      ->allow_extra_args(false);
  app->add_flag("--raw-keys", options->report.raw_keys, "Show keys as the library names them");
  app->add_flag("--exact", options->report.exact, "Show bytes to the last digit");
  app->add_flag("--split-flows", options->report.split_flows,
                "Show flows apart by exporter, interfaces and clients' ports of 53, 80 and 443");
  for (const OutputKind& kind : OutputKinds()) {
    app->add_option_function<std::string>(
           fmt::format("--{}", kind.name),
           [options, &kind](const std::string& place) {
             if (!place.empty()) options->destinations.push_back({&kind, place});
           },
           std::string(kind.help))
        ->type_name(std::string(kind.place_type));
  }
}

void AddListenOptions(CLI::App* app, ListenOptions* options) {
  app->footer(kListenExamples);
  AddMeterOptions(app, &options->meter,
                  "A UDP port to listen on instead of those that the handlers prefer, as in "
                  "netflow=9996; repeatable");
  AddOutputOptions(app, &options->output);
  AddStoreOptions(app, &options->store);
  AddClickHouseOptions(app, &options->clickhouse, true);
  AddMessageOptions(app, &options->messages, &options->output);
  AddListenWeb(app, &options->web);
  app->add_option("--keep-days", options->output.keep_days,
                  "How long time buckets stay in the SQLite database (default: 7; 0 for ever)")
      ->type_name("N")
      ->check(CLI::Range(0, 36500));
  app->add_option("--bind", options->bind,
                  "IPv4 or IPv6 address to listen on; repeatable (default: all)")
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
  app->add_option_function<std::vector<std::string>>(
         "--allow",
         [options](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) {
             options->allow.push_back(SendersFrom(text));
           }
         },
         "A network of IPv4 or IPv6, or an address, whose datagrams are taken; repeatable. Others "
         "are counted and dropped (default: all may send)")
      ->type_name("CIDR")
      ->allow_extra_args(false);
  app->add_option("--interval", options->interval, "Seconds between summaries (default: 60)")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, 86400));
  app->add_option("--silent-after", options->silent_after,
                  "Tell of an exporter that has sent nothing for so long, and when it sends again "
                  "(default: 300; 0 for never)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0, 7 * 86400));
  app->add_option("--state", options->state_directory,
                  "Directory in which templates, and which exporters over IPv6 there are, are kept "
                  "across restarts (default: they are not)")
      ->type_name("DIR");
  app->add_option_function<std::string>(
         "--memory", [options](const std::string& text) { options->memory = MemoryFrom(text); },
         "Memory for what exporters send, as in 512M or 2G; at the limit the least valuable goes, "
         "counted (default: half of the machine's, at most the control group's)")
      ->type_name("SIZE");
  AddNoSandbox(app, &options->is_restricted);
  app->add_option("--receive-buffer", options->receive_buffer,
                  "Bytes per socket that the kernel is asked to hold (default: 16 MiB)")
      ->type_name("BYTES")
      ->check(CLI::Range(4096, 1 << 30));
}

void AddCheckConfigOptions(CLI::App* app, CheckConfigOptions* options) {
  app->footer(
      "Exit status: 0 fine; 3 usable, with warnings; 1 a policy that cannot be used, which would "
      "end a\ncollector that reads it.");
  AddPluginOption(app, &options->plugin);
  app->add_option("--data", options->data_directory,
                  "Directory of the home AS feeds (default: that of the policies)")
      ->type_name("DIR");
  app->add_flag("--write-defaults", options->write_defaults,
                "Write policies that are missing, every setting at its default");
  app->add_flag("--quiet", options->quiet, "Say nothing where nothing is wrong");
  app->add_option("DIR", options->config_directory, "Directory of the policy files")
      ->required()
      ->type_name("");
}

}  // namespace

std::optional<Command> ParseCommandLine(int argc, const char* const* argv, int* status) {
  CLI::App app(kAbout, "flowhost");
  app.footer(
      fmt::format(kExamples, HasWeb() ? "  flowhost serve --store /var/lib/flowhost/store\n" : ""));
  app.require_subcommand(1);
  app.failure_message([&app](const CLI::App*, const CLI::Error& error) {
    const bool no_command = std::string_view(error.what()) == "A subcommand is required";
    return fmt::format("flowhost: {}\nRun flowhost --help for how it is used.\n",
                       no_command ? "a command is required: " + CommandNames(app) : error.what());
  });
  app.set_version_flag("--version", fmt::format("flowhost {}", BuildText()));

  ReplayOptions replay;
  CLI::App* const replay_app =
      app.add_subcommand("replay", "Meter the export datagrams in capture files");
  replay_app->footer(fmt::format("{}\n\n{}", kReplayExamples, GroupLines()));
  AddMeterOptions(replay_app, &replay.meter,
                  "A further UDP port of a protocol, as in netflow=9996; repeatable");
  AddOutputOptions(replay_app, &replay.output);
  replay.store.KeepAll();
  AddStoreOptions(replay_app, &replay.store);
  AddClickHouseOptions(replay_app, &replay.clickhouse, false);
  AddMessageOptions(replay_app, &replay.messages, &replay.output);
  CLI::Option* const interval =
      replay_app
          ->add_option("--interval", replay.interval,
                       "Report every so many seconds of the captures' time, in bounded memory "
                       "(default: once, at the end)")
          ->type_name("SECONDS")
          ->check(CLI::Range(1, 86400));
  replay.output.keep_days = 0;
  CLI::Option* const replace = replay_app->add_flag_callback(
      "--replace", [&replay] { replay.existing = Existing::kReplace; },
      "Write into an SQLite database that holds what a collector has counted, or tables of others: "
      "its time buckets go, the report takes the place of tables of the same name");
  replay_app
      ->add_flag_callback(
          "--append", [&replay] { replay.existing = Existing::kAppend; },
          "Add the intervals to what an SQLite database holds; the same one takes the place of its "
          "former self")
      ->needs(interval)
      ->excludes(replace);
  replay_app
      ->add_option("--trace", replay.trace,
                   "Write every call of the library; - for standard output")
      ->type_name("FILE");
  replay_app
      ->add_option("CAPTURE", replay.captures,
                   "pcap or pcapng files, plain or compressed with gzip or zstd; - for "
                   "standard input")
      ->required()
      ->type_name("");

  ListenOptions listen;
  CLI::App* const listen_app =
      app.add_subcommand("listen", "Meter the export datagrams that arrive on UDP ports");
  AddListenOptions(listen_app, &listen);

  CheckConfigOptions check;
  CLI::App* const check_app = app.add_subcommand(
      "check-config", "Tell whether the plug-in can use the policy files in a directory");
  AddCheckConfigOptions(check_app, &check);

  StoreCommandOptions store;
  CLI::App* const store_app = app.add_subcommand(
      "store", "Tell what a store has, how large it is, how far it reaches, and its gaps");
  store_app->add_option("--store", store.directory, "The directory of the store")
      ->required()
      ->type_name("DIR");

  ServeOptions serve;
  const CLI::App* const serve_app = AddServe(&app, &serve);

  InfoOptions info;
  CLI::App* const info_app = app.add_subcommand(
      "info", "Tell what the plug-in offers: components, protocols, ports, groups, meters");
  AddPluginOption(info_app, &info.plugin);

  ClickHouseSchemaOptions schema;
  CLI::App* const schema_app = app.add_subcommand(
      "clickhouse-schema", "Print the statements that make a ClickHouse's tables and views");
  schema_app->footer(
      "Examples:\n"
      "  clickhouse-client --query 'CREATE DATABASE flows'\n"
      "  flowhost clickhouse-schema | clickhouse-client --database flows --multiquery\n"
      "  flowhost listen --clickhouse http://user@host:8123/flows --spool /var/spool/flowhost");
  AddPluginOption(schema_app, &schema.plugin);
  schema_app
      ->add_option("--cluster", schema.cluster,
                   "For each of several servers, which their settings (remote_servers) call so "
                   "together: the views have what all of them have")
      ->type_name("NAME")
      ->check([](const std::string& name) {
        return IsSqlName(name) ? ""
                               : "'" + Printable(name) + "' is no name of letters, digits and _";
      });
  CLI::Option* const schema_kafka =
      schema_app
          ->add_option("--kafka", schema.kafka.brokers,
                       "Tables that read what collectors send to this Kafka, too, and views "
                       "that bring it into the others")
          ->type_name("HOST:PORT,...");
  schema_app
      ->add_option("--kafka-topics", schema.kafka.topics,
                   "What the topics' names begin with (default: flowhost)")
      ->type_name("NAME")
      ->check(TopicName())
      ->needs(schema_kafka);

  const AskCommandLine ask(&app);
  AddDescribe(&app);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    *status = app.exit(error) == 0 ? kExitOk : kExitUsage;
    return std::nullopt;
  }
  if (replay_app->parsed()) return replay;
  if (listen_app->parsed()) return listen;
  if (check_app->parsed()) return check;
  if (const auto question = ask.Parsed()) return *question;
  if (const auto report = ask.Report()) return *report;
  if (store_app->parsed()) return store;
  if (serve_app->parsed()) return serve;
  if (schema_app->parsed()) return schema;
  return info;
}

}  // namespace flow::host
