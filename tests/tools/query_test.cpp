#include "tools/query.h"

#include <gtest/gtest.h>

#include <string>

#include "support/dns_bytes.h"
#include "wire/dns_message.h"

using namespace korvane;
using namespace modQuery;

namespace {

TEST(QueryTypes, EntriesInOrderWithTheirLabels) {
  std::string shown;
  for (const QueryType& t : QueryTypes())
    shown += std::string(t.Entry) + " " + std::to_string(t.Type) + " " + t.Description + " / " +
             t.NameLabel + "\n";
  EXPECT_EQ(shown,
            "<all> 255 All types / Domain Name:\n"
            "A 1 Host Address ( Name to IP-Address ) / Domain Name:\n"
            "MX 15 E-Mail Server / Domain Name:\n"
            "PTR 12 Pointer ( IP-Address to Name ) / IP Address:\n"
            "CNAME 5 Canonical NAME ( Alias ) / Domain Name:\n"
            "NS 2 Authoritative DNS Server / Domain Name:\n"
            "SOA 6 Start of Authority / Domain Name:\n");
}

TEST(CheckQuery, WhatIsAskedAndWhatIsRefused) {
  const std::string label63(63, 'a'), label64(64, 'a');
  std::string long256;  // 4 labels of 63: 1 + 4 * 64 = 257 bytes in wire form
  for (int i = 0; i < 4; ++i) long256 += label63 + ".";
  const std::string long255 = long256.substr(2);  // 255 bytes
  const std::string blanks = "A name cannot hold blanks.";
  const std::string badServer = "The server must be an IP address such as 127.0.0.1.";
  const std::string badPtr = "Enter an IP address such as 192.168.0.1 for a PTR look-up.";
  struct Case {
    std::string name;
    int type;
    std::string server;
    std::string asked;  // question sent, or "" when nothing is sent
    std::string message;
    std::string serverUsed = "127.0.0.1";
  } cases[] = {
      {"www.office.example", 1, "127.0.0.1", "www.office.example.", ""},
      {"  www.office.example.  ", 15, " 127.0.0.1 ", "www.office.example.", ""},
      {"WWW.Office.Example", 1, "127.0.0.1", "WWW.Office.Example.", ""},
      {".", 2, "127.0.0.1", ".", ""},
      {"192.0.2.10", 12, "127.0.0.1", "10.2.0.192.in-addr.arpa.", ""},
      {"10.2.0.192.IN-ADDR.ARPA", 12, "127.0.0.1", "10.2.0.192.IN-ADDR.ARPA.", ""},
      {"www.office.example", 1, "192.168.000.001", "www.office.example.", "", "192.168.0.1"},
      {label63 + ".example", 1, "127.0.0.1", label63 + ".example.", ""},
      {long255, 1, "127.0.0.1", long255, ""},
      // Nothing to do, nothing said.
      {"", 1, "127.0.0.1", "", ""},
      {"   ", 1, "garbage", "", ""},
      // Refused with a message.
      {"www office.example", 1, "127.0.0.1", "", blanks},
      {"www.\toffice", 1, "127.0.0.1", "", blanks},
      {long256, 1, "127.0.0.1", "", "The name is longer than 255 bytes."},
      {label64 + ".example", 1, "127.0.0.1", "", "A label of the name is longer than 63 characters."},
      {"www..example", 1, "127.0.0.1", "", "The name has an empty label (a dot at its start or two dots in a row)."},
      {".example", 1, "127.0.0.1", "", "The name has an empty label (a dot at its start or two dots in a row)."},
      {"1.2.3", 12, "127.0.0.1", "", badPtr},
      {"1.2.3.4.5", 12, "127.0.0.1", "", badPtr},
      {"1.2.3.256", 12, "127.0.0.1", "", badPtr},
      {"host.example", 12, "127.0.0.1", "", badPtr},
      {"www.office.example", 1, "garbage", "", badServer},
      {"www.office.example", 1, "", "", badServer},
      {"www.office.example", 1, "1.2.3", "", badServer},
      {"www.office.example", 1, "0.0.0.0", "", badServer},
      {"www.office.example", 1, "10.0.0.1:53", "", badServer},
      {"www.office.example", 1, "-1.2.3.4", "", badServer},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name + " / " + c.server);
    const CheckedQuery q = CheckQuery(c.name, c.type, c.server);
    EXPECT_EQ(q.Ask, !c.asked.empty());
    EXPECT_EQ(q.Message, c.message);
    if (q.Ask) {
      EXPECT_EQ(q.Question, c.asked);
      EXPECT_EQ(q.Server, c.serverUsed);
    }
  }
}

TEST(NextQueryId, CountsUpAndWrapsPast65535) {
  EXPECT_EQ(NextQueryId(0), 1);
  EXPECT_EQ(NextQueryId(41), 42);
  EXPECT_EQ(NextQueryId(65534), 65535);
  EXPECT_EQ(NextQueryId(65535), 1);
}

TEST(BuildQuery, IdRecursionDesiredOneQuestionOfClassIN) {
  EXPECT_EQ(BuildQuery(0x1234, "www.office.example.", 15),
            U16(0x1234) + Bytes({1, 0}) + U16(1) + U16(0) + U16(0) + U16(0) +
                Wire("www.office.example.") + Bytes({0, 15, 0, 1}));
  // What the server's decoder reads back.
  const modDNS::DnsMessage m = modDNS::DecodeMessage(BuildQuery(65535, ".", 255));
  EXPECT_EQ(m.Header.Id, 65535);
  EXPECT_TRUE(m.Header.RD);
  EXPECT_FALSE(m.Header.QR);
  ASSERT_EQ(m.Questions.size(), 1u);
  EXPECT_EQ(m.Questions[0].Name, ".");
  EXPECT_EQ(m.Questions[0].Type, 255);
  EXPECT_EQ(m.End, modDNS::DecodeEnd::kWhole);
}

TEST(IsThisServer, LoopbackBindAddressAndOwnAddresses) {
  const std::vector<std::string> own = {"192.168.1.5", "10.0.0.2"};
  EXPECT_TRUE(IsThisServer("127.0.0.1", "", own));
  EXPECT_TRUE(IsThisServer("10.0.0.2", "", own));
  EXPECT_TRUE(IsThisServer("172.16.0.1", "172.16.000.001", own));
  EXPECT_FALSE(IsThisServer("192.0.2.1", "", own));
  EXPECT_FALSE(IsThisServer("192.0.2.1", "172.16.0.1", own));
}

TEST(QueryTexts, TimeoutAndRoundTrip) {
  EXPECT_EQ(TimeoutText("192.0.2.1"), "No answer from 192.0.2.1 within 5 seconds.");
  EXPECT_EQ(RoundTripText("127.0.0.1", 53, 3), "Answered by 127.0.0.1 in 3 ms.");
  EXPECT_EQ(RoundTripText("127.0.0.1", 5353, 12), "Answered by 127.0.0.1 port 5353 in 12 ms.");
}

}  // namespace
