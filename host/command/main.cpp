// SPDX-License-Identifier: Apache-2.0
#include "host/command/flowhost.h"

int main(int argc, char** argv) { return flow::host::RunFlowhost(argc, argv); }
