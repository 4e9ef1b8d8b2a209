#include <gtest/gtest.h>

#include "wire/datetime.h"

using namespace korvane;

TEST(DateTime, ParsesWhatItFormatsAndRefusesEverythingElse) {
  const DateTime when = 1'790'000'000;
  EXPECT_EQ(ParseDateTime(FormatDateTime(when)), when);
  EXPECT_TRUE(ParseDateTime("2026-11-22").has_value());
  for (const char* bad : {"2026-11-22 garbage", "2026-11-22 10:00", "2026-11-22 10:00:00x",
                          "2026-02-31 10:00:00", "2026-13-01 00:00:00", "10:00:00", "", "time"})
    EXPECT_FALSE(ParseDateTime(bad).has_value()) << bad;
}
