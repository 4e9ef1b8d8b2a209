// One entry of the record editor's list, as written to the record file.
#pragma once

#include <cstdint>
#include <string>

namespace korvane {

struct clPermRec {
  int RecType = 0;     // 1 A, 2 NS, 5 CNAME, 6 SOA (the domain entry), 15 MX, 99 DHCP
  std::string Domain;  // the domain the entry belongs to
  std::string Name;    // host part; "" for the domain itself
  std::string Data;    // record data in binary form (see the writer)
  int32_t TTL = 0;
  // MX preference; for the domain entry its authority: 0 none, 1 primary,
  // 2 secondary (an SOA line is written only from 1 up).
  int32_t Pref = 0;
};

}  // namespace korvane
