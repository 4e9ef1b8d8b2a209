// The lease file and the hexadecimal identities.
#include <gtest/gtest.h>

#include <cstdio>

#include "dhcp_world.h"

using namespace korvane;

namespace {

TEST(DhcpHex, ConvertsBothWays) {
  EXPECT_EQ(modDHCP::HWToHex(Bytes({1, 0, 0xA0, 0xC9})), "0100A0C9");
  EXPECT_EQ(modDHCP::HWToHex(""), "");
  EXPECT_EQ(modDHCP::HexToHW("0100A0C9"), Bytes({1, 0, 0xA0, 0xC9}));
  EXPECT_EQ(modDHCP::HexToHW("ff0a"), Bytes({255, 10}));
  EXPECT_EQ(modDHCP::HexToHW("0G1-7F"), Bytes({0, 0, 0x7F}));  // not hexadecimal: 0
  EXPECT_EQ(modDHCP::HexToHW("ABC"), Bytes({0xAB}));            // odd last character ignored
}

TEST(DhcpLeaseFile, SavesEveryLeaseWithCrLfAndReadsThemBack) {
  DhcpWorld w;
  Client named = Named("pc1");
  named.clientID = Bytes({1, 0, 0xA0, 0xC9});
  ASSERT_EQ(w.Lease(named), "10.0.0.10");
  Client nameless;
  nameless.mac[5] = 0x66;
  ASSERT_EQ(w.Lease(nameless), "10.0.0.11");
  std::string expires = FormatDateTime(w.clock.Now() + 86400);
  ASSERT_TRUE(w.server.Save());
  EXPECT_EQ(w.dir.Read("dhcp.dat"), "; Korvane - DHCP Leases\r\n"
                                    "pc1.example.com. 10.0.0.10 0100A0C9 " + expires + "\r\n"
                                    " 10.0.0.11 01001122334466 " + expires + "\r\n");
  // The nameless line begins with its blank: it keeps its lease over a restart.
  EXPECT_EQ(w.server.Load(), 0);
  EXPECT_EQ(w.Table(), (Lines{"pc1.example.com. 10.0.0.10 86400", " 10.0.0.11 86400"}));
  EXPECT_EQ(w.Ids(), (Lines{"0100A0C9", "01001122334466"}));
  EXPECT_EQ(w.log.lines.back(), "dhcp.dat: 2 leases");
  EXPECT_TRUE(w.errors.errors.empty());
}

// A restart while two clients without host names hold addresses: a third
// client is offered neither, and each owner keeps its own.
TEST(DhcpLeaseFile, NamelessLeasesSurviveARestart) {
  DhcpWorld w;
  Client first, second, third;
  first.mac[5] = 0x61;
  second.mac[5] = 0x62;
  third.mac[5] = 0x63;
  ASSERT_EQ(w.Lease(first), "10.0.0.10");
  ASSERT_EQ(w.Lease(second), "10.0.0.11");
  ASSERT_TRUE(w.server.Save());

  RecordingSender sender;
  DhcpServer restarted(w.ifs, w.options, w.records, w.clock, w.log, w.errors, w.dir.path());
  restarted.SetSocket(1, &sender, "10.0.0.1");
  restarted.Load();
  ASSERT_EQ(restarted.Leases().size(), 2u);
  auto offerTo = [&](const Client& c) {
    restarted.DataArrival(1, Message(modDHCP::kDiscover, c), "0.0.0.0");
    return sender.sent.empty() ? std::string() : YourAddress(sender.sent.back().bytes);
  };
  EXPECT_EQ(offerTo(third), "10.0.0.12");
  EXPECT_EQ(offerTo(first), "10.0.0.10");
  EXPECT_EQ(offerTo(second), "10.0.0.11");
  EXPECT_TRUE(w.errors.errors.empty());
}

TEST(DhcpLeaseFile, ReadingRules) {
  DhcpWorld w;
  std::string when = FormatDateTime(w.clock.Now() + 600);
  w.dir.Write("dhcp.dat",
              "; Korvane - DHCP Leases\n"
              "\n"
              "   ; only a comment\n"
              "PC1.Example.COM 10.0.0.010 AB " + when + " ; trailing comment\n"
              "pc2   10.0.0.12    CD    " + when + "\r\n"
              "pc3 0.0.0.0 EF " + when + "\n"
              "pc4 10.0.0.14 01 not-a-date\n"
              "pc5 10.0.0.15\n"
              "pc6\n"
              "  10.0.0.16  " + when + "\n"
              // no identity: the date becomes the third field, the time the rest
              "pc7.example.com. 10.0.0.17  " + when + "\n"
              "pc8 10.0.0.18 XYZ " + when);
  int refreshes = w.refreshes;
  w.log.lines.clear();
  EXPECT_EQ(w.server.Load(), 7);
  EXPECT_EQ(w.refreshes, refreshes + 1);
  EXPECT_EQ(w.Table(),
            (Lines{"pc1.example.com. 10.0.0.10 600", "pc2. 10.0.0.12 600", "pc3.  600", "pc8. 10.0.0.18 600"}));
  EXPECT_EQ(w.Ids(), (Lines{"AB", "CD", "EF", "00"}));
  EXPECT_EQ(w.log.lines,
            (Lines{"dhcp.dat:6: bad address 0.0.0.0, lease kept without one",
                   "dhcp.dat:7: not-a-date is not a date-time, line skipped",
                   "dhcp.dat:8: too few fields, line skipped", "dhcp.dat:9: too few fields, line skipped",
                   "dhcp.dat:10: " + when.substr(11) + " is not a date-time, line skipped",
                   "dhcp.dat:11: " + when.substr(11) + " is not a date-time, line skipped",
                   "dhcp.dat:12: client identity XYZ is not hexadecimal",
                   "dhcp.dat: 4 leases, 5 lines skipped, 2 lines cut"}));
}

// A loaded lease keeps its owner: the client 00:11:22:33:44:55 without
// option 61 renews the first one. A missing file then empties the table.
TEST(DhcpLeaseFile, LoadedLeasesTakePartInAssignmentUntilTheFileGoes) {
  DhcpWorld w;
  std::string later = FormatDateTime(w.clock.Now() + 3600);
  w.dir.Write("dhcp.dat", "pc1.example.com. 10.0.0.10 01001122334455 " + later + "\r\n"
                          "pc2.example.com. 10.0.0.11 0102 " + later + "\r\n");
  w.server.Load();
  Client owner = Named("pc1");
  owner.ciaddr = "10.0.0.10";
  std::optional<std::string> reply = w.Exchange(modDHCP::kRequest, owner, "10.0.0.10");
  ASSERT_TRUE(reply);
  EXPECT_EQ(ReplyType(*reply), modDHCP::kAck);
  EXPECT_EQ(w.Table(), (Lines{"pc2.example.com. 10.0.0.11 3600", "pc1.example.com. 10.0.0.10 86400"}));
  EXPECT_EQ(w.changes, 1);
  std::remove(w.dir.File("dhcp.dat").c_str());
  w.server.Load();
  EXPECT_TRUE(w.server.Leases().empty());
  EXPECT_TRUE(w.errors.errors.empty());
}

TEST(DhcpLeaseFile, UnwritableFolderIsReported) {
  DhcpWorld w;
  DhcpServer lost(w.ifs, w.options, w.records, w.clock, w.log, w.errors, w.dir.File("no/such"));
  EXPECT_FALSE(lost.Save());
  ASSERT_EQ(w.errors.errors.size(), 1u);
  EXPECT_EQ(w.errors.errors[0].tag, "modDHCP Save");
}

}  // namespace
