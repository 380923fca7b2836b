// SPDX-License-Identifier: Apache-2.0
// C text functions that know the capacity of their destination, offered to the host and other
// plug-ins. What does not fit is cut off and the result is always terminated; with a capacity of 0
// nothing is written.
#pragma once

#include <cstddef>

extern "C" {

// Both return the characters stored, the terminator not counted. What cannot be printed at all
// leaves an empty text.
[[gnu::visibility("default"), gnu::format(printf, 3, 4)]] int _stprintf_s(char* dst,
                                                                          std::size_t capacity,
                                                                          const char* format, ...);
[[gnu::visibility("default"), gnu::format(printf, 3, 4)]] int sprintf_s(char* dst,
                                                                        std::size_t capacity,
                                                                        const char* format, ...);

// Both return dst. A null src counts as empty.
[[gnu::visibility("default")]] char* _tcscpy_s(char* dst, std::size_t capacity, const char* src);
[[gnu::visibility("default")]] char* _tcscat_s(char* dst, std::size_t capacity, const char* src);

// Returns the fields converted; EOF, as sscanf does, when the text ends before the first.
[[gnu::visibility("default"), gnu::format(scanf, 2, 3)]] int _stscanf_s(const char* text,
                                                                        const char* format, ...);

}  // extern "C"
