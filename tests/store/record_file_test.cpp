#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "world.h"

namespace {

using Lines = std::vector<std::string>;

// --- NextToken -------------------------------------------------------------

TEST(NextToken, SplitsAtSpacesAndLeavesTheRestTrimmed) {
  struct Case {
    std::string line, token, rest;
  } cases[] = {
      {"  a  b c", "a", "b c"}, {"abc", "abc", ""}, {"", "", ""}, {"   ", "", ""}, {"a ", "a", ""}};
  for (const Case& c : cases) {
    std::string line = c.line;
    EXPECT_EQ(modDNS::NextToken(line), c.token) << '"' << c.line << '"';
    EXPECT_EQ(line, c.rest) << '"' << c.line << '"';
  }
}

// --- The record file dialect -----------------------------------------------

struct DialectCase {
  std::string title;
  std::string text;
  Lines expected;  // StoreWorld::Dump() after loading as a permanent file
};

class DialectTest : public ::testing::TestWithParam<DialectCase> {};

TEST_P(DialectTest, LoadsExpectedRecords) {
  StoreWorld w;
  w.dir.Write("named.perm", GetParam().text);
  EXPECT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("named.perm"), true, false));
  EXPECT_EQ(w.Dump(), GetParam().expected);
  EXPECT_TRUE(w.errors.errors.empty());
}

const std::string kPtr = "1.0.0.10.in-addr.arpa. 12 3600 example.com. -1 P";

INSTANTIATE_TEST_SUITE_P(
    Lines, DialectTest,
    ::testing::Values(
        DialectCase{"ClassBeforeTtl", "example.com. IN 3600 A 10.0.0.1\n",
                    {kPtr, "example.com. 1 3600 10.0.0.1 0 P"}},
        DialectCase{"ClassAfterTtl", "example.com. 3600 in A 10.0.0.1\n",
                    {kPtr, "example.com. 1 3600 10.0.0.1 0 P"}},
        DialectCase{"NoTtlMeansOneDay", "example.com. A 10.0.0.1\n",
                    {"1.0.0.10.in-addr.arpa. 12 86400 example.com. -1 P",
                     "example.com. 1 86400 10.0.0.1 0 P"}},
        DialectCase{"BlankOwnerKeepsOwnerAndTtl",
                    "example.com. 3600 NS ns1.example.com.\n NS ns2.example.com.\n",
                    {"example.com. 2 3600 ns1.example.com. 0 P", "example.com. 2 3600 ns2.example.com. 0 P"}},
        DialectCase{"TtlOfBlankOwnerLineCarriesOn", "a. NS n1.\n 50 NS n2.\n NS n3.\nb. NS n4.\n",
                    {"a. 2 86400 n1. 0 P", "a. 2 50 n2. 0 P", "a. 2 50 n3. 0 P", "b. 2 86400 n4. 0 P"}},
        DialectCase{"BlankOwnerWithoutPreviousOwnerIsSkipped", " NS n.\n\t3600 NS m.\n", {}},
        DialectCase{"AtOwnerIsSkippedAndSetsNoOwner", "@ 3600 NS n.\n NS m.\n", {}},
        DialectCase{"TabsAndComments", "a.\t3600\tNS\tn. ; a comment ( \n;whole line\n",
                    {"a. 2 3600 n. 0 P"}},
        DialectCase{"SoaOverSeveralLines",
                    "example.com. 3600 IN SOA ns1.example.com. admin.example.com. (\n"
                    "\t\t1 ; serial )\n",  // ")" inside a comment does not close
                    {}},
        DialectCase{"SoaContinuationWithComments",
                    "example.com. 3600 IN SOA ns1.Example.com. admin.example.com. ( ; open\n"
                    "   1          ; serial\n"
                    "\t10800 3600  ; refresh, retry\n"
                    "\n"
                    "   604800\n"
                    "   86400 )    ; minimum\n"
                    "next. NS n.\n",
                    {"example.com. 6 3600 ns1.example.com. admin.example.com. 1 10800 3600 604800 86400 0 P",
                     "next. 2 86400 n. 0 P"}},
        DialectCase{"FileEndingInsideParenthesesDropsTheRecord",
                    "a. NS n.\nb. SOA p. m. (\n 1 2 3\n 4 5\n", {"a. 2 86400 n. 0 P"}},
        DialectCase{"SoaShortOfNumbersIsDropped", "a. SOA p. m. 1 2 3 4\n", {}},
        DialectCase{"ClassChaosSkipsTheLine", "a. CH NS n.\na. 60 ch NS n.\n", {}},
        DialectCase{"UnusableAddressAddsNothing", "host A 0.0.0.0\nhost A abc\nhost A 300.1.1.1\nhost A 10.0.256.1\n", {}},
        DialectCase{"TtlWithUnitIsTakenAsType", "a. 1h A 10.0.0.1\n", {}},
        DialectCase{"TtlWithLeadingZeroIsTakenAsType", "a. 0100 NS n.\n", {}},
        DialectCase{"TtlWithSignIsTakenAsType", "a. +100 NS n.\n", {}},
        DialectCase{"TtlZeroIsANumber", "a. 0 NS n.\n", {"a. 2 0 n. 0 P"}},
        DialectCase{"TtlBeyond32BitsIsTakenAsType", "a. 4294967296 NS n.\n", {}},
        DialectCase{"UnknownTypeIsDropped", "a. 60 TXT hello\na. 60 NS n.\n", {"a. 2 60 n. 0 P"}},
        DialectCase{"NothingAfterTheTypeIsDropped", "a. 60 NS\na. 60\na.\na. IN\n", {}},
        DialectCase{"MxPreferenceIsAbsoluteWholePart", "a. MX -10.7 Mail.A.\n", {"a. 15 86400 mail.a. 10 P"}},
        DialectCase{"NamesAreCleaned", "Host.Example..COM 60 cname Tar_get.Example.COM.\n",
                    {"host.example.com. 5 60 target.example.com. 0 P"}},
        DialectCase{"CrLfLines", "a. 60 NS n.\r\nb. 60 NS m.\r\n", {"a. 2 60 n. 0 P", "b. 2 60 m. 0 P"}},
        DialectCase{"LastLineWithoutEnd", "a. 60 PTR n.", {"a. 12 60 n. 0 P"}},
        DialectCase{"DuplicateLinesGiveOneRecord", "a. 60 NS n.\na. 60 NS n.\n", {"a. 2 60 n. 0 P"}},
        DialectCase{"DhcpLineWithoutLocalNetworkIsIgnored",
                    "office. 600 DHCP 172.16.0.10 172.16.0.20 255.255.255.0 172.16.0.1\n", {}}),
    [](const auto& info) { return info.param.title; });

TEST(LoadFile, MissingFileIsNotRead) {
  StoreWorld w;
  EXPECT_FALSE(modDNS::LoadFile(w.ctx, w.dir.File("named.perm"), true, false));
  EXPECT_TRUE(w.records.empty());
}

TEST(LoadFile, RootHintsAreFlaggedAndGetNoReverseRecords) {
  StoreWorld w;
  w.dir.Write("named.root",
              ".  3600000  IN  NS  A.ROOT-SERVERS.NET.\n"
              "A.ROOT-SERVERS.NET.  3600000  A  198.41.0.4\n");
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("named.root"), true, true));
  EXPECT_EQ(w.Dump(), (Lines{". 2 3600000 a.root-servers.net. 0 P H",
                             "a.root-servers.net. 1 3600000 198.41.0.4 0 P H"}));
}

TEST(LoadFile, CacheFileIsAgedByItsModificationTime) {
  StoreWorld w;
  w.dir.Write("named.cache",
              "; Korvane - Cache\n; CACHE-TIME 2000-01-01 00:00:00\n;\n"
              "a. 100 NS n.\n"
              "b. 30 NS n.\n"
              "c. 40 NS n.\n"
              "d. 3600 A 10.0.0.1\n"
              "e. 100 NE \n"
              "f. 100 NE g.\n"
              "h. 100 REMX h.\n");
  w.dir.SetModified("named.cache", w.clock.Now() - 40);
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("named.cache"), false, false));
  EXPECT_EQ(w.Dump(), (Lines{"a. 2 60 n. 0", "c. 2 0 n. 0", "d. 1 3560 10.0.0.1 0", "f. 2000 60 g. 0",
                             "h. 1015 60 h. 0"}));
}

TEST(LoadFile, CacheFileFromTheFutureLengthensTtls) {
  StoreWorld w;
  w.dir.Write("named.cache", "a. 100 NS n.\n");
  w.dir.SetModified("named.cache", w.clock.Now() + 10);
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("named.cache"), false, false));
  EXPECT_EQ(w.Dump(), Lines{"a. 2 110 n. 0"});
}

TEST(LoadFile, DhcpLinePicksTheLastLocalAddressOnThatNetwork) {
  StoreWorld w;
  w.localIPs = {"192.168.0.5", "10.0.0.1", "192.168.0.9", "192.168.1.9"};
  w.dir.Write("named.perm",
              "Office.Example.com. 86400 DHCP 192.168.0.100 192.168.0.200 255.255.255.0 192.168.0.1 \n"
              "lab. DHCP 10.0.0.50 10.0.0.60 255.0.0.0 0.0.0.0\n"
              "away. DHCP 172.16.0.10 172.16.0.20 255.255.255.0 172.16.0.1\n");
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("named.perm"), true, false));
  EXPECT_TRUE(w.records.empty());
  ASSERT_EQ(w.dhcpifs.size(), 2u);
  const clDHCPif& office = w.dhcpifs[0];
  EXPECT_EQ(office.IPaddr, "192.168.0.9");
  EXPECT_EQ(office.ScopeFrom, "192.168.0.100");
  EXPECT_EQ(office.ScopeTo, "192.168.0.200");
  EXPECT_EQ(office.Subnet, "255.255.255.0");
  EXPECT_EQ(office.Gateway, "192.168.0.1");
  EXPECT_EQ(office.TTL, 86400);
  EXPECT_EQ(office.Domain, "office.example.com.");
  EXPECT_EQ(w.dhcpifs[1].IPaddr, "10.0.0.1");
  EXPECT_EQ(w.dhcpifs[1].Domain, "lab.");
}

TEST(LoadFile, LongFileReportsRisingProgressAndCloses) {
  StoreWorld w;
  w.ctx.progress = &w.progress;
  std::string text;
  for (int i = 0; i < 400; ++i) text += "host" + std::to_string(i) + ".example.com. 60 NS ns.example.com.\n";
  ASSERT_GT(text.size(), 7500u);
  w.dir.Write("big", text);
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("big"), true, false));
  EXPECT_EQ(w.records.size(), 400u);
  ASSERT_EQ(w.progress.values.size(), 400u);
  EXPECT_TRUE(std::is_sorted(w.progress.values.begin(), w.progress.values.end()));
  EXPECT_GE(w.progress.values.front(), 0);
  EXPECT_GE(w.progress.values.back(), 98);
  EXPECT_LE(w.progress.values.back(), 100);
  EXPECT_EQ(w.progress.closed, 1);
}

TEST(LoadFile, ShortFileShowsNoProgress) {
  StoreWorld w;
  w.ctx.progress = &w.progress;
  w.dir.Write("small", "a. NS n.\n");
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("small"), true, false));
  EXPECT_TRUE(w.progress.values.empty());
}

// --- LoadPerm --------------------------------------------------------------

TEST(LoadPerm, ReloadsPermanentDataAndKeepsTheCache) {
  StoreWorld w;
  w.localIPs = {"192.168.0.5"};
  w.dhcpifs.push_back(clDHCPif{});
  modDNS::CacheAdd(w.ctx, "old.", 2, 60, "n.", 0, true);
  modDNS::CacheAdd(w.ctx, "learnt.", 2, 60, "n.", 0, false);
  w.dir.Write("named.root", ". 3600000 NS a.root.\n");
  w.dir.Write("named.perm",
              "; Korvane Permanent Records\n"
              "example.com. 3600 SOA ns.example.com. hostmaster.example.com. 1 2 3 4 5\n"
              "office. 600 DHCP 192.168.0.100 192.168.0.200 255.255.255.0 0.0.0.0 \n");
  w.dir.Write("perm.dat", "NS: never = read.example\n");
  w.dir.Write("hosts", "10.0.0.5 server\n");
  w.options.HOSTS = w.dir.File("hosts");
  modDNS::LoadPerm(w.ctx);
  EXPECT_EQ(w.log.lines, (Lines{"Loading root DNS server records...", "Loading permanent records...",
                                "Loading hosts file '" + w.dir.File("hosts") + "'..."}));
  EXPECT_EQ(w.Dump(), (Lines{"learnt. 2 60 n. 0", ". 2 3600000 a.root. 0 P H",
                             "example.com. 6 3600 ns.example.com. hostmaster.example.com. 1 2 3 4 5 0 P",
                             "server. 1 3600 10.0.0.5 -1 P", "5.0.0.10.in-addr.arpa. 12 3600 server. -1 P"}));
  ASSERT_EQ(w.dhcpifs.size(), 1u);
  EXPECT_EQ(w.dhcpifs[0].Domain, "office.");
  ASSERT_EQ(w.records.PermanentZoneRecords().size(), 2u);
  EXPECT_TRUE(w.errors.errors.empty());
}

TEST(LoadPerm, WithoutRecordFileImportsPermDat) {
  StoreWorld w;
  w.dir.Write("perm.dat", "NS: example.com = ns.example.com\n");
  modDNS::LoadPerm(w.ctx);
  EXPECT_EQ(w.Dump(), Lines{"example.com. 2 86400 ns.example.com. 0 P"});
  EXPECT_EQ(w.log.lines, (Lines{"Loading root DNS server records...", "Loading permanent records..."}));
}

TEST(LoadPerm, WithNoFilesAtAllReportsTheMissingPermDat) {
  StoreWorld w;
  modDNS::LoadPerm(w.ctx);
  EXPECT_TRUE(w.records.empty());
  ASSERT_EQ(w.errors.errors.size(), 1u);
  EXPECT_EQ(w.errors.errors[0].tag, "modDNS LoadPermOld");
  EXPECT_EQ(w.errors.errors[0].number, ErrorNumber::kFileNotFound);
  EXPECT_EQ(w.errors.errors[0].description, "File not found");
}

// --- WritePerm -------------------------------------------------------------

std::string Soa(const std::string& primary, const std::string& mailbox, std::vector<int> numbers) {
  std::string data = primary + '\0' + mailbox + '\0';
  for (int n : numbers)
    data += Bytes({(n >> 24) & 255, (n >> 16) & 255, (n >> 8) & 255, n & 255});
  return data;
}

std::vector<clPermRec> EditorEntries() {
  return {
      {6, "example.com", "", Soa("ns1.example.com.", "admin.example.com.", {1, 10800, 3600, 604800, 86400}),
       86400, 1},
      {6, "quiet.example.com", "", Soa("ns1.example.com.", "admin.example.com.", {1, 2, 3, 4, 5}), 86400, 0},
      {1, "example.com", "host", Bytes({192, 168, 0, 2}), 3600, 0},
      {2, "example.com", "", "ns1.example.com.", 3600, 0},
      {5, "example.com", "www", "host.example.com", 3600, 0},
      {15, "example.com", "", "mail.example.com.", 3600, 10},
      {99, "Office.Example.com", "", Bytes({192, 168, 0, 100, 192, 168, 0, 200, 255, 255, 255, 0,
                                            192, 168, 0, 1, 192, 168, 0, 5}),
       86400, 0},
      {2, "", "", "a.root-servers.net.", 0, 0},
  };
}

TEST(WritePerm, WritesTheExactLayout) {
  StoreWorld w;
  ASSERT_TRUE(modDNS::WritePerm(w.ctx, EditorEntries()));
  EXPECT_EQ(w.dir.Read("named.perm"),
            "; Korvane Permanent Records\n"
            "example.com. 86400 SOA ns1.example.com. admin.example.com. 1 10800 3600 604800 86400\n"
            "host.example.com. 3600 A 192.168.0.2\n"
            "example.com. 3600 NS ns1.example.com.\n"
            "www.example.com. 3600 CNAME host.example.com.\n"
            "example.com. 3600 MX 10 mail.example.com.\n"
            "office.example.com. 86400 DHCP 192.168.0.100 192.168.0.200 255.255.255.0 192.168.0.1 \n"
            ". 0 NS a.root-servers.net.\n");
  EXPECT_TRUE(w.errors.errors.empty());
}

TEST(WritePerm, WhatIsWrittenLoadsBackAsTheSameRecords) {
  StoreWorld w;
  w.localIPs = {"192.168.0.5"};
  ASSERT_TRUE(modDNS::WritePerm(w.ctx, EditorEntries()));
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.ctx.PathOf("named.perm"), true, false));
  EXPECT_EQ(w.Dump(),
            (Lines{"example.com. 6 86400 ns1.example.com. admin.example.com. 1 10800 3600 604800 86400 0 P",
                   "2.0.168.192.in-addr.arpa. 12 3600 host.example.com. -1 P",
                   "host.example.com. 1 3600 192.168.0.2 0 P",
                   "example.com. 2 3600 ns1.example.com. 0 P",
                   "www.example.com. 5 3600 host.example.com. 0 P",
                   "example.com. 15 3600 mail.example.com. 10 P",
                   ". 2 0 a.root-servers.net. 0 P"}));
  ASSERT_EQ(w.dhcpifs.size(), 1u);
  EXPECT_EQ(w.dhcpifs[0].IPaddr, "192.168.0.5");
  EXPECT_EQ(w.dhcpifs[0].ScopeFrom, "192.168.0.100");
  EXPECT_EQ(w.dhcpifs[0].Gateway, "192.168.0.1");
  EXPECT_EQ(w.dhcpifs[0].Domain, "office.example.com.");
}

TEST(WritePerm, UnwritableFolderIsReported) {
  StoreWorld w;
  w.ctx.folder = w.dir.File("no-such-folder");
  EXPECT_FALSE(modDNS::WritePerm(w.ctx, EditorEntries()));
  ASSERT_EQ(w.errors.errors.size(), 1u);
  EXPECT_EQ(w.errors.errors[0].tag, "modDNS WritePerm");
  EXPECT_EQ(w.errors.errors[0].number, ErrorNumber::kPathNotFound);
}

}  // namespace
