// SPDX-License-Identifier: Apache-2.0
// Answers as text for people, as JSON and as CSV for programs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "host/ask/answer.h"
#include "host/ask/times.h"

namespace flow::host {

enum class AnswerForm : std::uint8_t { kText, kJson, kCsv };

struct AnswerView {
  AnswerForm form = AnswerForm::kText;
  Zone zone;
  bool exact = false;        // all digits
  bool is_terminal = false;  // lines and bars are drawn, and rows fit the width
  std::size_t width = 80;
};

struct Answered {
  Answer answer;
  AnswerView view;
};

// ViewOf tells whether a stream is a terminal, and how wide.
AnswerView ViewOf(std::FILE* out);

// JsonText is an answer as JSON, with a line end behind it.
std::string JsonText(const Answer& answer, const AnswerView& view);

void PrintAnswer(const Answer& answer, const AnswerView& view, std::FILE* out);

}  // namespace flow::host
