// SPDX-License-Identifier: Apache-2.0
// The record that the recording host keeps: lines and faults.
#pragma once

#include <concepts>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "flowhandlers/guid.h"
#include "flowhandlers/status.h"

namespace flow::test {

// Fields of a line that are not plain numbers.
struct Text {
  const char* text;  // NUL-terminated, or null
};
struct Key {
  std::string_view key;
};
struct Hash {
  std::uint32_t value;
};
struct Address {
  std::uint32_t host_order;
};
struct Hex {
  std::span<const std::uint8_t> bytes;
};

// GuidName is the name of a known identifier (COUNTERID_HOSTS, CLSID_PI_SFLOW, NULLGUID, ...), else
// the registry form in braces.
std::string GuidName(const GUID& guid);

// Escaped writes a backslash as \\, a tabulator, line feed and carriage return as \t, \n, \r and
// any other byte outside the printable ones as \xHH.
std::string Escaped(std::string_view text);

class HostTrace {
 public:
  template <class... Fields>
  void Call(std::string_view operation, const Fields&... fields) {
    ++calls_;
    if (recording_) Append(Line(operation, fields...));
  }
  // Calls counts the calls, recorded or not.
  std::uint64_t Calls() const { return calls_; }

  // Query is Call for an operation that only asks.
  template <class... Fields>
  void Query(std::string_view operation, const Fields&... fields) {
    if (recording_ && queries_) Append("~" + Line(operation, fields...));
  }

  // Fault keeps the text, or ends the program with it.
  void Fault(const std::string& text);

  // Failure: whether the operation has been told to fail, and with what.
  bool Failure(std::string_view operation, Status* status) const;

  std::vector<std::string> TakeLines() { return std::exchange(lines_, {}); }

  void SetRecording(bool on) { recording_ = on; }
  void SetQueries(bool on) { queries_ = on; }
  void KeepFaults() { keep_faults_ = true; }
  const std::vector<std::string>& Faults() const { return faults_; }
  std::map<std::string, Status, std::less<>>& Failures() { return failures_; }

 private:
  template <class... Fields>
  static std::string Line(std::string_view operation, const Fields&... fields) {
    std::string line(operation);
    ((line += ' ', AppendField(line, fields)), ...);
    return line;
  }
  static void AppendField(std::string& line, std::integral auto number) {
    line += std::to_string(number);
  }
  static void AppendField(std::string& line, const GUID& guid) { line += GuidName(guid); }
  static void AppendField(std::string& line, const std::string& text) { line += text; }
  static void AppendField(std::string& line, Text text);
  static void AppendField(std::string& line, Key key);
  static void AppendField(std::string& line, Hash hash);
  static void AppendField(std::string& line, Address address);
  static void AppendField(std::string& line, Hex hex);

  void Append(std::string line) { lines_.push_back(std::move(line)); }

  std::vector<std::string> lines_;
  std::vector<std::string> faults_;
  std::map<std::string, Status, std::less<>> failures_;
  std::uint64_t calls_ = 0;
  bool recording_ = true;
  bool queries_ = false;
  bool keep_faults_ = false;
};

}  // namespace flow::test
