#include "host/command/ask_command_line.h"

#include <string>

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
    "Examples:\n"
    "  flowhost top hosts --store DIR --from 02:00 --to 03:00      who used the line last night\n"
    "  flowhost top as --store DIR --from yesterday                AS totals of yesterday\n"
    "  flowhost top interfaces --store DIR --from -24h --by packets\n"
    "  flowhost top hosts --store DIR --from today --json          for other programs";

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
    "  flowhost flows 'host 10.0.0.5' --group-by host,port --from -1h       what it talked to\n"
    "  flowhost flows 'bytes > 1G' --from -24h --sort duration              the flows over 1 GB\n"
    "  flowhost flows --group-by src,dport --from 02:00 --to 03:00 --top 20\n"
    "  flowhost flows 'tcp and dst port 25' --group-by src --by flows       who sends mail";

void AddAskOptions(CLI::App* app, AskOptions* options) {
  app->add_option("--store", options->store, "Directory of the store")
      ->type_name("DIR")
      ->required();
  app->add_option("--from", options->span.from, "When the span begins")->type_name("TIME");
  app->add_option("--to", options->span.to, "When it ends")->type_name("TIME");
  app->add_flag("--utc", options->utc, "Read and show times in UTC rather than of this place");
  app->add_option("--names", options->names,
                  "File of names: lines such as 10.0.0.5 backup-1, 10.1.0.0/16 office, 10.0.0.1:3 "
                  "uplink, AS64500 example, 8443/tcp console")
      ->type_name("FILE");
  app->add_flag_callback(
      "--json", [options] { options->form = AnswerForm::kJson; }, "Print JSON");
  app->add_flag_callback(
      "--csv", [options] { options->form = AnswerForm::kCsv; }, "Print CSV");
  app->add_flag("--exact", options->exact, "Show all digits");
}

void AddRanking(CLI::App* app, AskOptions* options, const std::string& what) {
  app->add_option("--by", options->by, "Largest first by " + what)->type_name("WHAT");
  app->add_option("--top", options->top, "Rows shown (default: 10)")->type_name("N");
}

}  // namespace

AskCommandLine::AskCommandLine(CLI::App* app) {
  CLI::App* const top = app->add_subcommand("top", "Ask a store for the largest of a group");
  top->footer(std::string(kTimes) + "\n\n" + kTopExamples);
  AddAskOptions(top, &top_.ask);
  AddRanking(top, &top_.ask, "bytes (default), packets, or another column of the group");
  top->add_option("GROUP", top_.group, "What is counted")->required()->type_name("");
  top_app_ = top;

  CLI::App* const flows =
      app->add_subcommand("flows", "Ask a store for flows, one by one or summed");
  flows->footer(std::string(kTimes) + "\n\n" + kFilters + "\n\n" + kFlowsExamples);
  AddAskOptions(flows, &flows_.ask);
  AddRanking(flows, &flows_.ask, "bytes (default), packets or flows");
  flows
      ->add_option("--group-by", flows_.group_by,
                   "Sums by these fields, as in src,dport, rather than single flows")
      ->type_name("FIELDS");
  flows
      ->add_option("--sort", flows_.sort,
                   "As --by, or by duration, or the earliest first by first or last")
      ->type_name("WHAT");
  flows->add_option("FILTER", flows_.filter, "Which flows (default: all)")->type_name("");
  flows_app_ = flows;
}

std::optional<AskCommand> AskCommandLine::Parsed() const {
  if (top_app_->parsed()) return top_;
  if (flows_app_->parsed()) return flows_;
  return std::nullopt;
}

}  // namespace flow::host
