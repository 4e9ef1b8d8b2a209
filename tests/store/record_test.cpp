#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "world.h"

using namespace korvane;

namespace {

using Lines = std::vector<std::string>;

constexpr DateTime kStart = 1'790'000'000.0;

// --- clDNSRecord -----------------------------------------------------------

TEST(CachedRecord, TtlCountsDownAndRoundsHalfToEven) {
  const std::pair<double, int32_t> cases[] = {{0, 100},    {40, 60},   {39.5, 60}, {38.5, 62},  {99.5, 0},
                                              {100, 0},    {100.5, 0}, {101.5, -2}, {250, -150}};
  for (const auto& [elapsed, expected] : cases) {
    clDNSRecord r;
    r.SetTTL(100, kStart);
    EXPECT_EQ(r.TTL(kStart + elapsed), expected) << elapsed;
    EXPECT_DOUBLE_EQ(r.TimeOut(kStart + elapsed), kStart + 100);
  }
}

TEST(PermanentRecord, TtlIsFixedAndTimeOutMovesWithTheClock) {
  clDNSRecord r;
  r.Permanent = true;
  r.SetTTL(3600, kStart);
  for (double later : {0.0, 3600.0, 1e6}) {
    EXPECT_EQ(r.TTL(kStart + later), 3600);
    EXPECT_DOUBLE_EQ(r.TimeOut(kStart + later), kStart + later + 3600);
  }
}

TEST(CachedRecord, FarPastExpiryStaysNegativeWithoutWrapping) {
  clDNSRecord r;
  r.SetTTL(2147483647, kStart);
  EXPECT_EQ(r.TTL(kStart - 10), 2147483647);
  r.SetTTL(-2147483647 - 1, kStart);
  EXPECT_LT(r.TTL(kStart + 10), 0);
}

// --- CacheAdd --------------------------------------------------------------

struct Add {
  double advance;  // seconds the clock moves before this call
  std::string name;
  int type;
  int32_t ttl;
  std::string data;
  bool permanent = false;
};

TEST(CacheAdd, ResultingList) {
  const std::string a = Bytes({10, 0, 0, 1});
  struct Case {
    const char* title;
    int32_t cacheTTL;
    std::vector<Add> adds;
    Lines expected;  // StoreWorld::Dump() after the adds
  } cases[] = {
      {"longer TTL restarts expiry", 0, {{0, "x.", 1, 100, a}, {50, "x.", 1, 200, a}}, {"x. 1 200 10.0.0.1 7"}},
      {"shorter TTL changes nothing", 0, {{0, "x.", 1, 100, a}, {10, "x.", 1, 50, a}}, {"x. 1 90 10.0.0.1 7"}},
      {"permanent is never refreshed", 0, {{0, "x.", 2, 100, "n.", true}, {0, "x.", 2, 500, "n."}},
       {"x. 2 100 n. 7 P"}},
      {"other data or case of name is another record", 0,
       {{0, "X.", 2, 100, "a."}, {0, "x.", 2, 100, "a."}, {0, "x.", 2, 100, "b."}},
       {"X. 2 100 a. 7", "x. 2 100 a. 7", "x. 2 100 b. 7"}},
      // Only the name error and the negative entry of its own type go.
      {"positive removes negatives of its name and type", 0,
       {{0, "x.", 1015, 600, "z."}, {0, "y.", 2000, 600, "z."}, {0, "x.", 2000, 600, "z."}, {0, "x.", 1, 100, a}},
       {"x. 1015 600 z. 7", "y. 2000 600 z. 7", "x. 1 100 10.0.0.1 7"}},
      {"consecutive negatives all removed", 0,
       {{0, "x.", 1001, 100, "a."}, {0, "x.", 2000, 100, "b."}, {0, "x.", 1001, 100, "c."}, {0, "x.", 1, 100, a}},
       {"x. 1 100 10.0.0.1 7"}},
      {"negative of same data only refreshes", 0, {{0, "x.", 2000, 100, "z."}, {20, "x.", 2000, 300, "z."}},
       {"x. 2000 300 z. 7"}},
      {"name error with other data replaces the old", 0, {{0, "x.", 2000, 100, "a."}, {0, "x.", 2000, 100, "b."}},
       {"x. 2000 100 b. 7"}},
      // The same record again is stored once, and the walk ends there.
      {"walk stops at the duplicate", 0,
       {{0, "x.", 1, 100, a}, {0, "x.", 2000, 100, "z."}, {0, "x.", 1, 100, a}},
       {"x. 1 100 10.0.0.1 7", "x. 2000 100 z. 7"}},
      {"cache TTL raises short and negative TTLs, leaves zero and longer", 300,
       {{0, "a.", 2, 60, "n."}, {0, "b.", 2, -5, "n."}, {0, "c.", 2, 0, "n."}, {0, "d.", 2, 301, "n."}},
       {"a. 2 300 n. 7", "b. 2 300 n. 7", "c. 2 0 n. 7", "d. 2 301 n. 7"}},
      {"cache TTL applies to a refresh", 300, {{0, "x.", 2, 400, "a."}, {200, "x.", 2, 60, "a."}},
       {"x. 2 300 a. 7"}}};
  // Each case once as it stands, and once with "x." already holding many
  // records (so that its records are indexed, not walked): the rules and the
  // order are the same.
  for (int crowd : {0, 40}) {
    for (const Case& c : cases) {
      StoreWorld w;
      w.options.CACHETTL = c.cacheTTL;
      for (int i = 0; i < crowd; ++i)
        w.Add("x.", RecordType::kMX, 100, "mx" + std::to_string(i) + ".x.", i, true);
      Lines expected = w.Dump();
      expected.insert(expected.end(), c.expected.begin(), c.expected.end());
      for (const Add& add : c.adds) {
        w.clock.Advance(add.advance);
        w.Add(add.name, add.type, add.ttl, add.data, 7, add.permanent);
      }
      EXPECT_EQ(w.Dump(), expected) << c.title << ", crowd " << crowd;
      EXPECT_TRUE(w.errors.errors.empty());
    }
  }
}

TEST(CacheAdd, TextKeysMapToTypeNumbersAndUnknownOnesAddNothing) {
  const std::pair<std::string, int> keys[] = {
      {"A", 1},     {"NS", 2},       {"CNAME", 5},     {"SOA", 6},     {"PTR", 12},   {"MX", 15},
      {"REA", 1001}, {"RENS", 1002}, {"RECNAME", 1005}, {"RESOA", 1006}, {"REPTR", 1012}, {"REMX", 1015},
      {"NE", 2000}, {"TXT", 0},      {"DHCP", 0},      {"", 0}};
  for (const auto& [key, type] : keys) EXPECT_EQ(modDNS::RecTypeOfKey(key), type) << key;
  StoreWorld w;
  modDNS::CacheAdd(w.ctx, "x.", std::string_view("TXT"), 100, "a.", 0, false);
  EXPECT_TRUE(w.records.empty());
  modDNS::CacheAdd(w.ctx, "x.", std::string_view("REMX"), 100, "a.", 0, false);
  EXPECT_EQ(w.Dump(), Lines{"x. 1015 100 a. 0"});
}

TEST(CacheAdd, RootHintFlagIsKeptAndClearedByTheOperatorsOwnCopy) {
  StoreWorld w;
  modDNS::CacheAdd(w.ctx, ".", RecordType::kNS, 100, "a.root.", 0, true, true);
  w.Add(".", RecordType::kNS, 100, "a.root.");  // learnt copy
  EXPECT_EQ(w.Dump(), Lines{". 2 100 a.root. 0 P H"});
  w.Add(".", RecordType::kNS, 100, "a.root.", 0, true);  // record file copy
  EXPECT_EQ(w.Dump(), Lines{". 2 100 a.root. 0 P"});
}

// --- CleanCache ------------------------------------------------------------

TEST(CleanCache, RemovesOnlyExpiredCachedRecords) {
  StoreWorld w;
  w.options.CACHETTL = 5;
  w.Add("a.", 2, 10, "n.");
  w.Add("b.", 2, 20, "n.");
  w.Add("c.", 2, 5, "n.", 0, true);
  w.Add("d.", 2, 9, "n.");
  w.Add("z.", 2, 0, "n.");  // zero stays zero, so it goes at the first clean after its second
  modDNS::CleanCache(w.ctx);
  EXPECT_EQ(w.records.size(), 5u);
  w.clock.Advance(1);
  modDNS::CleanCache(w.ctx);
  EXPECT_EQ(w.records.size(), 4u);
  w.clock.Advance(9);  // a. at exactly 0, d. at -1
  modDNS::CleanCache(w.ctx);
  EXPECT_EQ(w.Dump(), (Lines{"a. 2 0 n. 0", "b. 2 10 n. 0", "c. 2 5 n. 0 P"}));
  w.clock.Advance(1000);
  modDNS::CleanCache(w.ctx);
  EXPECT_EQ(w.Dump(), Lines{"c. 2 5 n. 0 P"});
  EXPECT_TRUE(w.records.Named("a.").empty());
}

TEST(ClearCache, RemovesEveryCachedRecordKeepsThePermanentOnesAndSaysSo) {
  StoreWorld w;
  w.Add("a.", 2, 10, "n.");
  w.Add("p.", 2, 60, "m.", 0, true);
  w.Add("b.", 2, 20, "m.");
  w.Add("q.", 2, 60, "n.", 0, true);
  modDNS::ClearCache(w.ctx);
  EXPECT_EQ(w.Dump(), (Lines{"p. 2 60 m. 0 P", "q. 2 60 n. 0 P"}));
  EXPECT_TRUE(w.records.Named("b.").empty());
  EXPECT_EQ(w.log.lines, Lines{"Cache cleared by operator"});
  // Learning again works as before.
  w.Add("a.", 2, 10, "n.");
  EXPECT_EQ(w.records.Named("a.").size(), 1u);
}

// --- The index against a full walk -----------------------------------------

// CacheAdd exactly as the plain algorithm walks the whole list.
struct ModelRecord {
  std::string name;
  int type;
  std::string data;
  bool permanent;
  DateTime expiry;
  int32_t stored;  // the TTL a permanent record keeps
};

void ModelAdd(std::vector<ModelRecord>& list, const std::string& name, int type, int32_t ttl,
              const std::string& data, bool permanent, int32_t cacheTTL, DateTime now) {
  const int32_t effective = (ttl > cacheTTL || ttl == 0) ? ttl : cacheTTL;
  std::size_t i = 0;
  while (i < list.size()) {
    ModelRecord& e = list[i];
    if (e.name == name) {
      if (e.type == type && e.data == data) {
        int32_t current = e.permanent ? e.stored : static_cast<int32_t>(std::nearbyint(e.expiry - now));
        if (effective > current && !e.permanent) {
          e.stored = effective;
          e.expiry = now + effective;
        }
        return;
      }
      if (e.type == 2000 || e.type == type + 1000) {
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
        continue;
      }
    }
    ++i;
  }
  list.push_back({name, type, data, permanent, now + effective, effective});
}

void ExpectIndexesMatchWalk(const RecordList& records, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    std::vector<const clDNSRecord*> walked, indexed;
    for (const clDNSRecord& r : records)
      if (r.Name == name) walked.push_back(&r);
    for (auto it : records.Named(name)) indexed.push_back(&*it);
    ASSERT_EQ(indexed, walked) << name;
  }
  std::vector<const clDNSRecord*> walked, indexed;
  for (const clDNSRecord& r : records)
    if (r.Permanent && (r.RecType == 2 || r.RecType == 6)) walked.push_back(&r);
  for (auto it : records.PermanentZoneRecords()) indexed.push_back(&*it);
  ASSERT_EQ(indexed, walked);
}

struct RandomMix {
  const char* title;
  std::vector<std::string> names;
  std::vector<int> types;
  int datas;  // distinct data values per type
};

// Adds, clock moves, clean-ups, single removals and the removal of all
// permanent records, against the plain algorithm on a vector: the same
// records in the same order, and the indexes agree with a full walk. The
// wide mix gives names far more records than are walked without an index.
TEST(RecordListIndex, RandomAddsAndRemovesMatchAFullWalk) {
  const RandomMix mixes[] = {
      {"narrow", {"a.", "b.", "c.", "d.", "e.", "A.", "x.y.", "."}, {1, 2, 5, 6, 15, 1001, 1002, 1015, 2000}, 3},
      {"wide", {"a.", "b."}, {1, 12, 15, 1001, 1012, 2000}, 40}};
  for (const RandomMix& mix : mixes) {
    StoreWorld w;
    w.options.CACHETTL = 5;
    std::mt19937 random(20240611);
    std::vector<std::string> datas;
    for (int i = 0; i < mix.datas; ++i) datas.push_back(i == 0 ? "p." : "host" + std::to_string(i) + ".example.");
    std::vector<ModelRecord> model;
    auto pick = [&](auto& from) -> const auto& { return from[random() % from.size()]; };

    for (int step = 0; step < 4000; ++step) {
      unsigned action = random() % 40;
      if (action < 30) {
        const std::string& name = pick(mix.names);
        int type = pick(mix.types);
        const std::string& data = pick(datas);
        int32_t ttl = static_cast<int32_t>(random() % 40);
        bool permanent = random() % 5 == 0;
        w.Add(name, type, ttl, data, 0, permanent);
        ModelAdd(model, name, type, ttl, data, permanent, w.options.CACHETTL, w.clock.Now());
      } else if (action < 34) {
        w.clock.Advance(random() % 7);
      } else if (action < 36) {
        modDNS::CleanCache(w.ctx);
        const DateTime now = w.clock.Now();
        std::erase_if(model, [&](const ModelRecord& m) {
          return !m.permanent && std::nearbyint(m.expiry - now) < 0;
        });
      } else if (action < 37) {
        w.records.EraseIf([](const clDNSRecord& r) { return r.Permanent; });
        std::erase_if(model, [](const ModelRecord& m) { return m.permanent; });
      } else if (action < 38) {
        w.records.DropIndexes();  // as after a load: built again on the next search
      } else if (!w.records.empty()) {
        std::size_t victim = random() % w.records.size();
        w.records.Erase(std::next(w.records.begin(), static_cast<std::ptrdiff_t>(victim)));
        model.erase(model.begin() + static_cast<std::ptrdiff_t>(victim));
      }
      ExpectIndexesMatchWalk(w.records, mix.names);

      ASSERT_EQ(w.records.size(), model.size()) << mix.title << " step " << step;
      ASSERT_EQ(w.records.CachedCount(), static_cast<std::size_t>(std::count_if(
                                             model.begin(), model.end(), [](const ModelRecord& m) {
                                               return !m.permanent;
                                             })));
      auto m = model.begin();
      for (const clDNSRecord& r : w.records) {
        ASSERT_EQ(r.Name, m->name);
        ASSERT_EQ(r.RecType, m->type);
        ASSERT_EQ(r.Data, m->data);
        ASSERT_EQ(r.TimeOut(w.clock.Now()), m->permanent ? w.clock.Now() + m->stored : m->expiry);
        ++m;
      }
    }
    RecordList copy = w.records;
    ExpectIndexesMatchWalk(copy, mix.names);
    w.records.Clear();
    ExpectIndexesMatchWalk(w.records, mix.names);
    w.records = copy;
    ExpectIndexesMatchWalk(w.records, mix.names);
    EXPECT_EQ(w.records.size(), copy.size());
  }
}

}  // namespace
