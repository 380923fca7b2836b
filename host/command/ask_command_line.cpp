// SPDX-License-Identifier: Apache-2.0
#include "host/command/ask_command_line.h"

#include <string>
#include <utility>

#include "host/command/argument_checks.h"
#include "host/command/clickhouse_line.h"
#include "host/command/web_line.h"

namespace flow::host {
namespace {

constexpr char kTimes[] =
    "Times: now, -1h, -30m, -7d, 02:00 (the last one that was), yesterday, today 02:00, "
    "2026-11-24,\n"
    "2026-11-24 22:00; of this place, with --utc of Greenwich. A day alone is all of it; without\n"
    "--from it is the last hour, without --to up to now.";

constexpr char kTopExamples[] =
    "GROUP is hosts, as, applications, interfaces, exporters, protocols, ... as the store has "
    "them.\n"
    "\n"
    "Ten questions, each with --store DIR; the manual, docs/operator.md, shows their answers:\n"
    "  top hosts --from 02:00 --to 03:00                 who used the line last night\n"
    "  flows 'src 10.0.0.5' --from 02:00 --to 03:00 --group-by dst,dport\n"
    "                                                    what one host talked to\n"
    "  series --interface 10.0.0.1:3 --from yesterday --step 5m\n"
    "                                                    an interface over a day\n"
    "  top as --from yesterday                           AS totals of yesterday\n"
    "  series --application 443 --from -24h --step 1h    an application's share over the day\n"
    "  losses --from -24h                                who lost datagrams\n"
    "  exporters --from -24h                             which fell silent, and when\n"
    "  flows 'bytes > 1G' --from -24h --sort duration    the flows over 1 GB\n"
    "  compare hosts --of 10.0.0.5 --new-peers --from -24h --against -48h\n"
    "                                                    new destinations of a host\n"
    "  compare totals --from 09:00 --to 10:00 --against yesterday\n"
    "                                                    the same hour yesterday beside today";

constexpr char kFilters[] =
    "FILTER says which flows: host 10.0.0.5 and port 443; src net 10.0.0.0/8 and not dst as "
    "64500;\n"
    "tcp; bytes > 1M; exporter 10.0.0.1 and interface 3 in; duration > 60; and, or, not, "
    "parentheses.\n"
    "A flow is what was counted of it in a minute, with both directions; a filter or field that "
    "tells\n"
    "source from destination sees each direction as a flow.";

constexpr char kFlowsExamples[] =
    "Examples:\n"
    "  flowhost flows 'src 10.0.0.5' --group-by dst,dport --from -1h        what it talked to\n"
    "  flowhost flows 'bytes > 1G' --from -24h --sort duration              the flows over 1 GB\n"
    "  flowhost flows --group-by src,dport --from 02:00 --to 03:00 --top 20\n"
    "  flowhost flows 'tcp and dst port 25' --group-by src --by flows       who sends mail";

constexpr char kSeriesExamples[] =
    "Examples:\n"
    "  flowhost series --from yesterday --step 1h                            all traffic\n"
    "  flowhost series --interface 10.0.0.1:3 --from yesterday --step 5m     an interface\n"
    "  flowhost series --application 443 --from -24h --step 1h               and its share\n"
    "  flowhost series 'host 10.0.0.5 and udp' --from -6h                    any flows";

constexpr char kLossesExamples[] =
    "On the way: sequence numbers are missing. Here: for want of room, in a socket's buffer or a\n"
    "queue. Refused: datagrams that could not be read. Left out: records that were not metered.\n"
    "\n"
    "Examples:\n"
    "  flowhost losses --from -24h          who lost datagrams\n"
    "  flowhost losses --from 02:00 --to 03:00 --json";

constexpr char kExportersExamples[] =
    "Silent is who said nothing for five minutes or more while the collector ran.\n"
    "\n"
    "Examples:\n"
    "  flowhost exporters                   who exports, and which fell silent and when\n"
    "  flowhost exporters --from yesterday";

constexpr char kReportExamples[] =
    "The file needs nobody: it opens in any browser, and asks for nothing elsewhere.\n"
    "\n"
    "Examples:\n"
    "  flowhost report --store DIR --from yesterday -o yesterday.html\n"
    "  flowhost report --store DIR --from 02:00 --to 03:00 --keys 10 -o night.html";

constexpr char kCompareExamples[] =
    "The other time is as long as the one that is asked for: --against yesterday is the same time\n"
    "of yesterday, --against -48h begins then.\n"
    "\n"
    "Examples:\n"
    "  flowhost compare totals --from 09:00 --to 10:00 --against yesterday\n"
    "  flowhost compare hosts --from 09:00 --to 10:00 --against yesterday    the largest changes\n"
    "  flowhost compare hosts --of 10.0.0.5 --new-peers --from -24h --against -48h";

// What is asked, of what time, and with which names.
void AddSourceOptions(CLI::App* app, AskOptions* options) {
  app->add_option("--store", options->store, "Directory of the store")->type_name("DIR");
  app->add_option("--read", options->read.captures,
                  "Captures rather than a store; without --from all that they have")
      ->type_name("CAPTURE...");
  app->add_option("--plugin", options->read.plugin, "With --read: the plug-in library")
      ->type_name("PATH");
  app->add_option("--port", options->read.ports, "With --read: as replay takes it; repeatable")
      ->type_name("PROTOCOL=N")
      ->allow_extra_args(false);
  app->add_option("--home", options->read.home, "With --read: as replay takes it; repeatable")
      ->type_name("CIDR")
      ->allow_extra_args(false);
  app->add_option("--from", options->span.from, "When the span begins")->type_name("TIME");
  app->add_option("--to", options->span.to, "When it ends")->type_name("TIME");
  app->add_flag("--utc", options->utc, "Read and show times in UTC rather than of this place");
  app->add_option("--names", options->names,
                  "File of names: lines such as 10.0.0.5 backup-1, 10.1.0.0/16 office, 10.0.0.1:3 "
                  "uplink, AS64500 example, 8443/tcp console")
      ->type_name("FILE");
  app->add_option("--geo", options->geo,
                  "Database in the MaxMind format, for countries and AS numbers of addresses; "
                  "repeatable")
      ->type_name("FILE")
      ->allow_extra_args(false);
  app->add_flag("--dns", options->dns, "Ask the DNS for names of addresses without another one");
  AddClickHouseSource(app, &options->clickhouse,
                      "A ClickHouse rather than a store, as in http://user@host:8123/flows");
}

void AddAskOptions(CLI::App* app, AskOptions* options) {
  AddSourceOptions(app, options);
  app->add_flag_callback(
      "--json", [options] { options->form = AnswerForm::kJson; }, "Print JSON");
  app->add_flag_callback(
      "--csv", [options] { options->form = AnswerForm::kCsv; }, "Print CSV");
  app->add_flag("--exact", options->exact, "Show all digits");
}

void AddRanking(CLI::App* app, AskOptions* options, const std::string& what) {
  app->add_option("--by", options->by, "Largest first by " + what)->type_name("WHAT");
  app->add_option("--top", options->top, "Rows shown (default: 10)")
      ->type_name("N")
      ->check(NotNegative());
}

void AddStep(CLI::App* app, std::string* step) {
  app->add_option("--step", *step,
                  "With --json, what each row had step by step; whole minutes, as in 5m")
      ->type_name("LENGTH");
}

// A key of a group by a name of its own: --host 10.0.0.5.
struct KeyOption {
  const char* name;
  const char* group;
  const char* form;
  const char* help;
};
constexpr KeyOption kKeyOptions[] = {
    {"--host", "hosts", "ADDRESS", "A host"},
    {"--interface", "interfaces", "ADDRESS:N", "An interface of an exporter, by its ifIndex"},
    {"--exporter", "exporters", "ADDRESS", "An exporter"},
    {"--application", "applications", "PORT", "An application, by the port that it is counted by"},
    {"--as", "as", "ASN", "An AS, as in AS64500"},
};

void AddFlows(CLI::App* app, FlowsOptions* options) {
  app->add_option("--group-by", options->group_by,
                  "Sums by these fields, as in src,dport, rather than single flows")
      ->type_name("FIELDS");
  app->add_option("--sort", options->sort,
                  "As --by, or by duration, or the earliest first by first or last")
      ->type_name("WHAT");
  AddStep(app, &options->step);
  app->add_option("FILTER", options->filter, "Which flows (default: all)")->type_name("");
}

void AddSeries(CLI::App* app, SeriesOptions* options) {
  app->add_option("--by", options->ask.by, "Bytes (default) or packets")->type_name("WHAT");
  app->add_option("--step", options->step, "Length of a step, whole minutes (default: about forty)")
      ->type_name("LENGTH");
  for (const KeyOption& key : kKeyOptions) {
    app->add_option_function<std::string>(
           key.name,
           [options, &key](const std::string& text) {
             options->group = key.group;
             options->key = text;
           },
           key.help)
        ->type_name(key.form);
  }
  app->add_option("--group", options->group, "Any group, with --key")->type_name("GROUP");
  app->add_option("--key", options->key, "A key of it, as top shows it")->type_name("KEY");
  app->add_option("FILTER", options->filter, "Flows rather than a key")->type_name("");
}

void AddReport(CLI::App* app, PageReportOptions* options) {
  app->footer(std::string(kTimes) + "\n\n" + kReportExamples);
  if (!HasWeb()) app->group("");
  AddSourceOptions(app, &options->ask);
  app->add_option("-o,--output", options->output, "The file; - for standard output")
      ->type_name("FILE")
      ->required();
  app->add_option(
         "--keys", options->keys,
         "How many of the largest hosts, applications, interfaces and AS numbers have views "
         "of their own (default: 3)")
      ->type_name("N")
      ->check(CLI::Range(0, 100));
}

void AddCompare(CLI::App* app, CompareOptions* options) {
  app->add_option("--against", options->against, "The time that is compared with")
      ->type_name("TIME")
      ->required();
  app->add_option("--of", options->of, "A host, for --new-peers")->type_name("ADDRESS");
  app->add_flag("--new-peers", options->new_peers,
                "Hosts that it exchanged traffic with now, and not in the other time");
  app->add_option("GROUP", options->group, "What is compared, as top has it")
      ->required()
      ->type_name("");
}

}  // namespace

AskCommandLine::AskCommandLine(CLI::App* app) : app_(app) {
  const auto add = [&](const char* name, const char* about, std::string footer, AskOptions* ask) {
    CLI::App* const command = app->add_subcommand(name, about);
    command->footer(std::string(kTimes) + "\n\n" + std::move(footer));
    AddAskOptions(command, ask);
    return command;
  };
  const std::string filters = std::string(kFilters) + "\n\n";

  CLI::App* const top =
      add("top", "Ask a store for the largest of a group", kTopExamples, &top_.ask);
  AddRanking(top, &top_.ask, "bytes (default), packets, or another column of the group");
  AddStep(top, &top_.step);
  top->add_option("GROUP", top_.group, "What is counted")->required()->type_name("");

  CLI::App* const flows = add("flows", "Ask a store for flows, one by one or summed",
                              filters + kFlowsExamples, &flows_.ask);
  AddRanking(flows, &flows_.ask, "bytes (default), packets or flows");
  AddFlows(flows, &flows_);

  AddSeries(add("series", "Ask a store how much there was, step by step", filters + kSeriesExamples,
                &series_.ask),
            &series_);
  add("losses", "Ask a store what was lost, and where", kLossesExamples, &losses_.ask);
  add("exporters", "Ask a store who exports, and who fell silent", kExportersExamples,
      &exporters_.ask);
  CLI::App* const compare =
      add("compare", "Ask a store for one time beside another", kCompareExamples, &compare_.ask);
  AddRanking(compare, &compare_.ask, "bytes (default), or another column of the group");
  AddCompare(compare, &compare_);
  AddReport(app->add_subcommand("report", "Make the page of a time as one file, to send"),
            &report_);
}

std::optional<AskCommand> AskCommandLine::Parsed() const {
  const auto is = [this](const char* name) { return app_->got_subcommand(name); };
  if (is("top")) return top_;
  if (is("flows")) return flows_;
  if (is("series")) return series_;
  if (is("losses")) return losses_;
  if (is("exporters")) return exporters_;
  if (is("compare")) return compare_;
  return std::nullopt;
}

std::optional<PageReportOptions> AskCommandLine::Report() const {
  if (!app_->got_subcommand("report")) return std::nullopt;
  return report_;
}

}  // namespace flow::host
