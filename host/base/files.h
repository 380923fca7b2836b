// SPDX-License-Identifier: Apache-2.0
// Opening files whose names others may have had a hand in: nothing waits for the other end of a
// pipe, nothing is written through a link that stands in a file's place. Each gives a descriptor,
// or -1 with errno set.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace flow::host {

// OpenToRead opens a regular file; what it is called may be a link. ENOTSUP for anything else.
int OpenToRead(const std::string& path);

// ReadFile gives all of a regular file; nothing, with errno set, when that fails. ReadGiven takes a
// shell's <(...) as well: a pipe that the process was given.
std::optional<std::string> ReadFile(const std::string& path);
std::optional<std::string> ReadGiven(const std::string& path);

// CreateAnew makes a file of this name, in place of what stands there.
int CreateAnew(const std::string& path, mode_t mode);

// OpenOutput opens what an output is written to as it stands: a regular file, emptied, a device or
// a pipe. A link must lead to a device or a pipe, or be one of the kernel's own (/dev/stdout).
int OpenOutput(const std::string& path);

// IsPlainOrNone tells whether the name is that of a regular file, no link, or of nothing yet.
bool IsPlainOrNone(const std::string& path);

// OpenLock opens a file to be locked, and makes it where there is none. Whoever can open a file can
// lock it: nobody else may.
int OpenLock(const std::string& path);

// WriteAll writes a text; false, with errno set, when that fails.
bool WriteAll(int descriptor, std::string_view text);

// FileTrouble is the reason for what the others give, from errno.
std::string FileTrouble(int reason);

}  // namespace flow::host
