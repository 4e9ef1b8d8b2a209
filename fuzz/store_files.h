// A store over the scratch folder, for the harnesses of the files it reads.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "fuzz_world.h"
#include "store/store.h"

// Record data as a record file holds it: SOA numbers as the codec reads a
// 32-bit field, at most 2147483647 (a negative number in a file reads as
// more, and is written back as that most).
std::string AsFilesHoldIt(int type, const std::string& data);

struct StoreFuzzWorld {
  // Removes the files a previous input left in the scratch folder.
  StoreFuzzWorld();

  void Write(const std::string& name, std::string_view content) const;
  std::string Path(const std::string& name) const;
  // One line per record, in list order, the data as the files hold it.
  std::vector<std::string> Dump() const;

  RecordList records;
  Options options;
  FakeClock clock;
  CountingLog log;
  FuzzErrors errors;
  // Two of this machine's addresses, so that DHCP lines can make pools.
  std::vector<std::string> localIPs{"10.0.0.1", "192.168.1.1"};
  DHCPifList dhcpIfs;
  StoreContext ctx{records, options, clock, log, errors, Scratch().path(), localIPs, dhcpIfs};
};
