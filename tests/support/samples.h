// Export datagrams of real devices, kept beside the project.
#pragma once

#include <string>
#include <vector>

#include "tests/support/wire.h"

namespace flow::test {

// SampleDirectory is ../shared/captures/datagrams, seen from the root of the project; empty where
// there is none, and a test that needs it is skipped.
std::string SampleDirectory();

// SampleNames: names of the datagrams in order, without folder and .dat.
std::vector<std::string> SampleNames();

// ReadSample gives one datagram; it has to be there.
Bytes ReadSample(const std::string& name);

// RecordedDatagrams are those of the captures in the project's folder samples, in order; each is
// named for its capture and its number there.
struct RecordedDatagram {
  std::string name;
  Bytes bytes;
};
std::vector<RecordedDatagram> RecordedDatagrams();

}  // namespace flow::test
