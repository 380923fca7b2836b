// SPDX-License-Identifier: Apache-2.0
#include "bench/flowgen/command_line.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <charconv>
#include <map>

#include "bench/flowgen/output.h"
#include "bench/flowgen/traffic_model.h"

namespace flow::gen {
namespace {

constexpr char kAbout[] =
    "flowgen: makes export datagrams of invented traffic and writes them into a capture file or\n"
    "sends them over the loopback interface. The same seed gives the same traffic.";

constexpr char kFooter[] =
    "Examples:\n"
    "  flowgen --records 5000000 --hosts 200000 --exporters 16 --write big.pcap\n"
    "  flowgen --format ipfix --records 24000000 --hosts 100000 --minutes 60 --fresh-hosts \\\n"
    "          --write hour.pcap                        100,000 other hosts every minute\n"
    "  flowgen --format mixed --exporters 8 --drop-every 100 --write gaps.pcap\n"
    "  flowgen --format netflow9 --records 50000000 --exporters 4 --send 127.0.0.1:2055\n"
    "\n"
    "Written at the end, a name and a number a line: datagrams, datagram_bytes (UDP payload),\n"
    "records (sFlow: samples), bytes and packets (what the records claim, scaled by the sampling\n"
    "rate) of what was written or sent; the same five with left_out_ in front of what "
    "--drop-every\n"
    "left out, which the others do not contain; send_errors (reports of the kernel that nobody\n"
    "listens); seconds.\n"
    "\n"
    "Captures begin at 1700000000 seconds since 1970. What is sent has clocks that end now.\n"
    "Exit status: 0 success; 1 trouble with writing or sending, also send errors; 2 wrong usage.";

const std::map<std::string, Format> kFormatNames = {{"netflow5", Format::kNetflow5},
                                                    {"netflow9", Format::kNetflow9},
                                                    {"ipfix", Format::kIpfix},
                                                    {"sflow", Format::kSFlow}};

void SetFormat(const std::string& name, Options* options) {
  options->mixed = name == "mixed";
  const auto format = kFormatNames.find(name);
  if (format != kFormatNames.end()) {
    options->format = format->second;
  } else if (!options->mixed) {
    throw CLI::ValidationError("--format",
                               name + " is none of netflow5, netflow9, ipfix, sflow, mixed");
  }
}

void SetDestination(const std::string& text, Options* options) {
  const std::size_t colon = text.find(':');
  in_addr address{};
  if (inet_pton(AF_INET, text.substr(0, colon).c_str(), &address) != 1) {
    throw CLI::ValidationError("--send", text + " is not of the form ADDRESS[:PORT]");
  }
  options->send_to = ntohl(address.s_addr);
  if (options->send_to >> 24 != 127) {
    throw CLI::ValidationError("--send", text + " is not on loopback (127.0.0.0/8)");
  }
  if (colon == std::string::npos) return;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, options->port);
  if (error != std::errc() || stop != end || options->port == 0) {
    throw CLI::ValidationError("--send", text + " has no port from 1 to 65535");
  }
}

void AddTrafficOptions(CLI::App* app, Options* options) {
  app->add_option_function<std::string>(
         "--format", [options](const std::string& name) { SetFormat(name, options); },
         "netflow5, netflow9, ipfix, sflow, or mixed: the exporters take turns through all four "
         "(default: netflow5)")
      ->type_name("FORMAT");
  app->add_option("--records", options->records, "Records or samples in all (default: 1000000)")
      ->type_name("N")
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1'000'000'000'000}));
  app->add_option("--hosts", options->hosts,
                  "Distinct addresses, half of them in 10.0.0.0/8; all appear from N records on "
                  "(default: 10000)")
      ->type_name("N")
      ->check(CLI::Range(2U, kMaxHosts));
  app->add_option("--seed", options->seed, "Another seed, other traffic (default: 1)")
      ->type_name("N");
  app->add_option("--minutes", options->minutes,
                  "Minutes over which the datagrams' clocks are spread (default: 1)")
      ->type_name("M")
      ->check(CLI::Range(1U, 60'000U));
  app->add_flag("--fresh-hosts", options->fresh_hosts, "Every minute has --hosts of its own");
  app->add_flag(
      "--realistic", options->realistic,
      "Hosts by a 1/x law, and 27 of 100 records open a flow (default: nearly all do, and "
      "every host has its turn)");
  app->add_option("--sampling-rate", options->sampling_rate,
                  "Sampling rate that sFlow samples state (default: 1)")
      ->type_name("N")
      ->check(CLI::Range(1U, 1'000'000U));
}

void AddOutputOptions(CLI::App* app, Options* options) {
  app->add_option("--exporters", options->exporters,
                  "Exporters, with an address and a port each (default: 1; 4 when mixed)")
      ->type_name("N")
      ->check(CLI::Range(1U, kMaxExporters));
  app->add_option("--drop-every", options->drop_every,
                  "Leave out every Nth datagram of each exporter; sequence numbers count on")
      ->type_name("N")
      ->check(CLI::Range(2U, 1'000'000'000U));
  CLI::Option* const write =
      app->add_option("--write", options->write, "Write a pcap file")->type_name("FILE");
  CLI::Option* const send =
      app->add_option_function<std::string>(
             "--send", [options](const std::string& text) { SetDestination(text, options); },
             "Send over UDP to an address in 127.0.0.0/8 (default ports: NetFlow 2055, IPFIX 4739, "
             "sFlow 6343)")
          ->type_name("ADDRESS[:PORT]")
          ->excludes(write);
  app->add_option("--sflow-port", options->sflow_port, "Another port for sFlow alone")
      ->type_name("PORT")
      ->check(CLI::Range(1U, 65'535U));
  app->add_option("--rate", options->rate,
                  "Datagrams a second when sending (default: as many as go)")
      ->type_name("N")
      ->needs(send);
  app->add_option("--batch", options->batch,
                  "Datagrams of an exporter that are sent at once (default: 32)")
      ->type_name("N")
      ->check(CLI::Range(1U, 1024U))
      ->needs(send);
}

// Complete settles what depends on several options.
void Complete(const CLI::App& app, Options* options) {
  if (options->write.empty() && options->send_to == 0) {
    throw CLI::ValidationError("one of --write FILE and --send ADDRESS:PORT is required");
  }
  if (options->mixed && app.count("--exporters") == 0) options->exporters = kFormats;
  if (options->mixed && options->exporters < kFormats) {
    throw CLI::ValidationError("--exporters", "mixed formats need at least 4");
  }
  if (options->mixed && options->port != 0 && options->sflow_port == 0) {
    throw CLI::ValidationError("--sflow-port", "needed beside one port for the other formats");
  }
  const std::uint64_t periods = options->fresh_hosts ? options->minutes : 1;
  if (options->hosts * periods > kMaxHosts) {
    throw CLI::ValidationError(
        "--hosts", fmt::format("{} in each of {} minutes are more than the {} that there are",
                               options->hosts, periods, kMaxHosts));
  }
  // A low rate is kept in small steps.
  if (options->rate != 0) {
    options->batch = std::clamp(options->rate / 200, 1U, options->batch);
  }
}

}  // namespace

std::optional<Options> ParseCommandLine(int argc, const char* const* argv, int* status) {
  CLI::App app(kAbout, "flowgen");
  app.footer(kFooter);
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return fmt::format("flowgen: {}\nRun flowgen --help for how it is used.\n", error.what());
  });
  Options options;
  AddTrafficOptions(&app, &options);
  AddOutputOptions(&app, &options);
  try {
    app.parse(argc, argv);
    Complete(app, &options);
  } catch (const CLI::ParseError& error) {
    *status = app.exit(error) == 0 ? kExitOk : kExitUsage;
    return std::nullopt;
  }
  return options;
}

}  // namespace flow::gen
