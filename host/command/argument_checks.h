// SPDX-License-Identifier: Apache-2.0
// What arguments have to be, beyond what their types say.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <string_view>

#include "host/base/printable.h"

namespace flow::host {

// Numbers without a sign take a negative one for a very large one. A size is checked before its
// unit is read: option->transform(AsSize)->transform(NotNegative()).
inline CLI::Validator NotNegative() {
  return {[](std::string& text) {
            return text.find('-') == std::string::npos ? ""
                                                       : "'" + Printable(text) + "' is negative";
          },
          ""};
}

// What Kafka takes as a topic's name, with the longest ending of ours.
inline CLI::Validator TopicName() {
  static constexpr std::string_view kTaken =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
  static constexpr std::size_t kLongest = 249 - std::string_view(".templates").size();
  return {[](std::string& text) {
            const bool is_name = !text.empty() && text.size() <= kLongest &&
                                 text.find_first_not_of(kTaken) == std::string::npos;
            return is_name ? ""
                           : "'" + Printable(text) + "' is no name of letters, digits, ., _ and -";
          },
          ""};
}

}  // namespace flow::host
