#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "world.h"

namespace {

using Lines = std::vector<std::string>;

TEST(LoadHosts, AliasesFirstThenAddressAndReverse) {
  StoreWorld w;
  w.options.HOSTSTTL = 1200;
  w.options.HOSTS = w.dir.File("Hosts");
  w.dir.Write("Hosts",
              "# the office\n"
              "10.0.0.5 server srv\tfiles # office\r\n"
              "10.0.0.6\n"
              "   \n"
              "\t10.0.0.7\t\tPrinter\n");
  modDNS::LoadHosts(w.ctx);
  EXPECT_EQ(w.log.lines, Lines{"Loading hosts file '" + w.dir.File("Hosts") + "'..."});
  EXPECT_EQ(w.Dump(), (Lines{"srv. 5 1200 server. -1 P", "files. 5 1200 server. -1 P",
                             "server. 1 1200 10.0.0.5 -1 P", "5.0.0.10.in-addr.arpa. 12 1200 server. -1 P",
                             "printer. 1 1200 10.0.0.7 -1 P", "7.0.0.10.in-addr.arpa. 12 1200 printer. -1 P"}));
  EXPECT_EQ(w.records.PermanentZoneRecords().size(), 0u);
}

TEST(LoadHosts, MissingFileIsLogged) {
  StoreWorld w;
  w.options.HOSTS = w.dir.File("nothing-here");
  modDNS::LoadHosts(w.ctx);
  EXPECT_EQ(w.log.lines, (Lines{"Loading hosts file '" + w.dir.File("nothing-here") + "'...",
                                "-> File not found!"}));
  EXPECT_TRUE(w.records.empty());
  EXPECT_TRUE(w.errors.errors.empty());
}

TEST(LoadHosts, NoPathNoWork) {
  StoreWorld w;
  modDNS::LoadHosts(w.ctx);
  EXPECT_TRUE(w.log.lines.empty());
}

struct PermDatCase {
  std::string title;
  std::string text;
  Lines records;
  Lines log;
};

class PermDatTest : public ::testing::TestWithParam<PermDatCase> {};

TEST_P(PermDatTest, Imports) {
  StoreWorld w;
  w.options.NAME = "ns.example.com";
  w.dir.Write("perm.dat", GetParam().text);
  modDNS::LoadPermOld(w.ctx);
  EXPECT_EQ(w.Dump(), GetParam().records);
  EXPECT_EQ(w.log.lines, GetParam().log);
  EXPECT_TRUE(w.errors.errors.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Lines, PermDatTest,
    ::testing::Values(
        PermDatCase{"AddressWithTtl",
                    "A: host = 10.0.0.1 TTL=600\n",
                    {"host. 1 600 10.0.0.1 0 P", "1.0.0.10.in-addr.arpa. 12 600 host. -1 P"},
                    {"-> Cached A-record: host. = 10.0.0.1"}},
        PermDatCase{"TtlIsRoundedHalfToEven", "ns : a = b TTL=600.5\nNS: c = d TTL=601.5\n",
                    {"a. 2 600 b. 0 P", "c. 2 602 d. 0 P"}, {}},
        PermDatCase{"MxPreferenceIsNeverRead", "MX: example.com = mail.example.com Pref=10\n",
                    {"example.com. 15 86400 mail.example.com. 0 P"}, {}},
        PermDatCase{"SoaBuiltFromTheServerName", "SOA: example.com = anything\n",
                    {"example.com. 6 86400 ns.example.com. mailbox.ns.example.com. 0 0 0 0 3600 0 P"}, {}},
        PermDatCase{"CommentsTabsAndCase",
                    "# header\n\tcname:\tWWW.Example.com =\thost.example.com.  # alias\n",
                    {"www.example.com. 5 86400 host.example.com. 0 P"}, {}},
        PermDatCase{"LinesThatDoNotFitAreSkipped",
                    "no colon here\nA:\nA: host = 0.0.0.0\nNS: x =\nNS: =\nTXT: a = b\n"
                    "A: ... = 10.0.0.2\nPTR: 9.0.0.10.in-addr.arpa = host\n",
                    {"9.0.0.10.in-addr.arpa. 12 86400 host. 0 P"}, {}}),
    [](const auto& info) { return info.param.title; });

TEST(LoadPermOld, SoaOfANameWithItsDotKeepsOneDot) {
  StoreWorld w;
  w.options.NAME = "ns.example.com.";
  w.dir.Write("perm.dat", "SOA: example.com = x\n");
  modDNS::LoadPermOld(w.ctx);
  EXPECT_EQ(w.Dump(), Lines{"example.com. 6 86400 ns.example.com. mailbox.ns.example.com. 0 0 0 0 3600 0 P"});
}

TEST(LoadPermOld, MissingFileIsReported) {
  StoreWorld w;
  modDNS::LoadPermOld(w.ctx);
  ASSERT_EQ(w.errors.errors.size(), 1u);
  EXPECT_EQ(w.errors.errors[0].tag, "modDNS LoadPermOld");
  EXPECT_EQ(w.errors.errors[0].number, ErrorNumber::kFileNotFound);
  EXPECT_EQ(w.errors.errors[0].description, "File not found");
}

}  // namespace
