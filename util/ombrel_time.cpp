// SPDX-License-Identifier: Apache-2.0
#include "util/ombrel_time.h"

#include <sys/time.h>
#include <time.h>

#include <cstdio>

namespace {

tm LocalTime(std::int32_t seconds) {
  const time_t time = seconds;
  tm parts = {};
  localtime_r(&time, &parts);
  return parts;
}

std::string LongForm(const tm& parts) {
  char text[64];  // asctime_r asks for 26
  if (asctime_r(&parts, text) == nullptr) return {};
  std::string result = text;
  if (result.ends_with('\n')) result.pop_back();
  return result;
}

std::string Microseconds(std::int32_t microseconds) {
  char text[16];
  std::snprintf(text, sizeof text, "-%06d", microseconds);
  return text;
}

}  // namespace

void COmbrelTime::SetNow() {
  timeval now = {};
  gettimeofday(&now, nullptr);
  tv_sec = static_cast<std::int32_t>(now.tv_sec);
  tv_usec = static_cast<std::int32_t>(now.tv_usec);
}

COmbrelTime COmbrelTime::Now() {
  COmbrelTime now;
  now.SetNow();
  return now;
}

std::int32_t COmbrelTime::now_tv_sec() { return Now().tv_sec; }

int COmbrelTime::hour_number() const { return LocalTime(tv_sec).tm_hour; }

std::string COmbrelTime::to_s() const { return to_s_vshort() + Microseconds(tv_usec); }

std::string COmbrelTime::to_s_short() const {
  const tm parts = LocalTime(tv_sec);
  char text[16];
  const std::size_t length = strftime(text, sizeof text, "%H:%M:%S", &parts);
  return std::string(text, length) + Microseconds(tv_usec);
}

std::string COmbrelTime::to_s_vshort() const { return LongForm(LocalTime(tv_sec)); }

std::string COmbrelTime::to_s_zone() const {
  const tm parts = LocalTime(tv_sec);
  return LongForm(parts) + " " + parts.tm_zone;
}
