#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "world.h"

using namespace korvane;

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

TEST(LoadFile, Dialect) {
  const std::string ptr = "1.0.0.10.in-addr.arpa. 12 3600 example.com. -1 P";
  struct Case {
    const char* title;
    std::string text;
    Lines expected;  // StoreWorld::Dump() after loading as a permanent file
  } cases[] = {
      {"class before TTL", "example.com. IN 3600 A 10.0.0.1\n", {ptr, "example.com. 1 3600 10.0.0.1 0 P"}},
      {"class after TTL", "example.com. 3600 in A 10.0.0.1\n", {ptr, "example.com. 1 3600 10.0.0.1 0 P"}},
      {"no TTL means one day", "example.com. A 10.0.0.1\n",
       {"1.0.0.10.in-addr.arpa. 12 86400 example.com. -1 P", "example.com. 1 86400 10.0.0.1 0 P"}},
      // A blank owner keeps the owner and the TTL of the line before; a new owner resets the TTL.
      {"blank owner", "a. 3600 NS n1.\n NS n2.\n 50 NS n3.\n NS n4.\nb. NS n5.\n",
       {"a. 2 3600 n1. 0 P", "a. 2 3600 n2. 0 P", "a. 2 50 n3. 0 P", "a. 2 50 n4. 0 P", "b. 2 86400 n5. 0 P"}},
      {"blank owner without previous owner is skipped", " NS n.\n\t3600 NS m.\n", {}},
      {"@ owner is skipped and sets no owner", "@ 3600 NS n.\n NS m.\n", {}},
      {"tabs and comments", "a.\t3600\tNS\tn. ; a comment ( \n;whole line\n", {"a. 2 3600 n. 0 P"}},
      {"SOA continued over lines with comments",
       "example.com. 3600 IN SOA ns1.Example.com. admin.example.com. ( ; open\n"
       "   1          ; serial\n\t10800 3600  ; refresh, retry\n\n   604800\n   86400 )    ; minimum\n"
       "next. NS n.\n",
       {"example.com. 6 3600 ns1.example.com. admin.example.com. 1 10800 3600 604800 86400 0 P",
        "next. 2 86400 n. 0 P"}},
      // ")" inside a comment does not close, so the file ends inside the parentheses.
      {"file ending inside parentheses drops the record", "a. NS n.\nb. SOA p. m. (\n 1 2 3 4 5 ; )\n",
       {"a. 2 86400 n. 0 P"}},
      {"SOA short of numbers is dropped", "a. SOA p. m. 1 2 3 4\n", {}},
      {"class chaos skips the line", "a. CH NS n.\na. 60 ch NS n.\n", {}},
      {"unusable address adds nothing", "host A 0.0.0.0\nhost A abc\nhost A 300.1.1.1\nhost A 10.0.256.1\n", {}},
      // A unit, a leading zero, a sign or more than 32 bits make the TTL a (bad) type.
      {"odd TTLs are taken as type", "a. 1h A 10.0.0.1\nb. 0100 NS n.\nc. +100 NS n.\nd. 4294967296 NS n.\n", {}},
      {"TTL zero is a number", "a. 0 NS n.\n", {"a. 2 0 n. 0 P"}},
      {"unknown type is dropped", "a. 60 TXT hello\na. 60 NS n.\n", {"a. 2 60 n. 0 P"}},
      {"nothing after the type is dropped", "a. 60 NS\na. 60\na.\na. IN\n", {}},
      {"MX preference is the absolute whole part", "a. MX -10.7 Mail.A.\n", {"a. 15 86400 mail.a. 10 P"}},
      {"names are cleaned", "Host.Example..COM 60 cname Tar_get.Example.COM.\n",
       {"host.example.com. 5 60 target.example.com. 0 P"}},
      {"CR LF lines", "a. 60 NS n.\r\nb. 60 NS m.\r\n", {"a. 2 60 n. 0 P", "b. 2 60 m. 0 P"}},
      {"last line without end", "a. 60 PTR n.", {"a. 12 60 n. 0 P"}},
      {"duplicate lines give one record", "a. 60 NS n.\na. 60 NS n.\n", {"a. 2 60 n. 0 P"}}};
  for (const Case& c : cases) {
    StoreWorld w;
    w.dir.Write("named.perm", c.text);
    EXPECT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("named.perm"), true, false)) << c.title;
    EXPECT_EQ(w.Dump(), c.expected) << c.title;
    EXPECT_TRUE(w.errors.errors.empty()) << c.title;
  }
}

TEST(LoadFile, MissingFileIsNotRead) {
  StoreWorld w;
  EXPECT_FALSE(modDNS::LoadFile(w.ctx, w.dir.File("named.perm"), true, false));
  EXPECT_TRUE(w.records.empty());
}

TEST(LoadFile, CacheFileIsAgedByItsModificationTime) {
  const std::string text = "; Korvane - Cache\n; CACHE-TIME 2000-01-01 00:00:00\n;\n"
                           "a. 100 NS n.\nb. 30 NS n.\nc. 40 NS n.\nd. 3600 A 10.0.0.1\n"
                           "e. 100 NE \nf. 100 NE g.\nh. 100 REMX h.\n";
  const std::pair<double, Lines> cases[] = {
      {-40, {"a. 2 60 n. 0", "c. 2 0 n. 0", "d. 1 3560 10.0.0.1 0", "f. 2000 60 g. 0", "h. 1015 60 h. 0"}},
      // A file from the future lengthens the TTLs.
      {10, {"a. 2 110 n. 0", "b. 2 40 n. 0", "c. 2 50 n. 0", "d. 1 3610 10.0.0.1 0", "f. 2000 110 g. 0",
            "h. 1015 110 h. 0"}}};
  for (const auto& [modified, expected] : cases) {
    StoreWorld w;
    w.dir.Write("named.cache", text);
    w.dir.SetModified("named.cache", w.clock.Now() + modified);
    ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("named.cache"), false, false));
    EXPECT_EQ(w.Dump(), expected) << modified;
  }
}

TEST(LoadFile, DhcpLinePicksTheLastLocalAddressOnThatNetwork) {
  StoreWorld w;
  w.localIPs = {"192.168.0.5", "10.0.0.1", "192.168.0.9", "192.168.1.9"};
  w.dir.Write("named.perm",
              "Office.Example.com. 86400 DHCP 192.168.0.100 192.168.0.200 255.255.255.0 192.168.0.1 \n"
              "lab. DHCP 10.0.0.50 10.0.0.60 255.0.0.0 0.0.0.0\n"
              "away. DHCP 172.16.0.10 172.16.0.20 255.255.255.0 172.16.0.1\n"
              "zeros. DHCP 10.0.0.070 10.0.0.080 255.0.0.0 none\n");
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("named.perm"), true, false));
  EXPECT_TRUE(w.records.empty());
  const Lines pools = {"192.168.0.9 192.168.0.100 192.168.0.200 255.255.255.0 192.168.0.1 86400 office.example.com.",
                       "10.0.0.1 10.0.0.50 10.0.0.60 255.0.0.0 0.0.0.0 86400 lab.",
                       "10.0.0.1 10.0.0.70 10.0.0.80 255.0.0.0 0.0.0.0 86400 zeros."};
  EXPECT_EQ(w.DhcpDump(), pools);
  // The cache file is learnt data: it never defines a pool.
  w.dir.Write("named.cache", "lab. 600 DHCP 10.0.0.50 10.0.0.60 0.0.0.0 10.6.6.6\n");
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("named.cache"), false, false));
  EXPECT_EQ(w.DhcpDump(), pools);
}

TEST(LoadFile, OnlyALongFileReportsRisingProgressAndCloses) {
  StoreWorld w;
  w.ctx.progress = &w.progress;
  w.dir.Write("small", "a. NS n.\n");
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("small"), true, false));
  EXPECT_TRUE(w.progress.values.empty());
  w.progress.closed = 0;
  std::string text;
  for (int i = 0; i < 400; ++i) text += "host" + std::to_string(i) + ".example.com. 60 NS ns.example.com.\n";
  ASSERT_GT(text.size(), 7500u);
  w.dir.Write("big", text);
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("big"), true, false));
  EXPECT_EQ(w.records.size(), 401u);
  ASSERT_EQ(w.progress.values.size(), 400u);
  EXPECT_TRUE(std::is_sorted(w.progress.values.begin(), w.progress.values.end()));
  EXPECT_GE(w.progress.values.front(), 0);
  EXPECT_GE(w.progress.values.back(), 98);
  EXPECT_LE(w.progress.values.back(), 100);
  EXPECT_EQ(w.progress.closed, 1);
}

// --- LoadPerm --------------------------------------------------------------

TEST(LoadPerm, ReloadsPermanentDataAndKeepsTheCache) {
  StoreWorld w;
  w.localIPs = {"192.168.0.5"};
  w.dhcpIfs.push_back(clDHCPif{});
  w.Add("old.", 2, 60, "n.", 0, true);
  w.Add("learnt.", 2, 60, "n.");
  // Root hints are flagged and get no reverse records.
  w.dir.Write("named.root", ". 3600000 NS a.root.\na.root. 3600000 A 198.41.0.4\n");
  w.dir.Write("named.perm",
              "; Korvane Permanent Records\n"
              "example.com. 3600 SOA ns.example.com. hostmaster.example.com. 1 2 3 4 5\n"
              "office. 600 DHCP 192.168.0.100 192.168.0.200 255.255.255.0 0.0.0.0 \n");
  w.dir.Write("perm.dat", "NS: never = read.example\n");
  w.dir.Write("hosts", "10.0.0.5 server\n");
  w.options.HOSTS = w.dir.File("hosts");
  modDNS::LoadPerm(w.ctx);
  EXPECT_EQ(w.log.lines, (Lines{"Loading root DNS server records...", "named.root: 2 records",
                                "Loading permanent records...", "named.perm: 1 record, 1 DHCP pool",
                                "Loading hosts file '" + w.dir.File("hosts") + "'...",
                                w.dir.File("hosts") + ": 1 host"}));
  EXPECT_EQ(w.Dump(), (Lines{"learnt. 2 60 n. 0", ". 2 3600000 a.root. 0 P H", "a.root. 1 3600000 198.41.0.4 0 P H",
                             "example.com. 6 3600 ns.example.com. hostmaster.example.com. 1 2 3 4 5 0 P",
                             "server. 1 3600 10.0.0.5 -1 P", "5.0.0.10.in-addr.arpa. 12 3600 server. -1 P"}));
  EXPECT_EQ(w.DhcpDump(), Lines{"192.168.0.5 192.168.0.100 192.168.0.200 255.255.255.0 0.0.0.0 600 office."});
  ASSERT_EQ(w.records.PermanentZoneRecords().size(), 2u);
  EXPECT_TRUE(w.errors.errors.empty());
}

TEST(LoadPerm, WithoutRecordFileImportsPermDat) {
  StoreWorld w;
  w.dir.Write("perm.dat", "NS: example.com = ns.example.com\n");
  modDNS::LoadPerm(w.ctx);
  EXPECT_EQ(w.Dump(), Lines{"example.com. 2 86400 ns.example.com. 0 P"});
  EXPECT_EQ(w.log.lines, (Lines{"Loading root DNS server records...",
                                "Root server file " + w.dir.File("named.root") +
                                    " could not be read: No such file or directory.",
                                "Loading permanent records...",
                                "named.perm: cannot be read (No such file or directory)", "perm.dat: 1 record"}));
}

TEST(LoadPerm, WithNoFilesAtAllReportsTheMissingPermDat) {
  StoreWorld w;
  modDNS::LoadPerm(w.ctx);
  EXPECT_TRUE(w.records.empty());
  ASSERT_EQ(w.Errors(), Lines{"modDNS LoadPermOld 53"});
  EXPECT_EQ(w.errors.errors[0].description, "File not found");
}

// --- WritePerm -------------------------------------------------------------

std::vector<clPermRec> EditorEntries() {
  const std::string ns1 = "ns1.example.com.", admin = "admin.example.com.";
  return {
      {6, "example.com", "", StoreWorld::Soa(ns1, admin, {1, 10800, 3600, 604800, 86400}), 86400, 1},
      {6, "quiet.example.com", "", StoreWorld::Soa(ns1, admin, {1, 2, 3, 4, 5}), 86400, 0},
      {1, "example.com", "host", Bytes({192, 168, 0, 2}), 3600, 0},
      {2, "example.com", "", ns1, 3600, 0},
      {5, "example.com", "www", "host.example.com", 3600, 0},
      {15, "example.com", "", "mail.example.com.", 3600, 10},
      {99, "Office.Example.com", "",
       Bytes({192, 168, 0, 100, 192, 168, 0, 200, 255, 255, 255, 0, 192, 168, 0, 1, 192, 168, 0, 5}), 86400, 0},
      {2, "", "", "a.root-servers.net.", 0, 0},
  };
}

TEST(WritePerm, WritesTheExactLayoutThatLoadsBackAsTheSameRecords) {
  StoreWorld w;
  w.localIPs = {"192.168.0.5"};
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
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.ctx.PathOf("named.perm"), true, false));
  EXPECT_EQ(w.Dump(),
            (Lines{"example.com. 6 86400 ns1.example.com. admin.example.com. 1 10800 3600 604800 86400 0 P",
                   "2.0.168.192.in-addr.arpa. 12 3600 host.example.com. -1 P",
                   "host.example.com. 1 3600 192.168.0.2 0 P", "example.com. 2 3600 ns1.example.com. 0 P",
                   "www.example.com. 5 3600 host.example.com. 0 P", "example.com. 15 3600 mail.example.com. 10 P",
                   ". 2 0 a.root-servers.net. 0 P"}));
  EXPECT_EQ(w.DhcpDump(),
            Lines{"192.168.0.5 192.168.0.100 192.168.0.200 255.255.255.0 192.168.0.1 86400 office.example.com."});
}

TEST(WritePerm, UnwritableFolderIsReported) {
  StoreWorld w;
  w.ctx.folder = w.dir.File("no-such-folder");
  EXPECT_FALSE(modDNS::WritePerm(w.ctx, EditorEntries()));
  EXPECT_EQ(w.Errors(), Lines{"modDNS WritePerm 76"});
}

}  // namespace
