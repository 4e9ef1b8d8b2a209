// One DHCP interface: a pool on one of this machine's networks, built from a
// DHCP record of the record file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

struct clDHCPif {
  std::string IPaddr;     // this machine's address on that network
  std::string ScopeFrom;  // first address of the pool
  std::string ScopeTo;    // last address of the pool
  std::string Subnet;     // subnet mask
  std::string Gateway;    // default gateway; "0.0.0.0" for none
  int32_t TTL = 0;        // lease period in seconds
  std::string Domain;     // domain handed to clients
};

using DHCPifList = std::vector<clDHCPif>;

}  // namespace korvane
