// One resource record, permanent (from the record files) or cached.
#pragma once

#include <cstdint>
#include <string>

#include "store/shared_text.h"
#include "wire/services.h"

namespace korvane {

// Record type numbers beyond the DNS standard's.
namespace RecordType {
constexpr int kA = 1, kNS = 2, kCNAME = 5, kSOA = 6, kPTR = 12, kMX = 15, kAll = 255;
constexpr int kDHCP = 99;          // the record file's DHCP pool line
constexpr int kNegativeBase = 1000; // 1000 + T: the name has no record of type T
constexpr int kNameError = 2000;   // the name does not exist
}  // namespace RecordType

// Laid out for size (48 bytes): a blocklist holds millions of these.
class clDNSRecord {
 public:
  SharedText Name;  // lower case, trailing dot
  SharedText Data;  // per type: 4 address bytes, a name, or the SOA layout

  // Permanent: the stored TTL. Cached: seconds left until expiry, rounded
  // half to even; negative once expired.
  int32_t TTL(DateTime now) const;
  // Stores the TTL and restarts the expiry from `now`.
  void SetTTL(int32_t seconds, DateTime now);
  // Permanent: always one TTL ahead of `now`. Cached: the expiry.
  DateTime TimeOut(DateTime now) const;

 private:
  DateTime expiry_ = 0;
  int32_t storedTTL_ = 0;

 public:
  int32_t Pref = 0;  // MX preference; -1 for hosts-file and derived reverse records
  int16_t RecType = 0;
  // The two flags and the origin share two bytes.
  bool Permanent : 1 = false;
  // Loaded from the root server file: a hint that never makes this server
  // authoritative.
  bool RootHint : 1 = false;
  // Where it came from: RecordOrigin (store/record_origin.h).
  uint16_t Origin : 14 = 0;

 private:
  friend class RecordList;
  // The record list's links (slot numbers); meaningless in a copy.
  uint32_t prev_ = UINT32_MAX, next_ = UINT32_MAX, nextSame_ = UINT32_MAX;
};

static_assert(sizeof(clDNSRecord) == 48);

}  // namespace korvane
