#include "store/ttl.h"

#include <algorithm>

namespace korvane {

TtlParts SplitTTL(int64_t seconds) {
  if (seconds <= 0) return {};
  seconds = std::min<int64_t>(seconds, kMaxTTL);
  return {static_cast<int32_t>(seconds / 86400), static_cast<int32_t>(seconds % 86400 / 3600),
          static_cast<int32_t>(seconds % 3600 / 60), static_cast<int32_t>(seconds % 60)};
}

int32_t JoinTTL(int64_t days, int64_t hours, int64_t minutes, int64_t seconds) {
  // Each part is capped first so that no product or sum can overflow.
  static constexpr int64_t kCap = int64_t{kMaxTTL} + 1;
  auto part = [](int64_t count, int64_t unit) { return std::clamp<int64_t>(count, -kCap, kCap) * unit; };
  int64_t total = part(days, 86400) + part(hours, 3600) + part(minutes, 60) + part(seconds, 1);
  return static_cast<int32_t>(std::clamp<int64_t>(total, 0, kMaxTTL));
}

}  // namespace korvane
