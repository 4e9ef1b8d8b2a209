// What the loaders say about the lines they skip or cut, file kind by file
// kind, and the reload that keeps the records in force.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "world.h"

using namespace korvane;

namespace {

using Lines = std::vector<std::string>;

struct WarningCase {
  const char* title;
  std::string text;
  Lines log;  // every line logged, the summary last
};

TEST(LoadWarnings, RecordFile) {
  const WarningCase cases[] = {
      {"a clean file says how much it held", "a. 60 NS n.\nb. A 10.0.0.1\n", {"named.perm: 2 records"}},
      {"unknown type", "a. 60 AA n.\na. 60 NS n.\n",
       {"named.perm:1: unknown type AA, line skipped", "named.perm: 1 record, 1 line skipped"}},
      {"a '(' never closed loses the rest of the file", "a. NS n.\nb. SOA p. m. (\n 1 2 3\n 4 5\nc. NS n.\n",
       {"named.perm:2: '(' not closed, 4 lines swallowed", "named.perm: 1 record, 4 lines skipped"}},
      {"bad addresses", "h A 192.0.2.300\nh A 0.0.0.0\nh A abc\n",
       {"named.perm:1: bad address 192.0.2.300, line skipped", "named.perm:2: bad address 0.0.0.0, line skipped",
        "named.perm:3: bad address abc, line skipped", "named.perm: 0 records, 3 lines skipped"}},
      {"an address read otherwise than written", "h A 10.1\n",
       {"named.perm:1: 10.1 is not an IPv4 address, read as 10.1.0.0", "named.perm: 1 record, 1 line cut"}},
      {"a TTL that is not a number is read as the type", "a. 1h A 10.0.0.1\nb. 0100 NS n.\n",
       {"named.perm:1: TTL 1h is not a plain number (read as the type), line skipped",
        "named.perm:2: TTL 0100 is not a plain number (read as the type), line skipped",
        "named.perm: 0 records, 2 lines skipped"}},
      {"garbage, @, no owner, chaos class, nothing after the type",
       " NS n.\n!!!\n@ 60 NS n.\n\n; comment only\na. CH NS n.\na. 60 NS\n",
       {"named.perm:1: no owner before this line, line skipped", "named.perm:2: no type, line skipped",
        "named.perm:3: owner @ is not supported, line skipped", "named.perm:6: class CH, line skipped",
        "named.perm:7: nothing after NS, line skipped", "named.perm: 0 records, 5 lines skipped"}},
      {"SOA short of its numbers", "a. SOA p. m. 1 2 3 4\n",
       {"named.perm:1: SOA short of its five numbers, line skipped", "named.perm: 0 records, 1 line skipped"}},
      {"text after the data", "h A 10.0.0.1 10.0.0.2\nm MX 10 mail. now\n",
       {"named.perm:1: text after the data ignored: 10.0.0.2", "named.perm:2: text after the data ignored: now",
        "named.perm: 2 records, 2 lines cut"}},
      {"a DHCP pool on no network of this machine",
       "p. DHCP 172.16.0.10 172.16.0.20 255.255.255.0 0.0.0.0\nq. DHCP 10.0.0.50 10.0.0.60 255.0.0.0 0.0.0.0\n",
       {"named.perm:1: DHCP pool 172.16.0.10 - 172.16.0.20 is on no local interface, pool skipped",
        "named.perm: 0 records, 1 DHCP pool, 1 line skipped"}}};
  for (const WarningCase& c : cases) {
    StoreWorld w;
    w.localIPs = {"10.0.0.1"};
    w.dir.Write("named.perm", c.text);
    ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("named.perm"), true, false)) << c.title;
    EXPECT_EQ(w.log.lines, c.log) << c.title;
    EXPECT_EQ(w.ctx.warnings, static_cast<int>(c.log.size()) - 1) << c.title;
  }
}

TEST(LoadWarnings, CacheFileIsQuietAboutWhatItsWriterLeavesOut) {
  const WarningCase cases[] = {
      {"expired entries and negative entries without data go quietly",
       "; Korvane - Cache\na. 10 NS n.\nb. 100 NE \nc. 100 REMX\nd. 100 NS n.\n", {"named.cache: 1 record"}},
      {"what its writer never writes is said",
       "l. 600 DHCP 10.0.0.50 10.0.0.60 255.0.0.0 0.0.0.0\nx. 100 AA y.\ny. 100 NS\n",
       {"named.cache:1: DHCP pool in learnt data, line skipped", "named.cache:2: unknown type AA, line skipped",
        "named.cache:3: nothing after NS, line skipped", "named.cache: 0 records, 3 lines skipped"}}};
  for (const WarningCase& c : cases) {
    StoreWorld w;
    w.localIPs = {"10.0.0.1"};
    w.dir.Write("named.cache", c.text);
    w.dir.SetModified("named.cache", w.clock.Now() - 20);
    ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("named.cache"), false, false)) << c.title;
    EXPECT_EQ(w.log.lines, c.log) << c.title;
  }
}

TEST(LoadWarnings, RootHintsPassOverIPv6AddressesQuietly) {
  StoreWorld w;
  w.dir.Write("named.root", ".  3600000 NS a.root.test.\na.root.test. 3600000 A 198.41.0.4\n"
                            "a.root.test. 3600000 AAAA 2001:503:ba3e::2:30\na.root.test. 60 AA n.\n");
  ASSERT_TRUE(modDNS::LoadFile(w.ctx, w.dir.File("named.root"), true, true));
  EXPECT_EQ(w.log.lines,
            (Lines{"named.root:4: unknown type AA, line skipped", "named.root: 2 records, 1 line skipped"}));
}

TEST(LoadWarnings, HostsFile) {
  const WarningCase cases[] = {
      {"comments and blank lines say nothing", "# blocklist\n\n   \n0.0.0.0 ads.example # tracker\n",
       {"hosts: 1 host"}},
      {"an address alone", "10.0.0.6\n10.0.0.7 printer\n",
       {"hosts:1: address 10.0.0.6 without a name, line skipped", "hosts: 1 host, 1 line skipped"}},
      // Addresses are not checked by the reader: the line stays, the operator is told.
      {"what is not an address is read as one", "192.0.2.300 h\n::1 localhost ip6-localhost\n",
       {"hosts:1: 192.0.2.300 is not an IPv4 address, read as 192.0.2.255",
        "hosts:2: ::1 is not an IPv4 address, read as 0.0.0.0", "hosts: 2 hosts, 2 lines cut"}}};
  for (const WarningCase& c : cases) {
    StoreWorld w;
    w.options.HOSTS = "hosts";
    w.dir.Write("hosts", c.text);
    w.options.HOSTS = w.dir.File("hosts");
    modDNS::LoadHosts(w.ctx);
    ASSERT_FALSE(w.log.lines.empty());
    Lines log(w.log.lines.begin() + 1, w.log.lines.end());  // after "Loading hosts file ..."
    for (std::string& line : log)
      if (line.starts_with(w.options.HOSTS)) line = "hosts" + line.substr(w.options.HOSTS.size());
    EXPECT_EQ(log, c.log) << c.title;
  }
}

// A reload that cannot use named.perm changes nothing and says why; the
// first load of all has no records in force and takes what it can.
TEST(LoadPerm, AReloadWithABrokenRecordFileKeepsTheRecordsInForce) {
  StoreWorld w;
  w.localIPs = {"10.0.0.1"};
  w.dir.Write("named.perm",
              "www.example. 60 A 10.0.0.7\npool. 600 DHCP 10.0.0.50 10.0.0.60 255.0.0.0 0.0.0.0\n");
  w.dir.Write("hosts", "10.0.0.8 printer\n");
  w.options.HOSTS = w.dir.File("hosts");
  ASSERT_FALSE(modDNS::LoadPerm(w.ctx).kept);
  w.Add("learnt.", 2, 600, "n.");
  const Lines records = w.Dump();
  const Lines pools = w.DhcpDump();
  ASSERT_EQ(records.size(), 5u);
  ASSERT_EQ(pools.size(), 1u);

  const std::pair<const char*, std::string> broken[] = {
      {"www.example. 60 A 10.0.0.9\nexample. SOA a. b. (\n 1 2\n",
       "Reload kept the records in force: named.perm has a '(' that is not closed."},
      {"", "Reload kept the records in force: named.perm could not be read (No such file or directory)."}};
  for (const auto& [text, said] : broken) {
    if (*text)
      w.dir.Write("named.perm", text);
    else
      std::remove(w.dir.File("named.perm").c_str());
    w.log.lines.clear();
    const modDNS::LoadResult result = modDNS::LoadPerm(w.ctx);
    EXPECT_TRUE(result.kept);
    EXPECT_EQ(result.permanentRecords, 4u);
    EXPECT_EQ(w.log.lines.back(), said);
    EXPECT_EQ(w.Dump(), records);
    EXPECT_EQ(w.DhcpDump(), pools);
  }

  // Fixed again: read as usual.
  w.dir.Write("named.perm", "www.example. 60 A 10.0.0.9\n");
  EXPECT_FALSE(modDNS::LoadPerm(w.ctx).kept);
  EXPECT_EQ(w.Dump(), (Lines{"learnt. 2 600 n. 0", "9.0.0.10.in-addr.arpa. 12 60 www.example. -1 P",
                             "www.example. 1 60 10.0.0.9 0 P", "printer. 1 3600 10.0.0.8 -1 P",
                             "8.0.0.10.in-addr.arpa. 12 3600 printer. -1 P"}));
  EXPECT_TRUE(w.DhcpDump().empty());
}

TEST(LoadPerm, WithoutRecordsFromTheRecordFileInForceTheFileIsReadAsItIs) {
  StoreWorld w;
  // The first load takes the records before the "(".
  w.dir.Write("named.perm", "a. NS n.\nb. SOA p. m. (\n");
  EXPECT_FALSE(modDNS::LoadPerm(w.ctx).kept);
  EXPECT_EQ(w.Dump(), Lines{"a. 2 86400 n. 0 P"});
  // Records from perm.dat are not kept: the import runs again.
  StoreWorld old;
  old.dir.Write("perm.dat", "NS: a = n\n");
  EXPECT_FALSE(modDNS::LoadPerm(old.ctx).kept);
  old.dir.Write("perm.dat", "NS: b = n\n");
  EXPECT_FALSE(modDNS::LoadPerm(old.ctx).kept);
  EXPECT_EQ(old.Dump(), Lines{"b. 2 86400 n. 0 P"});
}

}  // namespace
