// One entry of the record editor's list, as written to the record file.
#pragma once

#include <cstdint>
#include <string>

namespace korvane {

struct clPermRec {
  // 1 A, 2 NS, 5 CNAME, 6 SOA (the domain entry), 12 PTR, 15 MX, 99 DHCP
  int RecType = 0;
  std::string Domain;  // the domain the entry belongs to, without the final dot; "" for the root
  std::string Name;    // host part; "" for the domain itself
  // Record data in binary form: A 4 address bytes; NS, CNAME, PTR and MX a
  // name; the domain entry the SOA layout (SoaData); DHCP first, last, mask,
  // gateway and this machine's address in that network, 4 bytes each.
  std::string Data;
  int32_t TTL = 0;
  // MX preference; for the domain entry its authority: 0 none, 1 primary,
  // 2 secondary (an SOA line is written only from 1 up).
  int32_t Pref = 0;
};

}  // namespace korvane
