// SPDX-License-Identifier: Apache-2.0
#include "config/change_checker.h"

#include <sys/stat.h>

CPeriodicFileModifyChecker::CPeriodicFileModifyChecker(const char* file, int intervalSeconds)
    : m_strFile(file), m_nIntervalSeconds(static_cast<unsigned int>(intervalSeconds)) {}

CPeriodicFileModifyChecker::CPeriodicFileModifyChecker(const CPeriodicFileModifyChecker& other)
    : m_strFile(other.m_strFile), m_nIntervalSeconds(other.m_nIntervalSeconds) {}

unsigned int CPeriodicFileModifyChecker::GetFileModifyTime() const {
  struct stat status = {};
  if (stat(m_strFile.c_str(), &status) != 0) return 0;
  return static_cast<unsigned int>(status.st_mtime);
}

bool CPeriodicFileModifyChecker::IsTimeToExecute(unsigned int now) {
  if (m_nIntervalSeconds == 0) return false;
  if (m_nLastCheck == 0) {
    m_nLastCheck = now;
    m_nLastModify = GetFileModifyTime();
    return false;
  }
  if (now - m_nLastCheck < m_nIntervalSeconds) return false;
  m_nLastCheck = now;
  const unsigned int modified = GetFileModifyTime();
  if (modified <= m_nLastModify) return false;
  m_nLastModify = modified;
  return true;
}
