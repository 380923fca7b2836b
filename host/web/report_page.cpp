// SPDX-License-Identifier: Apache-2.0
#include "host/web/report_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <stdexcept>
#include <vector>

#include "host/web/page_files.h"

namespace flow::host {
namespace {

constexpr std::string_view kRules =
    "<meta http-equiv=\"content-security-policy\" content=\"default-src 'none'; script-src "
    "'unsafe-inline'; style-src 'unsafe-inline'; img-src data:\">";

std::string_view FileOf(std::string_view name) {
  const auto files = PageFiles();
  const auto found = std::ranges::find(files, name, &PageFile::name);
  if (found == files.end()) throw std::logic_error(fmt::format("the page has no {}", name));
  return found->bytes;
}

// The part of a text between two others, behind `from`.
std::string_view Between(std::string_view text, std::string_view first, std::string_view last) {
  const std::size_t start = text.find(first);
  if (start == std::string_view::npos) return {};
  text.remove_prefix(start + first.size());
  return text.substr(0, text.find(last));
}

// Modules that import each other, as functions of one script: a page in a file may not import.
class Bundle {
 public:
  std::string Of(std::string_view name) {
    Add(name);
    return "\"use strict\";\nconst modules = {};\n" + script_;
  }

 private:
  // What a module imports comes in front of it.
  void Add(std::string_view name) {
    if (!added_.insert(std::string(name)).second) return;
    std::string body;
    std::string exported;
    std::string_view rest = FileOf(name);
    while (!rest.empty()) {
      std::size_t end = rest.find('\n');
      if (rest.starts_with("import ")) end = rest.find('\n', rest.find(';'));
      const std::string_view line = rest.substr(0, end);
      rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
      if (line.starts_with("import ")) {
        const std::string_view from = Between(line, "\"./", "\"");
        Add(from);
        body += fmt::format("const {{{}}} = modules[\"{}\"];\n", Between(line, "{", "}"), from);
      } else if (line.starts_with("export ")) {
        body.append(line.substr(sizeof("export ") - 1)) += '\n';
        exported.append(exported.empty() ? "" : ", ").append(Exported(line));
      } else {
        body.append(line) += '\n';
      }
    }
    script_ += fmt::format("modules[\"{}\"] = (() => {{\n{}return {{ {} }};\n}})();\n", name, body,
                           exported);
  }

  // "export async function name(" declares a name.
  static std::string_view Exported(std::string_view line) {
    for (const std::string_view word : {"function ", "class ", "const "}) {
      const std::size_t at = line.find(word);
      if (at == std::string_view::npos) continue;
      line.remove_prefix(at + word.size());
      return line.substr(0, line.find_first_of(" ({;"));
    }
    return {};
  }

  std::string script_;
  std::set<std::string> added_;
};

std::string ReplacedAll(std::string_view text, std::string_view what, std::string_view by) {
  std::string made;
  for (std::size_t at = text.find(what); at != std::string_view::npos; at = text.find(what)) {
    made.append(text.substr(0, at)).append(by);
    text.remove_prefix(at + what.size());
  }
  return made.append(text);
}

// No text of a script may end it.
std::string InScript(std::string_view text) {
  return ReplacedAll(ReplacedAll(text, "</script", "<\\/script"), "<!--", "<\\!--");
}

std::string Replaced(std::string page, std::string_view tag, std::string_view by) {
  const std::size_t at = page.find(tag);
  if (at == std::string::npos) throw std::logic_error(fmt::format("the page has no {}", tag));
  return page.replace(at, tag.size(), by);
}

}  // namespace

std::string ReportPage(std::string_view answers) {
  std::string page(FileOf("index.html"));
  page = Replaced(std::move(page), "<meta charset=\"utf-8\">",
                  fmt::format("<meta charset=\"utf-8\">\n{}", kRules));
  page = Replaced(std::move(page), "<link rel=\"stylesheet\" href=\"page.css\">",
                  fmt::format("<style>\n{}</style>", FileOf("page.css")));
  page = Replaced(std::move(page), "<script defer src=\"chart.js\"></script>\n", "");
  page = Replaced(std::move(page), "<script type=\"module\" src=\"main.js\"></script>\n", "");
  // In JSON a < stands in texts alone.
  const std::string data = ReplacedAll(answers, "<", "\\u003c");
  const std::string scripts = fmt::format(
      "<script type=\"application/json\" id=\"report-data\">{}</script>\n"
      "<script>{}</script>\n<script>{}</script>\n</body>",
      data, InScript(FileOf("chart.js")), InScript(Bundle().Of("main.js")));
  return Replaced(std::move(page), "</body>", scripts);
}

}  // namespace flow::host
