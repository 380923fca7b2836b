// SPDX-License-Identifier: Apache-2.0
#include "host/output/answers.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include "host/output/answer_forms.h"

namespace flow::host {

AnswerView ViewOf(std::FILE* out) {
  AnswerView view;
  const int file = fileno(out);
  view.is_terminal = isatty(file) == 1;
  winsize size{};
  if (view.is_terminal && ioctl(file, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    view.width = size.ws_col;
  }
  return view;
}

void PrintAnswer(const Answer& answer, const AnswerView& view, std::FILE* out) {
  switch (view.form) {
    case AnswerForm::kText:
      return PrintText(answer, view, out);
    case AnswerForm::kJson:
      return PrintJson(answer, view, out);
    case AnswerForm::kCsv:
      return PrintCsv(answer, out);
  }
}

}  // namespace flow::host
