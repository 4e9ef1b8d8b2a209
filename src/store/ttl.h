// A time-to-live as the operator enters it: days, hours and minutes, with
// any seconds left over kept apart so that no value changes by being shown.
#pragma once

#include <cstdint>

namespace korvane {

// The largest TTL: 24855 days, 3 hours, 14 minutes and 7 seconds.
constexpr int32_t kMaxTTL = 2147483647;
constexpr int32_t kMaxTTLDays = kMaxTTL / 86400;

struct TtlParts {
  int32_t days = 0;
  int32_t hours = 0;    // 0..23
  int32_t minutes = 0;  // 0..59
  int32_t seconds = 0;  // 0..59

  bool operator==(const TtlParts&) const = default;
};

// A negative value shows as all zeros.
TtlParts SplitTTL(int64_t seconds);
// The parts' total in seconds, held within 0..kMaxTTL. Parts beyond their
// usual range count in full (90 minutes is 5400 seconds).
int32_t JoinTTL(int64_t days, int64_t hours, int64_t minutes, int64_t seconds = 0);
inline int32_t JoinTTL(const TtlParts& parts) {
  return JoinTTL(parts.days, parts.hours, parts.minutes, parts.seconds);
}

}  // namespace korvane
