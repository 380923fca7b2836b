// SPDX-License-Identifier: Apache-2.0
// Key texts as people read them.
#pragma once

#include <string>
#include <string_view>

#include "host/engine/group_info.h"
#include "host/intake/stand_ins.h"

namespace flow::host {

// RealKey is a key with the IPv6 address of its exporter, in 32 digits, in place of a stand-in:
// "F0.00.00.01_0000000A" becomes "20010DB8000000000000000000000001_0000000A".
std::string RealKey(const StandIns& stand_ins, KeyKind kind, std::string_view key);

// ReadableKey turns a key into what it means: "C0.A8.01.0A" into "192.168.1.10", "p-01BB" into
// "443 (https)", a session key into "tcp 10.0.0.1:51000 <-> 10.0.0.2:80". A key that has not the
// form of its kind stays as it is, with its unprintable bytes shown.
std::string ReadableKey(KeyKind kind, std::string_view key);

}  // namespace flow::host
