// Reading DHCP messages: buffering, header fields, options, dispatch.
#include <gtest/gtest.h>

#include "dhcp_world.h"

using namespace korvane;

namespace {

// Cut anywhere before its end option, a message is kept unread until the
// rest arrives; then it is read once. Neither a wrong magic cookie nor pad
// and unknown options stop the reading.
TEST(DhcpIntake, MessageCutAnywhereWaitsForTheRest) {
  Client c = Named("pc1");
  c.cookie = "XXXX";
  std::string whole = MessageBody(modDHCP::kDiscover, c, std::string("\0\0", 2) + Option(99, "zz")) + '\xff';
  for (std::size_t cut = 1; cut < whole.size(); ++cut) {
    DhcpWorld w;
    w.Receive(whole.substr(0, cut));
    EXPECT_EQ(w.server.DHCPBuffers(1).size(), cut) << cut;
    EXPECT_TRUE(w.log.lines.empty() && w.sender.sent.empty()) << cut;
    w.Receive(whole.substr(cut));
    EXPECT_EQ(w.server.DHCPBuffers(1), "") << cut;
    EXPECT_EQ(w.log.lines, (Lines{"DHCP Discovery from pc1", "Sending DHCP Offer to pc1 for 10.0.0.10"}));
    EXPECT_EQ(w.sender.sent.size(), 1u) << cut;
  }
}

TEST(DhcpIntake, EndlessPaddingIsDroppedOnceTheBufferIsFull) {
  DhcpWorld w;
  w.Receive(MessageBody(modDHCP::kDiscover, Client{}));
  for (int i = 0; i < 70; ++i) w.Receive(std::string(1000, '\0'));
  EXPECT_LT(w.server.DHCPBuffers(1).size(), 1000u);
  w.Receive(Message(modDHCP::kDiscover, Client{}));
  EXPECT_EQ(w.sender.sent.size(), 1u);
}

TEST(DhcpIntake, HostNameIsCutAtNulAndDotAndLowerCased) {
  struct { std::optional<std::string> option; std::string logged, lease; } cases[] = {
      {"PC1.Example.com", "pc1", "pc1.example.com."},
      {std::string("abc\0def.x", 9), "abc", "abc.example.com."},
      {"Solo", "solo", "solo.example.com."},
      {"", "", ""},            // an empty name stays empty, domain or not
      {std::nullopt, "", ""},  // without option 12 the lease has no name at all
      {"a b\r\nv 1;0.x", "abv10", "abv10.example.com."},  // no forged lines or fields
  };
  for (const auto& c : cases) {
    DhcpWorld w;
    Client client;
    client.hostName = c.option;
    EXPECT_EQ(w.Offer(client), "10.0.0.10");
    EXPECT_EQ(w.log.lines.at(0), "DHCP Discovery from " + c.logged);
    EXPECT_EQ(w.Table(), Lines{c.lease + " 10.0.0.10 -86400"});
  }
}

TEST(DhcpIntake, IgnoredMessagesAreDroppedSilentlyAndEmptyTheBuffer) {
  struct { int type, op, socket; } cases[] = {
      {-1, 1, 1},  // no option 53
      {0, 1, 1},
      {2, 1, 1},
      {5, 1, 1},
      {6, 1, 1},
      {8, 1, 1},
      {200, 1, 1},
      {1, 2, 1},  // a reply
      {1, 1, 2},  // socket whose address no interface holds
  };
  for (const auto& c : cases) {
    DhcpWorld w;
    w.server.SetSocket(2, &w.sender, "10.9.9.9");
    std::string m = Message(c.type, Named("pc1"));
    m[0] = static_cast<char>(c.op);
    w.Receive(m, "0.0.0.0", c.socket);
    SCOPED_TRACE(testing::Message() << "type " << c.type << " op " << c.op << " socket " << c.socket);
    EXPECT_EQ(w.server.DHCPBuffers(c.socket), "");
    EXPECT_TRUE(w.log.lines.empty() && w.sender.sent.empty() && w.errors.errors.empty());
    EXPECT_TRUE(w.server.Leases().empty());
  }
}

TEST(DhcpIntake, SocketIndexBeyondTenIsReported) {
  DhcpWorld w;
  w.Receive(Message(modDHCP::kDiscover, Named("pc1")), "0.0.0.0", 11);
  ASSERT_EQ(w.errors.errors.size(), 1u);
  EXPECT_EQ(w.errors.errors[0].tag, "modDHCP Arrival");
}

TEST(DhcpIntake, LongHardwareAddressRunsIntoSnameAndIsTheIdentity) {
  DhcpWorld w;
  Client c;
  c.mac = "ABCDEFGHIJKLMNOPQRST";  // 20 bytes
  std::optional<std::string> reply = w.Exchange(modDHCP::kDiscover, c);
  ASSERT_TRUE(reply);
  EXPECT_EQ(static_cast<unsigned char>((*reply)[2]), 20);
  EXPECT_EQ(reply->substr(28, 20), "ABCDEFGHIJKLMNOP" + std::string(4, '\0'));
  EXPECT_EQ(w.Ids(), Lines{modDHCP::HWToHex("\x01" + c.mac)});
}

// A leased client sends a REQUEST or DECLINE: only the two logged requests
// are answered (with an ACK), and none costs the client its lease.
TEST(DhcpIntake, DispatchDecidesRenewalLeaseRequestDeclineOrDrop) {
  const std::string acked = "Sending DHCP Acknowledgement to pc1 for 10.0.0.10";
  const int request = modDHCP::kRequest;
  struct {
    int type;
    std::string ciaddr, sender;
    std::optional<std::string> serverID;
    Lines log;  // empty: dropped without a word
  } cases[] = {
      {request, "10.0.0.10", "10.0.0.10", {}, {"DHCP Renewal Request from pc1 for 10.0.0.10", acked}},
      {request, "0.0.0.0", "0.0.0.0", "10.0.0.1", {"DHCP Lease Request from pc1 for 10.0.0.10", acked}},
      {request, "0.0.0.0", "0.0.0.0", "10.0.0.2", {}},    // another server's
      {request, "0.0.0.0", "0.0.0.0", {}, {}},            // no server identifier
      {request, "10.0.0.10", "10.0.0.99", {}, {}},        // ciaddr but another sender
      {modDHCP::kDecline, "0.0.0.0", "0.0.0.0", {}, {"DHCP Decline from pc1"}},
  };
  for (const auto& c : cases) {
    DhcpWorld w;
    Client client = Named("pc1");
    ASSERT_EQ(w.Lease(client), "10.0.0.10");
    w.log.lines.clear();
    w.sender.sent.clear();
    client.ciaddr = c.ciaddr;
    client.serverID = c.serverID;
    // A renewal takes its address from the sender, not from option 50.
    if (c.ciaddr == "0.0.0.0") client.requestedIP = "10.0.0.10";
    w.Receive(Message(c.type, client), c.sender);
    SCOPED_TRACE(c.sender + " " + c.serverID.value_or("no server identifier"));
    EXPECT_EQ(w.log.lines, c.log);
    EXPECT_EQ(w.Table(), Lines{"pc1.example.com. 10.0.0.10 86400"});
    std::vector<int> types;
    for (const SentDatagram& d : w.sender.sent) types.push_back(ReplyType(d.bytes));
    EXPECT_EQ(types, c.log.size() == 2 ? std::vector<int>{modDHCP::kAck} : std::vector<int>{});
  }
}

}  // namespace
