// SPDX-License-Identifier: Apache-2.0
// Where questions are put: tables with the names and columns of a store's, in whatever holds them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/ask/sql_values.h"
#include "host/ask/times.h"
#include "host/store/schema.h"

namespace flow::host {

class FlowSource;
struct StoredGroup;

// The rows of an answer, as a prepared statement has them: columns are counted from 0.
class SourceRows {
 public:
  SourceRows() = default;
  SourceRows(const SourceRows&) = delete;
  SourceRows& operator=(const SourceRows&) = delete;
  virtual ~SourceRows() = default;

  virtual bool Step() = 0;
  [[nodiscard]] virtual std::int64_t Integer(int column) const = 0;
  [[nodiscard]] virtual double Real(int column) const = 0;
  // Valid until the next step.
  [[nodiscard]] virtual std::string_view Text(int column) const = 0;
  [[nodiscard]] virtual bool IsNull(int column) const = 0;
};

using SourceValues = SqlValues;

class CounterSource {
 public:
  CounterSource() = default;
  CounterSource(const CounterSource&) = delete;
  CounterSource& operator=(const CounterSource&) = delete;
  virtual ~CounterSource() = default;

  // Ask puts a query that any SQL understands, with its values in the order of their places.
  // HostError where it cannot be answered.
  virtual std::unique_ptr<SourceRows> Ask(const std::string& sql, const SourceValues& values) = 0;

  // What stands behind FROM for what a table has of a span; a condition says the span all the same.
  // Of a group a bucket's key may have several rows there, to be added up.
  virtual std::string Table(const std::string& name, const TimeSpan& span) = 0;
  virtual std::string GroupTable(const StoredGroup& group, const Tier& tier,
                                 const TimeSpan& span) = 0;

  virtual bool HasColumn(const std::string& table, const std::string& column) = 0;

  // Whether it adds up by itself what would be much to fetch row by row.
  [[nodiscard]] virtual bool AddsUp() const { return false; }

  virtual FlowSource& Flows() = 0;
};

}  // namespace flow::host
