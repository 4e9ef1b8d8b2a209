// A store over the scratch folder, for the harnesses of the files it reads.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "fuzz_world.h"
#include "store/store.h"

struct StoreFuzzWorld {
  // Removes the files a previous input left in the scratch folder.
  StoreFuzzWorld();

  void Write(const std::string& name, std::string_view content) const;
  std::string Path(const std::string& name) const;
  // One line per record, in list order.
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
