// SPDX-License-Identifier: Apache-2.0
// Talks to a ClickHouse over HTTP, by libcurl. One thread's at a time.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/error.h"
#include "host/scale/clickhouse_server.h"

namespace flow::host {

// The server answered that it cannot do it.
class ClickHouseRefusal : public HostError {
 public:
  using HostError::HostError;
};

// Trying again will not help.
class ClickHouseGivesUp : public HostError {
 public:
  using HostError::HostError;
};

class ClickHouseClient {
 public:
  // UsageError where flowhost was built without libcurl.
  explicit ClickHouseClient(ClickHouseServer server);
  ~ClickHouseClient();
  ClickHouseClient(const ClickHouseClient&) = delete;
  ClickHouseClient& operator=(const ClickHouseClient&) = delete;

  // Insert sends rows behind "INSERT INTO ... FORMAT RowBinary". ClickHouseRefusal or another
  // HostError where it is not known that they are there: none, some or all of them may be. While a
  // query of the same id runs at the server it takes none.
  void Insert(const std::string& statement, const std::string& query_id, std::string_view rows);

  // Ask gives what a query answers, in the form that it names; Execute runs one without an answer.
  std::string Ask(const std::string& query);

  // AskAtLength is for what may take its time and much memory, of which the server then puts some
  // on its disk. The thread's ReadLimit ends it.
  std::string AskAtLength(const std::string& query);
  void Execute(const std::string& statement) { Ask(statement); }

  // Abort has what is under way fail, and all that comes later. Any thread.
  void Abort() { is_aborted_ = true; }

  [[nodiscard]] const ClickHouseServer& server() const { return server_; }

  // Whether this flowhost can talk to one at all.
  static bool IsBuiltIn();

 private:
  class Handle;

  struct Manner {
    bool is_fresh;        // a connection of its own
    long silent_seconds;  // may pass
  };
  std::string Post(const std::string& arguments, std::string_view body, const Manner& manner);

  ClickHouseServer server_;
  std::atomic<bool> is_aborted_ = false;
  std::unique_ptr<Handle> handle_;
};

// SqlText is a text as a literal of SQL.
std::string SqlText(std::string_view text);

// An answer in the form TabSeparated, taken apart; \N is a value that is not there.
using TabRow = std::vector<std::string_view>;
bool TakeTabRow(std::string_view* answer, TabRow* row);
std::string TabText(std::string_view field);

}  // namespace flow::host
