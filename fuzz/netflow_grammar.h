// SPDX-License-Identifier: Apache-2.0
// Valid NetFlow and IPFIX datagrams at random. Template ids come from a small range, so that the
// data sets of one datagram find the templates of another.
#pragma once

#include "fuzz/grammar.h"

namespace flow::fuzz {

test::Bytes MakeNetflow(Random& random);

// MakeTemplateSet gives a template or options template set of either version, and nothing else.
test::Bytes MakeTemplateSet(Random& random);

}  // namespace flow::fuzz
