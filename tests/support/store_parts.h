// What every store-based test world holds: the record list, options, a fake
// clock, recorders and the lists the loader fills.
#pragma once

#include <string>
#include <vector>

#include "store/store.h"
#include "support/fakes.h"

using namespace korvane;

struct StoreParts {
  RecordList records;
  Options options;
  FakeClock clock;
  RecordingLog log;
  RecordingErrorReporter errors;
  std::vector<std::string> localIPs;
  DHCPifList dhcpIfs;
};
