// SPDX-License-Identifier: Apache-2.0
// Watches a file's modification time.
#pragma once

#include <string>

class CPeriodicFileModifyChecker {
 public:
  // A checker without a file is off.
  CPeriodicFileModifyChecker() = default;
  CPeriodicFileModifyChecker(const char* file, int intervalSeconds);

  // A copy watches the same file and has never looked at it; an assigned checker goes on where the
  // other one stands.
  CPeriodicFileModifyChecker(const CPeriodicFileModifyChecker& other);
  CPeriodicFileModifyChecker& operator=(const CPeriodicFileModifyChecker&) = default;
  ~CPeriodicFileModifyChecker() = default;

  // GetFileModifyTime is the file's modification time in seconds, 0 when it cannot be read.
  [[nodiscard]] unsigned int GetFileModifyTime() const;

  // IsTimeToExecute says, at most once per interval, whether the file has become newer since the
  // last look. The first question only takes the baseline. `now` is in seconds and may wrap. A file
  // that has become older or is gone is no news.
  bool IsTimeToExecute(unsigned int now);

  [[nodiscard]] const char* File() const { return m_strFile.c_str(); }

 private:
  std::string m_strFile;
  unsigned int m_nIntervalSeconds = 0;  // 0: off
  unsigned int m_nLastCheck = 0;        // 0: never
  unsigned int m_nLastModify = 0;
};
