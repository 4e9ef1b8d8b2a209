#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "world.h"

using namespace korvane;

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
  EXPECT_EQ(w.log.lines, (Lines{"Loading hosts file '" + w.dir.File("Hosts") + "'...",
                                w.dir.File("Hosts") + ":3: address 10.0.0.6 without a name, line skipped",
                                w.dir.File("Hosts") + ": 2 hosts, 1 line skipped"}));
  EXPECT_EQ(w.Dump(), (Lines{"srv. 5 1200 server. -1 P", "files. 5 1200 server. -1 P",
                             "server. 1 1200 10.0.0.5 -1 P", "5.0.0.10.in-addr.arpa. 12 1200 server. -1 P",
                             "printer. 1 1200 10.0.0.7 -1 P", "7.0.0.10.in-addr.arpa. 12 1200 printer. -1 P"}));
  EXPECT_EQ(w.records.PermanentZoneRecords().size(), 0u);
}

TEST(LoadHosts, MissingFileIsLoggedAndNoPathMeansNoWork) {
  StoreWorld w;
  modDNS::LoadHosts(w.ctx);
  EXPECT_TRUE(w.log.lines.empty());
  w.options.HOSTS = w.dir.File("nothing-here");
  modDNS::LoadHosts(w.ctx);
  EXPECT_EQ(w.log.lines, (Lines{"Loading hosts file '" + w.dir.File("nothing-here") + "'...",
                                "-> File not found!"}));
  EXPECT_TRUE(w.records.empty());
  EXPECT_TRUE(w.errors.errors.empty());
}

TEST(LoadPermOld, ImportsTheOldFormat) {
  struct Case {
    const char* title;
    std::string server, text;
    Lines records, log;
  } cases[] = {
      {"address with TTL", "ns.example.com", "A: host = 10.0.0.1 TTL=600\n",
       {"host. 1 600 10.0.0.1 0 P", "1.0.0.10.in-addr.arpa. 12 600 host. -1 P"},
       {"-> Cached A-record: host. = 10.0.0.1", "perm.dat: 1 record"}},
      {"TTL is rounded half to even", "ns.example.com", "ns : a = b TTL=600.5\nNS: c = d TTL=601.5\n",
       {"a. 2 600 b. 0 P", "c. 2 602 d. 0 P"}, {"perm.dat: 2 records"}},
      {"MX preference is never read", "ns.example.com", "MX: example.com = mail.example.com Pref=10\n",
       {"example.com. 15 86400 mail.example.com. 0 P"}, {"perm.dat: 1 record"}},
      {"SOA built from the server name", "ns.example.com", "SOA: example.com = anything\n",
       {"example.com. 6 86400 ns.example.com. mailbox.ns.example.com. 0 0 0 0 3600 0 P"}, {"perm.dat: 1 record"}},
      {"SOA of a server name with its dot keeps one dot", "ns.example.com.", "SOA: example.com = x\n",
       {"example.com. 6 86400 ns.example.com. mailbox.ns.example.com. 0 0 0 0 3600 0 P"}, {"perm.dat: 1 record"}},
      {"comments, tabs and case", "ns.example.com",
       "# header\n\tcname:\tWWW.Example.com =\thost.example.com.  # alias\n",
       {"www.example.com. 5 86400 host.example.com. 0 P"}, {"perm.dat: 1 record"}},
      {"lines that do not fit are skipped and said", "ns.example.com",
       "no colon here\nA:\nA: host = 0.0.0.0\nNS: x =\nNS: =\nTXT: a = b\n"
       "A: ... = 10.0.0.2\nPTR: 9.0.0.10.in-addr.arpa = host\nA: h = 10.0.0.300\n",
       {"9.0.0.10.in-addr.arpa. 12 86400 host. 0 P", "h. 1 86400 10.0.0.255 0 P",
        "255.0.0.10.in-addr.arpa. 12 86400 h. -1 P"},
       {"perm.dat:1: no ':', line skipped", "perm.dat:2: nothing after ':', line skipped",
        "perm.dat:3: bad address 0.0.0.0, line skipped", "perm.dat:4: no value, line skipped",
        "perm.dat:5: no name, line skipped", "perm.dat:6: unknown type TXT, line skipped",
        "perm.dat:7: no name, line skipped", "-> Cached A-record: h. = 10.0.0.255",
        "perm.dat:9: 10.0.0.300 is not an IPv4 address, read as 10.0.0.255",
        "perm.dat: 2 records, 7 lines skipped, 1 line cut"}}};
  for (const Case& c : cases) {
    StoreWorld w;
    w.options.NAME = c.server;
    w.dir.Write("perm.dat", c.text);
    modDNS::LoadPermOld(w.ctx);
    EXPECT_EQ(w.Dump(), c.records) << c.title;
    EXPECT_EQ(w.log.lines, c.log) << c.title;
    EXPECT_TRUE(w.errors.errors.empty()) << c.title;
  }
}

}  // namespace
