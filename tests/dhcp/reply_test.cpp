// The replies byte for byte.
#include <gtest/gtest.h>

#include "dhcp_world.h"

namespace {

std::string Zeros(std::size_t n) { return std::string(n, '\0'); }

// The fixed part of a reply to the test client (xid 12 34 56 78, Ethernet
// address 00:11:22:33:44:55).
std::string ReplyHeader(const std::string& ciaddr, const std::string& yiaddr) {
  return Bytes({2, 1, 6, 0, 0x12, 0x34, 0x56, 0x78}) + Zeros(4) + ciaddr + yiaddr + Zeros(8) +
         Bytes({0x00, 0x11, 0x22, 0x33, 0x44, 0x55}) + Zeros(10) + Zeros(192) +
         Bytes({99, 130, 83, 99});
}

const std::string kDomainOption = Bytes({15, 11}) + "example.com";

TEST(DhcpReply, OfferWithoutGatewayOrClientIdentifier) {
  DhcpWorld w;
  Client c;
  c.hostName = "PC1";
  w.Receive(Message(modDHCP::kDiscover, c));
  ASSERT_EQ(w.sender.sent.size(), 1u);
  std::string expected = ReplyHeader(Zeros(4), Bytes({10, 0, 0, 10})) +
                         Bytes({53, 1, 2}) + Bytes({1, 4, 255, 255, 255, 0}) +
                         Bytes({54, 4, 10, 0, 0, 1}) + Bytes({51, 4, 0, 1, 81, 128}) +
                         Bytes({6, 4, 10, 0, 0, 1}) + Bytes({12, 3}) + "pc1" + kDomainOption +
                         Bytes({255});
  EXPECT_EQ(w.sender.sent[0].bytes, expected);
  EXPECT_EQ(w.sender.sent[0].host, "255.255.255.255");
  EXPECT_EQ(w.sender.sent[0].port, 68);
  EXPECT_EQ(w.log.lines.back(), "Sending DHCP Offer to pc1 for 10.0.0.10");
}

TEST(DhcpReply, AcknowledgementWithGatewayBoundDnsAndClientIdentifier) {
  DhcpWorld w;
  w.ifs[0].Gateway = "10.0.0.254";
  w.ifs[0].TTL = 3600;
  w.options.DNSBIND = "10.0.0.53";
  Client c;
  c.hostName = "pc1";
  c.clientID = Bytes({1, 0, 0x11, 0x22, 0x33, 0x44, 0x55});
  c.requestedIP = "10.0.0.12";
  c.serverID = "10.0.0.1";
  w.Receive(Message(modDHCP::kRequest, c));
  ASSERT_EQ(w.sender.sent.size(), 1u);
  std::string expected = ReplyHeader(Zeros(4), Bytes({10, 0, 0, 12})) + Bytes({53, 1, 5}) +
                         Bytes({61, 7, 1, 0, 0x11, 0x22, 0x33, 0x44, 0x55}) +
                         Bytes({1, 4, 255, 255, 255, 0}) + Bytes({54, 4, 10, 0, 0, 1}) +
                         Bytes({51, 4, 0, 0, 14, 16}) + Bytes({6, 4, 10, 0, 0, 53}) +
                         Bytes({3, 4, 10, 0, 0, 254}) + Bytes({12, 3}) + "pc1" + kDomainOption +
                         Bytes({255});
  EXPECT_EQ(w.sender.sent[0].bytes, expected);
  EXPECT_EQ(w.log.lines.back(), "Sending DHCP Acknowledgement to pc1 for 10.0.0.12");
}

TEST(DhcpReply, NegativeCarriesAllOptionsWithoutAddress) {
  DhcpWorld w;
  Client c;  // no host name, no client identifier
  c.requestedIP = "10.0.0.99";
  c.serverID = "10.0.0.1";
  w.Receive(Message(modDHCP::kRequest, c));
  ASSERT_EQ(w.sender.sent.size(), 1u);
  std::string expected = ReplyHeader(Zeros(4), Zeros(4)) + Bytes({53, 1, 6}) +
                         Bytes({1, 4, 255, 255, 255, 0}) + Bytes({54, 4, 10, 0, 0, 1}) +
                         Bytes({51, 4, 0, 1, 81, 128}) + Bytes({6, 4, 10, 0, 0, 1}) +
                         Bytes({12, 0}) + kDomainOption + Bytes({255});
  EXPECT_EQ(w.sender.sent[0].bytes, expected);
  EXPECT_EQ(w.log.lines.back(), "Sending DHCP Negative to  for 10.0.0.99");
}

TEST(DhcpReply, RenewalIsAnsweredByUnicastWithCiaddr) {
  DhcpWorld w;
  Client c;
  c.ciaddr = "10.0.0.14";
  w.Receive(Message(modDHCP::kRequest, c), "10.0.0.14");
  ASSERT_EQ(w.sender.sent.size(), 1u);
  EXPECT_EQ(w.sender.sent[0].host, "10.0.0.14");
  EXPECT_EQ(w.sender.sent[0].bytes.substr(0, 240),
            ReplyHeader(Bytes({10, 0, 0, 14}), Bytes({10, 0, 0, 14})));
}

TEST(DhcpReply, SendFailureIsLoggedAndTheLeaseStands) {
  DhcpWorld w;
  w.sender.fail = true;
  Client c;
  c.hostName = "pc1";
  c.requestedIP = "10.0.0.12";
  c.serverID = "10.0.0.1";
  w.Receive(Message(modDHCP::kRequest, c));
  EXPECT_EQ(w.log.lines.back(), "Socket Error sending DHCP messages.");
  EXPECT_EQ(w.server.ActiveLeases().size(), 1u);
  EXPECT_TRUE(w.errors.errors.empty());
}

}  // namespace
