// The server's settings, with the defaults they have before the options file
// is read.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

struct Options {
  std::string NAME;              // this server's own DNS name, cleaned
  std::string HOSTS;             // hosts file path; "" = none
  int32_t HOSTSTTL = 3600;       // TTL of records from the hosts file
  std::string DNSBIND;           // address the DNS socket binds to; "" = all
  bool AUTOCNAME = false;        // answers that meet a CNAME carry the target's records
  bool WRITELOG = false;         // write daily log files
  bool RECURSIONOUT = false;     // resolve through the configured servers in NS
  std::vector<std::string> NS;   // external DNS servers, in file order
  int32_t CACHETTL = 0;          // minimum time an external answer stays cached; 0 = none

  // Beyond the options dialog; each line is written only when not at its default.
  static constexpr int32_t kDefaultCacheSize = 100000;
  int32_t CACHESIZE = kDefaultCacheSize;   // most cached records (see CacheLimit)
  // Who may have names resolved through other servers besides loopback and
  // the networks of LocalIPs: networks "a.b.c.d/n", or "any".
  std::vector<std::string> RECURSIONFROM;
  bool FORWARDPRIVATEREVERSE = false;  // ask other servers for private reverse names
  bool FORWARDBARENAMES = false;       // ask other servers for single-label names
};

}  // namespace korvane
