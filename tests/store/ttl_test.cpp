#include "store/ttl.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

using namespace korvane;

namespace {

TEST(TTL, SplitAndJoinTable) {
  struct Case {
    int64_t seconds;
    TtlParts parts;
  } cases[] = {
      {0, {0, 0, 0, 0}},
      {59, {0, 0, 0, 59}},
      {60, {0, 0, 1, 0}},
      {3600, {0, 1, 0, 0}},
      {86399, {0, 23, 59, 59}},
      {86400, {1, 0, 0, 0}},
      {90061, {1, 1, 1, 1}},
      {604800, {7, 0, 0, 0}},
      {kMaxTTL, {24855, 3, 14, 7}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.seconds);
    EXPECT_EQ(SplitTTL(c.seconds), c.parts);
    EXPECT_EQ(JoinTTL(c.parts), c.seconds);
  }
}

TEST(TTL, ValuesOutsideTheRangeAreHeldAtItsEnds) {
  EXPECT_EQ(SplitTTL(-1), TtlParts{});
  EXPECT_EQ(SplitTTL(std::numeric_limits<int64_t>::min()), TtlParts{});
  EXPECT_EQ(SplitTTL(int64_t{kMaxTTL} + 1), SplitTTL(kMaxTTL));
  struct Case {
    int64_t days, hours, minutes, seconds;
    int32_t total;
  } cases[] = {
      {0, 0, 90, 0, 5400},                          // parts past their usual range count in full
      {0, 25, 0, 0, 90000},
      {24855, 23, 59, 59, kMaxTTL},                 // past the largest TTL
      {0, 0, 0, int64_t{kMaxTTL} + 1, kMaxTTL},
      {std::numeric_limits<int64_t>::max(), 0, 0, 0, kMaxTTL},  // no overflow on the way
      {std::numeric_limits<int64_t>::max(), std::numeric_limits<int64_t>::max(), 1, 1, kMaxTTL},
      {0, 0, -1, 0, 0},
      {1, -24, 0, 5, 5},
      {std::numeric_limits<int64_t>::min(), 0, 0, 0, 0},
  };
  for (const Case& c : cases)
    EXPECT_EQ(JoinTTL(c.days, c.hours, c.minutes, c.seconds), c.total)
        << c.days << " d " << c.hours << " h " << c.minutes << " m " << c.seconds << " s";
}

}  // namespace
