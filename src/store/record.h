// One resource record, permanent (from the record files) or cached.
#pragma once

#include <cstdint>
#include <string>

#include "wire/services.h"

namespace korvane {

// Record type numbers beyond the DNS standard's.
namespace RecordType {
constexpr int kA = 1, kNS = 2, kCNAME = 5, kSOA = 6, kPTR = 12, kMX = 15, kAll = 255;
constexpr int kDHCP = 99;          // the record file's DHCP pool line
constexpr int kNegativeBase = 1000; // 1000 + T: the name has no record of type T
constexpr int kNameError = 2000;   // the name does not exist
}  // namespace RecordType

class clDNSRecord {
 public:
  bool Permanent = false;
  int16_t RecType = 0;
  std::string Name;  // lower case, trailing dot
  std::string Data;  // per type: 4 address bytes, a name, or the SOA layout
  int32_t Pref = 0;  // MX preference; -1 for hosts-file and derived reverse records
  // Loaded from the root server file: a hint that never makes this server
  // authoritative.
  bool RootHint = false;
  // Where it came from: RecordOrigin (store/record_origin.h).
  uint16_t Origin = 0;

  // Permanent: the stored TTL. Cached: seconds left until expiry, rounded
  // half to even; negative once expired.
  int32_t TTL(DateTime now) const;
  // Stores the TTL and restarts the expiry from `now`.
  void SetTTL(int32_t seconds, DateTime now);
  // Permanent: always one TTL ahead of `now`. Cached: the expiry.
  DateTime TimeOut(DateTime now) const;

 private:
  int32_t storedTTL_ = 0;
  DateTime expiry_ = 0;
};

}  // namespace korvane
