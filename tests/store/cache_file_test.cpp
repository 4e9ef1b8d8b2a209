#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "wire/datetime.h"
#include "world.h"

using namespace korvane;

namespace {

using Lines = std::vector<std::string>;

std::string Header(DateTime now) {
  return "; Korvane - Cache\n; CACHE-TIME " + FormatDateTime(now) + "\n;\n";
}

TEST(SaveCache, OnlyPermanentRecordsGiveTheHeaderAlone) {
  StoreWorld w;
  w.Add("a.", 2, 60, "n.", 0, true);
  modDNS::saveCache(w.ctx);
  EXPECT_EQ(w.dir.Read("named.cache"), Header(w.clock.Now()));
}

TEST(SaveCache, WritesEveryTypeInItsLayout) {
  StoreWorld w;
  const std::string soa = StoreWorld::Soa("ns1.example.com.", "admin.example.com.", {5, 3600, 600, 86400, 3600});
  const std::vector<std::tuple<std::string, int, int32_t, std::string, int32_t>> adds = {
      {"host.example.com.", 1, 3600, Bytes({10, 0, 0, 7}), 0},
      {"example.com.", 2, 86400, "ns1.example.com.", 0},
      {"www.example.com.", 5, 300, "host.example.com.", 0},
      {"example.com.", 6, 3000, soa, 0},
      {"7.0.0.10.in-addr.arpa.", 12, 300, "host.example.com.", 0},
      {"example.com.", 15, 3000, "mail.example.com.", 10},
      {"gone.example.com.", 2000, 600, "example.com.", 0},
      {"empty.example.com.", 2000, 600, "", 0},
      {"example.com.", 1001, 600, "example.com.", 0},
      {"example.com.", 1012, 600, "example.com.", 0},
      {"odd.example.com.", 16, 600, "text", 0},
      {"soon.example.com.", 2, 42, "n.", 0},
  };
  for (const auto& [name, type, ttl, data, pref] : adds) w.Add(name, type, ttl, data, pref);
  w.Add("expired.example.com.", 2, 10, "n.");
  w.Add("own.example.com.", 2, 3600, "n.", 0, true);
  // Learnt names the reader would not give back as they stand are left out.
  w.Add("bad.example.com.", 5, 600, "x.\nevil. 999 A 1.2.3.4");
  w.Add("x 600 dhcp 10.0.0.1 10.0.0.9 0.0.0.0 10.6.6.6 ;.", 1, 600, Bytes({10, 0, 0, 8}));
  w.Add("_sip._udp.example.com.", 2, 600, "n.");
  w.Add("example.org.", 6, 600, StoreWorld::Soa("ns1 x.", "h.", {1, 2, 3, 4, 5}));
  w.clock.Advance(42);

  modDNS::saveCache(w.ctx);
  EXPECT_EQ(w.dir.Read("named.cache"),
            Header(w.clock.Now()) +
                "host.example.com. 3558 A 10.0.0.7\n"
                "example.com. 86358 NS ns1.example.com.\n"
                "www.example.com. 258 CNAME host.example.com.\n"
                "example.com. 2958 SOA ns1.example.com. admin.example.com. 5 3600 600 86400 3600\n"
                "7.0.0.10.in-addr.arpa. 258 PTR host.example.com.\n"
                "example.com. 2958 MX 10 mail.example.com.\n"
                "gone.example.com. 558 NE example.com.\n"
                "empty.example.com. 558 NE \n"
                "example.com. 558 REA example.com.\n"
                "example.com. 558 REPTR example.com.\n"
                "odd.example.com. 558 \n"
                "soon.example.com. 0 NS n.\n");
  EXPECT_TRUE(w.errors.errors.empty());
}

// SOA numbers are unsigned on the wire, the file reads them as a signed
// 32-bit field: a learnt serial past 2^31 is written negative and comes back
// as it was, and the start-up reports nothing.
TEST(SaveCache, SoaNumbersBeyondTheSignedRangeReadBackUnchanged) {
  StoreWorld w;
  w.Add("example.org.", 6, 3000,
        StoreWorld::Soa("ns1.example.org.", "h.example.org.", {3000000000u, 4294966696u, 600, 2147483648u, 60}));
  const Lines before = w.Dump();
  modDNS::saveCache(w.ctx);
  EXPECT_EQ(w.dir.Read("named.cache"),
            Header(w.clock.Now()) +
                "example.org. 3000 SOA ns1.example.org. h.example.org. -1294967296 -600 600 -2147483648 60\n");
  w.records.Clear();
  w.dir.SetModified("named.cache", w.clock.Now());
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("named.cache"), false, false));
  EXPECT_EQ(w.Dump(), before);
  EXPECT_EQ(before, Lines{"example.org. 6 3000 ns1.example.org. h.example.org. 3000000000 4294966696 600 "
                          "2147483648 60 0"});
  EXPECT_TRUE(w.errors.errors.empty());
}

TEST(SaveCache, UnwritableFolderIsReported) {
  StoreWorld w;
  w.ctx.folder = w.dir.File("missing");
  modDNS::saveCache(w.ctx);
  EXPECT_EQ(w.Errors(), Lines{"modDNS saveCache 76"});
}

}  // namespace
