// SPDX-License-Identifier: Apache-2.0
// Everything that a small host is made of: the plug-in, its meters, their site, the engine that
// they count into, and the datagrams that they are given. examples/ has hosts made of it.
#pragma once

#include "flowhandlers/kit/datagram.h"
#include "flowhandlers/kit/engine.h"
#include "flowhandlers/kit/meters.h"
#include "flowhandlers/kit/plugin.h"
#include "flowhandlers/kit/site.h"
