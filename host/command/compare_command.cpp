// SPDX-License-Identifier: Apache-2.0
#include "host/command/compare_command.h"

#include <fmt/format.h>

#include "host/ask/compare.h"
#include "host/base/error.h"
#include "host/command/ask_setup.h"

namespace flow::host {

Answered AnswerCompare(const CompareOptions& options) {
  AskSetup setup(options.ask, kHourSeconds);
  const Zone& zone = setup.view().zone;
  const TimeSpan against = ResolveAgainst(options.against, setup.span(), setup.now(), zone);
  if (!options.new_peers) {
    if (!options.of.empty()) throw UsageError("--of goes with --new-peers");
    const CompareQuestion question{options.group, options.ask.by, options.ask.top};
    return setup.Give(
        AskCompare(setup.counters(), question, setup.span(), against, setup.names(), zone));
  }
  const auto host = IpAddress::Parse(options.of);
  if (!host || options.group != "hosts") {
    throw UsageError(
        "--new-peers asks for hosts, and --of for the address of one: compare hosts "
        "--of 10.0.0.5 --new-peers");
  }
  return setup.Give(AskNewPeers(setup.counters(), *host, options.ask.top, setup.span(), against,
                                setup.names(), zone));
}

}  // namespace flow::host
