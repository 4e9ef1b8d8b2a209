#include "store/ttl.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

using namespace korvane;

namespace {

constexpr int64_t kHuge = std::numeric_limits<int64_t>::max();

TEST(TTL, SplitAndJoinRoundTrip) {
  struct Case {
    int64_t seconds;
    TtlParts parts;
  } cases[] = {{0, {0, 0, 0, 0}},       {59, {0, 0, 0, 59}},     {60, {0, 0, 1, 0}},
               {86399, {0, 23, 59, 59}}, {90061, {1, 1, 1, 1}},  {kMaxTTL, {24855, 3, 14, 7}}};
  for (const Case& c : cases) {
    EXPECT_EQ(SplitTTL(c.seconds), c.parts) << c.seconds;
    EXPECT_EQ(JoinTTL(c.parts), c.seconds) << c.seconds;
  }
  EXPECT_EQ(SplitTTL(-1), TtlParts{});
  EXPECT_EQ(SplitTTL(int64_t{kMaxTTL} + 1), SplitTTL(kMaxTTL));
}

TEST(TTL, JoinCountsPartsInFullAndHoldsTheRange) {
  struct Case {
    int64_t days, hours, minutes, seconds;
    int32_t total;
  } cases[] = {
      {0, 0, 90, 0, 5400},         {0, 25, 0, 0, 90000},        {24855, 23, 59, 59, kMaxTTL},
      {kHuge, kHuge, 1, 1, kMaxTTL},  // no overflow on the way
      {0, 0, -1, 0, 0},            {1, -24, 0, 5, 5},           {-kHuge, 0, 0, 0, 0},
  };
  for (const Case& c : cases)
    EXPECT_EQ(JoinTTL(c.days, c.hours, c.minutes, c.seconds), c.total)
        << c.days << " d " << c.hours << " h " << c.minutes << " m " << c.seconds << " s";
}

}  // namespace
