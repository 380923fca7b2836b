// SPDX-License-Identifier: Apache-2.0
// The forms of answers, each in a file of its own.
#pragma once

#include "host/output/answers.h"

namespace flow::host {

void PrintText(const Answer& answer, const AnswerView& view, std::FILE* out);
void PrintJson(const Answer& answer, const AnswerView& view, std::FILE* out);
void PrintCsv(const Answer& answer, std::FILE* out);

// "lost on the way: 1,980 flows from 10.0.0.2 (0.03 %), 02:17 to 02:19"
std::string LossText(const AnswerLoss& loss, const Zone& zone);

}  // namespace flow::host
