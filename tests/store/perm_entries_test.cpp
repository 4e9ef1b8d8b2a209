#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "world.h"

using namespace korvane;

namespace {

using Lines = std::vector<std::string>;

std::string ExampleRecordFile() {
  std::ifstream in(std::string(KORVANE_SOURCE_DIR) + "/examples/office/named.perm", std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// "type domain|name ttl pref data", data shown as the editor would read it.
std::string View(const clPermRec& e) {
  std::string data;
  if (e.RecType == RecordType::kA) {
    data = modIP::DataToIP(e.Data);
  } else if (e.RecType == RecordType::kDHCP) {
    for (std::size_t i = 0; i < e.Data.size(); i += 4) data += modIP::DataToIP(e.Data.substr(i, 4)) + " ";
  } else if (e.RecType == RecordType::kSOA) {
    data = e.Data.empty() ? "-" : StoreWorld::SoaText(e.Data);
  } else {
    data = e.Data;
  }
  return std::to_string(e.RecType) + " " + e.Domain + "|" + e.Name + " " + std::to_string(e.TTL) + " " +
         std::to_string(e.Pref) + " " + data;
}

const std::string kSubdomains =
    "; domains inside domains, the root, pools and odd lines\n"
    "example.com. 3600 SOA ns1.example.com. h.example.com. ( ; numbers follow\n 7 2 3 4 5 )\n"
    "sub.example.com. 3600 IN SOA ns1.example.com. h.example.com. 1 2 3 4 5\n"
    "www.example.com. 600 A 10.0.0.1\n"
    " 600 A 10.0.0.11\n"
    "a.sub.example.com. 600 A 10.0.0.2\n"
    "wwwexample.com. 600 A 10.0.0.3\n"
    "example.com. MX 10 mail.example.com.\n"
    "example.com. MX 20 mail.example.com.\n"
    "www.example.com. 600 A 10.0.0.1\n"
    ". 3600000 NS a.root-servers.net.\n"
    "1.0.0.10.in-addr.arpa. 600 PTR www.example.com.\n"
    "9.0.0.10.in-addr.arpa. 600 PTR other.example.com.\n"
    "www.sub.example.com. CNAME a.sub.example.com.\n"
    "office.example.com. 86400 DHCP 192.168.0.100 192.168.0.200 255.255.255.0 192.168.0.1 \n"
    "lab.example.com. 600 DHCP 172.16.0.10 172.16.0.20 255.255.255.0 0.0.0.0\n"
    "txt.example.com. 600 TXT hello\n"
    "@ 600 NS ignored.example.com.\n";

TEST(ReadPermEntries, DomainsAndTheLongestDomainOfEachOwner) {
  StoreWorld w;
  w.localIPs = {"192.168.0.5"};
  w.dir.Write("named.perm", kSubdomains);
  const std::optional<std::vector<clPermRec>> entries = modDNS::ReadPermEntries(w.ctx);
  ASSERT_TRUE(entries);
  Lines views;
  for (const clPermRec& e : *entries) views.push_back(View(e));
  EXPECT_EQ(views, (Lines{"6 | 0 0 -",
                          "6 example.com| 3600 1 ns1.example.com. h.example.com. 7 2 3 4 5",
                          "6 sub.example.com| 3600 1 ns1.example.com. h.example.com. 1 2 3 4 5",
                          "1 example.com|www 600 0 10.0.0.1",
                          "1 example.com|www 600 0 10.0.0.11",
                          "1 sub.example.com|a 600 0 10.0.0.2",
                          // The domain is found label by label.
                          "1 |wwwexample.com 600 0 10.0.0.3",
                          // The loader keeps one MX per exchanger: the second adds nothing.
                          "15 example.com| 86400 10 mail.example.com.",
                          "2 | 3600000 0 a.root-servers.net.",
                          "12 |1.0.0.10.in-addr.arpa 600 0 www.example.com.",
                          "12 |9.0.0.10.in-addr.arpa 600 0 other.example.com.",
                          "5 sub.example.com|www 86400 0 a.sub.example.com.",
                          "99 example.com|office 86400 0 192.168.0.100 192.168.0.200 255.255.255.0 "
                          "192.168.0.1 192.168.0.5 ",
                          "99 example.com|lab 600 0 172.16.0.10 172.16.0.20 255.255.255.0 0.0.0.0 "
                          "0.0.0.0 "}));
  EXPECT_TRUE(w.errors.errors.empty());
}

TEST(ReadPermEntries, WrittenBackTheEntriesLoadAsTheSameRecords) {
  const std::pair<const char*, std::string> files[] = {{"example folder", ExampleRecordFile()},
                                                       {"sub-domains", kSubdomains},
                                                       {"root SOA", ". 600 SOA a. b. 1 2 3 4 5\nx. A 10.0.0.4\n"},
                                                       // Numbers from 2^31 up stand negative in the file.
                                                       {"SOA numbers of all 32 bits",
                                                        "a. 600 SOA a. b. -5 2147483647 -2147483648 0 -1\n"}};
  for (const auto& [what, text] : files) {
    SCOPED_TRACE(what);
    ASSERT_FALSE(text.empty());
    StoreWorld original, rewritten;
    original.localIPs = rewritten.localIPs = {"192.168.0.5"};
    original.dir.Write("named.perm", text);
    ASSERT_TRUE(modDNS::LoadFile(original.ctx, original.dir.File("named.perm"), true, false));
    const std::optional<std::vector<clPermRec>> entries = modDNS::ReadPermEntries(original.ctx);
    ASSERT_TRUE(entries);

    ASSERT_TRUE(modDNS::WritePerm(rewritten.ctx, *entries));
    ASSERT_TRUE(modDNS::LoadFile(rewritten.ctx, rewritten.dir.File("named.perm"), true, false));
    EXPECT_EQ(rewritten.Dump(), original.Dump());
    EXPECT_EQ(rewritten.DhcpDump(), original.DhcpDump());
    // Read back again, the rewritten file gives the same entries.
    const std::optional<std::vector<clPermRec>> again = modDNS::ReadPermEntries(rewritten.ctx);
    ASSERT_TRUE(again);
    ASSERT_EQ(again->size(), entries->size());
    for (std::size_t i = 0; i < entries->size(); ++i) EXPECT_EQ(View((*again)[i]), View((*entries)[i]));
  }
}

TEST(ReadPermEntries, NoRecordFileGivesNothing) {
  StoreWorld w;
  EXPECT_FALSE(modDNS::ReadPermEntries(w.ctx));
  EXPECT_TRUE(w.errors.errors.empty());
}

}  // namespace
