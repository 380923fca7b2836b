// SPDX-License-Identifier: Apache-2.0
#include "host/command/web_site.h"

#include "host/ask/key_names.h"

namespace flow::host {

WebSite::WebSite(const WebOptions& options, bool is_live)
    : has_store_(!options.store.empty() || !options.clickhouse.url.empty()),
      api_(options, is_live) {
  // Each question reads them anew; what is wrong with them is told before the first.
  KeyNames names;
  if (!options.names.empty()) names.ReadFile(options.names);
  for (const std::string& path : options.geo) names.ReadGeo(path);
}

HttpAnswer WebSite::Answer(const HttpRequest& request) const {
  if (!request.path.starts_with("/api/")) return page_.Answer(request);
  if (has_store_) return api_.Answer(request);
  return ErrorAnswer(404,
                     "flowhost keeps no store, so there is nothing to ask: listen --store DIR");
}

}  // namespace flow::host
