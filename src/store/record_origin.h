// Where a record came from, kept in the record's 14-bit Origin field: the
// record files, the hosts file, a DHCP lease, or the server a cached record
// was learnt from (numbered once per server by ServerOrigins).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace korvane {

namespace RecordOrigin {
constexpr uint16_t kFile = 0;     // permanent: the record files; cached: a server not known
constexpr uint16_t kHosts = 1;    // the hosts file
constexpr uint16_t kLease = 2;    // a DHCP lease (built for one answer, never stored)
constexpr uint16_t kFirstServer = 3;
constexpr uint16_t kLast = (1u << 14) - 1;
}  // namespace RecordOrigin

// The servers that cached records were learnt from, each given an origin
// number on first sight. Past the last number a new server gets kFile (not
// known); Clear() starts the numbering again (when no cached record is left).
class ServerOrigins {
 public:
  // The origin of records learnt from `address` (dotted).
  uint16_t OriginOf(std::string_view address);
  // The dotted address of a server origin; "" for any other origin.
  std::string AddressOf(uint16_t origin) const;
  std::size_t size() const { return addresses_.size(); }
  void Clear();

 private:
  std::vector<std::string> addresses_;  // origin kFirstServer + i: addresses_[i]
  std::unordered_map<std::string, uint16_t> numbers_;
  std::string lastAddress_;  // replies come in runs from the same server
  uint16_t lastOrigin_ = RecordOrigin::kFile;
};

}  // namespace korvane
