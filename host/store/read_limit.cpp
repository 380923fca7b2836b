// SPDX-License-Identifier: Apache-2.0
#include "host/store/read_limit.h"

namespace flow::host {
namespace {

thread_local ReadLimit current;

}  // namespace

const ReadLimit& ReadLimit::Current() { return current; }

ReadLimitScope::ReadLimitScope(const ReadLimit& limit) : before_(current) { current = limit; }

ReadLimitScope::~ReadLimitScope() { current = before_; }

}  // namespace flow::host
