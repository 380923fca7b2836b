// SPDX-License-Identifier: Apache-2.0
// A shared library that is no plug-in.

extern "C" int NothingToSeeHere();
extern "C" int NothingToSeeHere() { return 0; }
