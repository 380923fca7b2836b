// SPDX-License-Identifier: Apache-2.0
// The page's files over HTTP.
#pragma once

#include <string>
#include <vector>

#include "host/web/http_message.h"

namespace flow::host {

class PageAnswers {
 public:
  PageAnswers();

  // "/" is index.html. A browser that has a file asks whether it is still the same.
  [[nodiscard]] HttpAnswer Answer(const HttpRequest& request) const;

 private:
  struct File {
    std::string path;
    std::string type;
    std::string tag;
    std::string_view bytes;
    std::string small;
  };
  std::vector<File> files_;
};

}  // namespace flow::host
