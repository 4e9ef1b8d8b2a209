#include "store/record.h"

#include <cmath>
#include <cstdint>
#include <limits>

namespace korvane {

namespace {
int32_t ClampToInt32(double seconds) {
  if (std::isnan(seconds)) return 0;
  if (seconds >= static_cast<double>(std::numeric_limits<int32_t>::max()))
    return std::numeric_limits<int32_t>::max();
  if (seconds <= static_cast<double>(std::numeric_limits<int32_t>::min()))
    return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(seconds);
}
}  // namespace

int32_t clDNSRecord::TTL(DateTime now) const {
  if (Permanent) return storedTTL_;
  // The default rounding mode rounds halves to even.
  return ClampToInt32(std::nearbyint(expiry_ - now));
}

void clDNSRecord::SetTTL(int32_t seconds, DateTime now) {
  storedTTL_ = seconds;
  expiry_ = now + seconds;
}

DateTime clDNSRecord::TimeOut(DateTime now) const {
  return Permanent ? now + storedTTL_ : expiry_;
}

}  // namespace korvane
