#include "store/cache_bound.h"

#include <gtest/gtest.h>

#include <string>

#include "world.h"

using namespace korvane;

namespace {

struct CacheBound : ::testing::Test, StoreWorld {
  // Cached A records c0 ... c<count-1>, TTL 1000 + i*7 % count, so that
  // expiry and list order differ.
  void Fill(int count) {
    for (int i = 0; i < count; ++i)
      Add("c" + std::to_string(i) + ".", 1, 1000 + (i * 7) % count, modIP::IPToData("10.0.0.1"));
  }
  int32_t ShortestTtl() const {
    int32_t shortest = 1 << 30;
    for (const clDNSRecord& r : records)
      if (!r.Permanent) shortest = std::min(shortest, r.TTL(clock.Now()));
    return shortest;
  }
};

TEST_F(CacheBound, TheLimitIsCacheSizeButNeverBelowTheMinimum) {
  const std::pair<int32_t, std::size_t> cases[] = {
      {100000, 100000}, {5000, 5000}, {1000, 1000}, {10, 1000}, {0, 1000}, {-7, 1000}};
  for (const auto& [size, limit] : cases) {
    options.CACHESIZE = size;
    EXPECT_EQ(modDNS::CacheLimit(options), limit) << size;
  }
}

TEST_F(CacheBound, BeyondTheLimitTheRecordsNearestToExpiryGoAndPermanentOnesStay) {
  options.CACHESIZE = 1280;
  for (int i = 0; i < 50; ++i)
    Add("own" + std::to_string(i) + ".", 1, 60, modIP::IPToData("10.9.9.9"), 0, true);
  Fill(1280);
  modDNS::TrimCache(ctx);
  EXPECT_EQ(records.CachedCount(), 1280u);  // at the limit: nothing to do

  Add("late.", 1, 5000, modIP::IPToData("10.0.0.2"));
  Add("soon.", 1, 1, modIP::IPToData("10.0.0.3"));
  modDNS::TrimCache(ctx);
  // A 64th of the limit is made free, the shortest-lived first.
  EXPECT_EQ(records.CachedCount(), 1280u - 20u);
  EXPECT_EQ(records.size(), 1280u - 20u + 50u);
  EXPECT_TRUE(records.Named("soon.").empty());
  EXPECT_FALSE(records.Named("late.").empty());
  // Of the TTLs 1000 ... 2279, the 21 shortest went with "soon.".
  EXPECT_EQ(ShortestTtl(), 1000 + 21);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(records.Named("own" + std::to_string(i) + ".").size(), 1u);
  EXPECT_TRUE(errors.errors.empty());
}

TEST_F(CacheBound, ExpiredRecordsGoFirstAndTheCountFollowsEveryChange) {
  options.CACHESIZE = 1000;
  Fill(1000);
  Add("stale.", 1, 10, modIP::IPToData("10.0.0.4"));
  clock.Advance(20);
  Add("fresh.", 1, 10, modIP::IPToData("10.0.0.5"));
  EXPECT_EQ(records.CachedCount(), 1002u);
  modDNS::TrimCache(ctx);
  EXPECT_TRUE(records.Named("stale.").empty());
  EXPECT_EQ(records.CachedCount(), 1000u - 15u);

  // A positive record replaces a negative entry: still one cached record.
  Add("neg.", 2000, 60, "");
  const std::size_t before = records.CachedCount();
  Add("neg.", 1, 60, modIP::IPToData("10.0.0.6"));
  EXPECT_EQ(records.CachedCount(), before);
  modDNS::CleanCache(ctx);
  records.Clear();
  EXPECT_EQ(records.CachedCount(), 0u);
}

// One name with more records than the walk takes before it indexes them,
// among permanent records of the same name: the trim, the refresh through
// the index, a reload of the permanent records and a move keep the count.
TEST_F(CacheBound, ACrowdedNameIsBoundedAndCountedLikeAnyOther) {
  options.CACHESIZE = 1000;
  const std::string reverse = "0.0.0.0.in-addr.arpa.";
  for (int i = 0; i < 30; ++i) Add(reverse, 12, 60, "own" + std::to_string(i) + ".", -1, true);
  for (int i = 0; i < 1100; ++i) Add(reverse, 12, 100 + i, "c" + std::to_string(i) + ".");
  EXPECT_EQ(records.CachedCount(), 1100u);
  modDNS::TrimCache(ctx);
  EXPECT_EQ(records.CachedCount(), 1000u - 15u);
  EXPECT_EQ(records.Named(reverse).size(), 30u + 985u);

  Add(reverse, 12, 5000, "c1099.");  // kept, so refreshed in place
  Add(reverse, 12, 5000, "c0.");     // trimmed, so added again
  EXPECT_EQ(records.CachedCount(), 986u);
  records.EraseIf([](const clDNSRecord& r) { return r.Permanent; });
  EXPECT_EQ(records.CachedCount(), 986u);
  EXPECT_EQ(records.size(), 986u);
  RecordList moved = std::move(records);
  EXPECT_EQ(moved.CachedCount(), 986u);
  EXPECT_EQ(records.CachedCount(), 0u);
  EXPECT_TRUE(errors.errors.empty());
}

}  // namespace
